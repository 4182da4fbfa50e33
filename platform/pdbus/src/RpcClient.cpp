#include <map>
#include <mutex>
#include <utility>
#include <vector>

#include "EndpointLife.h"
#include "Endpoints.h"
#include "RpcChannel.h"
#include "pbase/ILogger.h"
#include "pbase/System.h"
#include "pbase/Utils.h"

namespace Pexal::PDBus {
namespace {

using Lock = std::unique_lock<PBase::CMutex>;

/// The client of one server: one channel per device id, made on first use and kept.
///
/// Threading: any thread calls anything. gate_ counts the callers inside, so that finishStop
/// deletes the DDS entities when the last one has left. Lock order: mutex_, then a channel's (a
/// listener of it may run while the channel is being made). mutex_ isn't held while sending or
/// waiting.
class RpcClient final : public RpcClientEndpoint {
 public:
  RpcClient(dds_entity_t participant, std::string server)
      : participant_(participant), server_(std::move(server)) {}
  ~RpcClient() override { RpcClient::finishStop(); }

  std::uint32_t sendAction(const std::string& service, const std::string& method,
                           const Json::Value& request, const std::string& deviceId) override {
    return guarded(service, method, request, deviceId,
                   [](RpcChannel& channel, const RpcChannel::Request& outgoing) {
                     const RpcStatus status = channel.send(outgoing);
                     return Outcome{status, errnoOf(status)};
                   });
  }

  std::uint32_t call(const std::string& service, const std::string& method,
                     const Json::Value& request, Json::Value& response, std::uint32_t timeoutMs,
                     const std::string& deviceId) override {
    const std::uint64_t deadlineUs = deadlineAfter(timeoutMs);
    return guarded(service, method, request, deviceId,
                   [&](RpcChannel& channel, const RpcChannel::Request& outgoing) {
                     return read(channel.call(outgoing, deadlineUs), response);
                   });
  }

  void beginStop() override {
    gate_.close();
    const Lock lock(mutex_);
    for (const auto& [device, channel] : channels_) channel->beginStop();
  }

  void finishStop() override {
    beginStop();
    if (!gate_.awaitIdle(deadlineAfter(kLeaveMs))) {
      // Somebody is inside a channel still: the destructor comes here again when nobody can be.
      ILogger::instance()->log(3, kLogTag, "an rpc client is still in use after the shutdown\n");
      return;
    }
    std::map<std::string, std::unique_ptr<RpcChannel>> channels;
    {
      const Lock lock(mutex_);
      channels.swap(channels_);
    }
    const std::uint64_t deadlineUs = deadlineAfter(kAcknowledgeMs);
    std::vector<Entity> writers;
    for (const auto& [device, channel] : channels) {
      channel->awaitOneWayAcks(deadlineUs);
      writers.push_back(channel->releaseWriter());
    }
    deleteWriters(std::move(writers));
  }

 private:
  struct Outcome {
    RpcStatus status;
    std::uint32_t reason;
  };
  static constexpr std::uint64_t kLeaveMs = 2000;
  static constexpr std::uint64_t kAcknowledgeMs = 1000;

  /// Checks, converts and runs one operation; sets the thread's last errno.
  template <class Operation>
  std::uint32_t guarded(const std::string& service, const std::string& method,
                        const Json::Value& request, const std::string& deviceId,
                        const Operation& operation) {
    Outcome outcome{RpcStatus::kInvalidArgument, errnoOf(RpcStatus::kInvalidArgument)};
    try {
      outcome = checkedOperation(service, method, request, deviceId, operation);
    } catch (const std::exception& failure) {  // a document that can't be printed, no memory
      ILogger::instance()->log(4, kLogTag, "request %s::%s: %s\n", service.c_str(), method.c_str(),
                               failure.what());
    }
    PBase::setLastErrno(outcome.reason);
    return static_cast<std::uint32_t>(outcome.status);
  }

  template <class Operation>
  Outcome checkedOperation(const std::string& service, const std::string& method,
                           const Json::Value& request, const std::string& deviceId,
                           const Operation& operation) {
    const auto failed = [](RpcStatus status) { return Outcome{status, errnoOf(status)}; };
    const auto partition = devicePartition(deviceId);
    if (!partition || service.size() > kMaxName || method.size() > kMaxName) {
      return failed(RpcStatus::kInvalidArgument);
    }
    const std::string document = Utils::jsonToString(request);
    if (document.size() > kMaxDocument) return failed(RpcStatus::kInvalidArgument);
    const UseGate::Pass pass = gate_.enter();
    if (!pass) return failed(RpcStatus::kStopped);
    RpcChannel* const channel = channelTo(deviceId, *partition);
    if (channel == nullptr) {
      return failed(gate_.closed() ? RpcStatus::kStopped : RpcStatus::kSendFailed);
    }
    return operation(*channel, RpcChannel::Request{service, method, document});
  }

  /// Null when DDS refuses. Valid as long as the caller is inside the gate.
  RpcChannel* channelTo(const std::string& deviceId, const std::string& partition) {
    const Lock lock(mutex_);
    if (const auto found = channels_.find(deviceId); found != channels_.end()) {
      return found->second.get();
    }
    auto channel = RpcChannel::create(participant_, server_, partition);
    if (!channel) return nullptr;
    if (gate_.closed()) channel->beginStop();  // beginStop may have been here before
    return channels_.emplace(deviceId, std::move(channel)).first->second.get();
  }

  /// Turns what came back into an outcome; runs on the caller's thread, so that parsing a large
  /// document delays nobody else's replies.
  static Outcome read(const RpcChannel::Answer& answer, Json::Value& response) {
    const auto failed = [](RpcStatus status) { return Outcome{status, errnoOf(status)}; };
    if (answer.status != RpcStatus::kOk) return failed(answer.status);
    const Pexal_PDBus_Reply& reply = answer.reply.value;
    if (!isServerStatus(reply.status)) return failed(RpcStatus::kMalformedReply);
    const auto status = static_cast<RpcStatus>(reply.status);
    if (status != RpcStatus::kOk) return failed(status);
    const std::string_view text = textOf(reply.document);
    if (text.size() > kMaxDocument || !Utils::stringToJson(text, response)) {
      return failed(RpcStatus::kMalformedReply);
    }
    return {RpcStatus::kOk, reply.reason};
  }

  const dds_entity_t participant_;
  const std::string server_;
  UseGate gate_;
  PBase::CMutex mutex_;  // guards channels_
  std::map<std::string, std::unique_ptr<RpcChannel>> channels_;
};

}  // namespace

std::shared_ptr<RpcClientEndpoint> makeRpcClient(dds_entity_t participant,
                                                 const std::string& server) {
  return std::make_shared<RpcClient>(participant, server);
}

}  // namespace Pexal::PDBus
