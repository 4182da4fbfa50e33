#include "peers/SdkClient.h"

#include <atomic>
#include <stdexcept>

#include "harness/Clock.h"
#include "pbase/CSemaphore.h"

namespace bench {
namespace {

using orvane::RobotSdk::IMotionSdkService;

constexpr std::uint32_t kDiscoveryMs = 10000;

}  // namespace

SdkClient::SdkClient(const Json::Value& arguments)
    : client_(SdkSession::client(arguments["device"].asString())) {
  SdkSession::connect(*client_);
}

SdkClient::~SdkClient() {
  client_->disconnect();
}

bool SdkClient::ask() {
  return client_->queryMotionState(&state_, kRequestMs);
}

Json::Value SdkClient::handle(const Json::Value& command) {
  if (command["do"] != "state") return AskingRole::handle(command);
  if (!ask()) throw std::runtime_error("no motion state");
  Json::Value answer(Json::objectValue);
  answer["text"] = state_;
  return answer;
}

Json::Value SdkStarter::handle(const Json::Value&) {
  IMotionSdkService& service = *IMotionSdkService::instance();
  Pexal::PBase::CSemaphore found(0);
  std::atomic<std::int64_t> foundAt{0};
  SdkSession::prepare(service);
  service.attachRobotDiscoverCallback([&](const std::string&, const std::string&) {
    std::int64_t none = 0;
    if (foundAt.compare_exchange_strong(none, nowNs())) found.post();
  });
  const std::int64_t begin = nowNs();
  const bool started =
      service.initial(nullptr, "bench", 0) && service.discoverRobotDevice(kDiscoveryMs);
  const bool reported = started && found.wait(kDiscoveryMs);
  service.shutdown();  // no callback runs any more
  if (!reported) throw std::runtime_error("no robot reported");
  Json::Value answer(Json::objectValue);
  answer["ns"] = toJson({foundAt - begin});
  return answer;
}

}  // namespace bench
