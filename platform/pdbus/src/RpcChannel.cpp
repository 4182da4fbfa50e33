#include "RpcChannel.h"

#include <algorithm>
#include <cstring>
#include <mutex>
#include <utility>

#include "EndpointLife.h"
#include "pbase/CTime.h"
#include "pbase/ILogger.h"
#include "pbase/Utils.h"

namespace Pexal::PDBus {

using Lock = std::unique_lock<PBase::CMutex>;

RpcChannel::RpcChannel(const std::string& server)
    : id_(Utils::createRandomUUIDBytes()),
      requestPeers_("topic " + requestTopic(server)),
      replyPeers_("topic " + replyTopic(server)) {}

RpcChannel::~RpcChannel() {
  // Readers and writers before what they are made of; both wait for their listeners.
  writer_.reset();
  reader_.reset();
}

std::unique_ptr<RpcChannel> RpcChannel::create(dds_entity_t participant, const std::string& server,
                                               const std::string& partition) {
  std::unique_ptr<RpcChannel> channel(new RpcChannel(server));
  if (!channel->open(participant, server, partition)) return nullptr;
  return channel;
}

bool RpcChannel::open(dds_entity_t participant, const std::string& server,
                      const std::string& partition) {
  const std::string ownPartition = clientPartition(id_);
  const QosPtr replyPartition = partitionQos(ownPartition);
  const QosPtr requestPartition = partitionQos(partition);
  const QosPtr readerQos = reliableQos();
  const QosPtr writerQos = reliableQos(kWriteMs);
  dds_qset_userdata(writerQos.get(), ownPartition.data(), ownPartition.size());
  const ListenerPtr readerListener = makeListener(this);
  dds_lset_data_available(readerListener.get(), onReply);
  dds_lset_subscription_matched(readerListener.get(), onReplyWritersChanged);
  replyPeers_.listenWith(readerListener.get());
  const ListenerPtr writerListener = makeListener(this);
  dds_lset_publication_matched(writerListener.get(), onServersChanged);
  requestPeers_.listenWith(writerListener.get());

  const auto step = [&server](Entity& entity, dds_entity_t handle, const char* what) {
    entity = checkedEntity(handle, what, server);
    return static_cast<bool>(entity);
  };
  // The reply reader comes first: a server that sees the request writer can be matched by it.
  return step(requestTopic_,
              dds_create_topic(participant, &Pexal_PDBus_Request_desc,
                               PDBus::requestTopic(server).c_str(), nullptr, nullptr),
              "request topic") &&
         step(replyTopic_,
              dds_create_topic(participant, &Pexal_PDBus_Reply_desc,
                               PDBus::replyTopic(server).c_str(), nullptr, nullptr),
              "reply topic") &&
         step(subscriber_, dds_create_subscriber(participant, replyPartition.get(), nullptr),
              "reply subscriber") &&
         step(publisher_, dds_create_publisher(participant, requestPartition.get(), nullptr),
              "request publisher") &&
         step(reader_,
              dds_create_reader(subscriber_.get(), replyTopic_.get(), readerQos.get(),
                                readerListener.get()),
              "reply reader") &&
         step(writer_,
              dds_create_writer(publisher_.get(), requestTopic_.get(), writerQos.get(),
                                writerListener.get()),
              "request writer");
}

RpcStatus RpcChannel::write(const Request& request, std::uint64_t number, bool oneWay,
                            std::uint64_t deadlineUs) {
  Pexal_PDBus_Request sample{};
  std::memcpy(sample.client, id_.data(), id_.size());
  sample.number = number;
  sample.oneWay = oneWay;
  sample.service = const_cast<char*>(request.service.c_str());  // only read
  sample.method = const_cast<char*>(request.method.c_str());
  sample.document = octetsOf(request.document);
  dds_return_t result = DDS_RETCODE_OK;
  do {
    result = dds_write(writer_.get(), &sample);
  } while (result == DDS_RETCODE_TIMEOUT && !stopped_ &&
           PBase::CTime::getCurrentMicroSecond() < deadlineUs);
  return result == DDS_RETCODE_OK ? RpcStatus::kOk : RpcStatus::kSendFailed;
}

RpcStatus RpcChannel::send(const Request& request) {
  Lock lock(mutex_);
  if (stopped_) return RpcStatus::kStopped;
  if (servers_.empty()) {
    lock.unlock();
    reportPeers();
    return RpcStatus::kNoServer;
  }
  const std::uint64_t number = ++lastNumber_;
  lock.unlock();
  oneWaySent_ = true;
  return write(request, number, true, deadlineAfter(kOneWayMs));
}

RpcChannel::Answer RpcChannel::call(const Request& request, std::uint64_t deadlineUs) {
  Lock lock(mutex_);
  const bool matched = matchChanged_.waitUntil(
      lock, deadlineUs, [this] { return stopped_ || (!servers_.empty() && replyWriters_ > 0); });
  if (stopped_) return {RpcStatus::kStopped, {}};
  if (!matched) {
    lock.unlock();
    reportPeers();
    return {RpcStatus::kNoServer, {}};
  }
  Pending& pending = beginPending();
  lock.unlock();

  const RpcStatus sent = write(request, pending.number, false, deadlineUs);

  lock.lock();
  if (sent == RpcStatus::kOk) {
    pending.finished.waitUntil(lock, deadlineUs, [&pending] { return pending.done; });
  } else if (!pending.done) {
    pending.answer.status = sent;
  }
  Answer answer = endPending(pending);
  lock.unlock();

  reportPeers();
  return answer;
}

void RpcChannel::reportPeers() {
  requestPeers_.report();
  replyPeers_.report();
  if (const std::uint32_t stray = strayReplies_.load(std::memory_order_relaxed);
      stray > 0 && strayLog_.permit()) {
    strayReplies_.fetch_sub(stray, std::memory_order_relaxed);
    ILogger::instance()->log(3, kLogTag, "dropped %u replies meant for another client\n", stray);
  }
}

RpcChannel::Pending& RpcChannel::beginPending() {
  if (idle_.empty()) {
    pool_.push_back(std::make_unique<Pending>());
    idle_.reserve(pool_.size());
    waiting_.reserve(pool_.size());
    idle_.push_back(pool_.back().get());
  }
  Pending& pending = *idle_.back();
  idle_.pop_back();
  waiting_.push_back(&pending);
  pending.number = ++lastNumber_;
  pending.sentAtMatch = lastMatch_;
  pending.done = false;
  pending.answer.status = RpcStatus::kTimeout;
  return pending;
}

RpcChannel::Answer RpcChannel::endPending(Pending& pending) {
  std::erase(waiting_, &pending);
  idle_.push_back(&pending);
  Answer answer{pending.answer.status, std::move(pending.answer.reply)};
  return answer;
}

void RpcChannel::beginStop() {
  const Lock lock(mutex_);
  stopped_ = true;
  for (Pending* const pending : waiting_) {
    if (pending->done) continue;
    pending->answer.status = RpcStatus::kStopped;
    pending->done = true;
    pending->finished.notifyOne();
  }
  matchChanged_.notifyAll();
}

void RpcChannel::awaitOneWayAcks(std::uint64_t deadlineUs) {
  if (!oneWaySent_ || !writer_) return;
  const std::uint64_t now = PBase::CTime::getCurrentMicroSecond();
  const std::uint64_t leftUs = deadlineUs > now ? deadlineUs - now : 0;
  // Returns at once when nobody is matched: there is nobody to wait for.
  if (dds_wait_for_acks(writer_.get(), DDS_USECS(static_cast<std::int64_t>(leftUs))) !=
      DDS_RETCODE_OK) {
    ILogger::instance()->log(3, kLogTag,
                             "one-way requests were not acknowledged before the shutdown\n");
  }
}

void RpcChannel::endCallsOfLostServers() {
  for (Pending* const pending : waiting_) {
    const bool alive = std::ranges::any_of(
        servers_, [pending](const Server& server) { return server.match <= pending->sentAtMatch; });
    if (alive || pending->done) continue;
    pending->answer.status = RpcStatus::kServerGone;
    pending->done = true;
    pending->finished.notifyOne();
  }
}

void RpcChannel::onServersChanged(dds_entity_t, dds_publication_matched_status_t status,
                                  void* channel) {
  auto& self = *static_cast<RpcChannel*>(channel);
  const Lock lock(self.mutex_);
  std::erase_if(self.servers_, [&status](const Server& server) {
    return status.current_count == 0 || server.handle == status.last_subscription_handle;
  });
  if (status.current_count_change > 0) {
    self.servers_.push_back({status.last_subscription_handle, ++self.lastMatch_});
  } else {
    self.endCallsOfLostServers();
  }
  self.matchChanged_.notifyAll();
}

void RpcChannel::onReplyWritersChanged(dds_entity_t, dds_subscription_matched_status_t status,
                                       void* channel) {
  auto& self = *static_cast<RpcChannel*>(channel);
  const Lock lock(self.mutex_);
  self.replyWriters_ = status.current_count;
  self.matchChanged_.notifyAll();
}

void RpcChannel::onReply(dds_entity_t reader, void* channel) {
  auto& self = *static_cast<RpcChannel*>(channel);
  takeAll<ReplySample>(reader, [&self](ReplySample& sample, const dds_sample_info_t&) {
    if (std::memcmp(sample.value.client, self.id_.data(), self.id_.size()) != 0) {
      self.strayReplies_.fetch_add(1, std::memory_order_relaxed);
      return;
    }
    Lock lock(self.mutex_);
    const auto found = std::ranges::find(self.waiting_, sample.value.number, &Pending::number);
    if (found == self.waiting_.end() || (*found)->done) return;  // too late
    Pending& pending = **found;
    pending.answer.status = RpcStatus::kOk;
    pending.answer.reply = std::move(sample);
    pending.done = true;
    lock.unlock();
    pending.finished.notifyOne();  // stays valid: see Pending
  });
}

}  // namespace Pexal::PDBus
