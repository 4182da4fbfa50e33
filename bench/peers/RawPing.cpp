#include "peers/RawPing.h"

#include <chrono>
#include <stdexcept>

#include "harness/Clock.h"

// The waits are the standard library's: this is the baseline, and must not pay for a layer of ours.
namespace bench {
namespace {

constexpr std::chrono::seconds kReplyTime(2);
constexpr std::chrono::seconds kIdleTime(60);
constexpr std::int64_t kMatchNs = 10'000'000'000;

dds_entity_t makeTopic(const RawParticipant& participant, const std::string& name) {
  return checked(
      dds_create_topic(participant.get(), &bench_Text_desc, name.c_str(), nullptr, nullptr),
      "topic");
}

}  // namespace

RawServer::RawServer(const Json::Value& arguments)
    : reply_(arguments["reply"].asString()), participant_(arguments["domain"].asUInt()) {
  const std::string topic = arguments["topic"].asString();
  const QosPtr qos = arguments.get("keepsLast", false).asBool() ? startQos() : requestQos();
  writer_ = checked(dds_create_writer(participant_.get(), makeTopic(participant_, topic + "/reply"),
                                      qos.get(), nullptr),
                    "writer");
  thread_ = std::thread([this] { serve(); });
  const ListenerPtr listener(dds_create_listener(this));
  dds_lset_data_available(listener.get(), onRequest);
  reader_ =
      checked(dds_create_reader(participant_.get(), makeTopic(participant_, topic + "/request"),
                                qos.get(), listener.get()),
              "reader");
}

RawServer::~RawServer() {
  dds_delete(reader_);
  {
    const std::lock_guard lock(mutex_);
    stopping_ = true;
  }
  changed_.notify_one();
  thread_.join();
}

void RawServer::onRequest(dds_entity_t reader, void* server) {
  auto& self = *static_cast<RawServer*>(server);
  takeTexts(reader, [&self](std::uint64_t number, std::string_view text) {
    {
      const std::lock_guard lock(self.mutex_);
      self.requests_.emplace_back(number, text);
    }
    self.changed_.notify_one();
  });
}

void RawServer::serve() {
  std::unique_lock lock(mutex_);
  while (!stopping_) {
    changed_.wait_for(lock, kIdleTime, [this] { return stopping_ || !requests_.empty(); });
    if (stopping_ || requests_.empty()) continue;
    const auto [number, text] = std::move(requests_.front());
    requests_.pop_front();
    lock.unlock();
    const bench_Text sample = textSample(number, reply_);
    dds_write(writer_, &sample);
    lock.lock();
  }
}

RawClient::RawClient(const Json::Value& arguments)
    : request_(arguments["request"].asString()),
      waitSetMode_(arguments["wait"] == "waitset"),
      participant_(arguments["domain"].asUInt()) {
  const std::string topic = arguments["topic"].asString();
  const QosPtr qos = requestQos();
  const ListenerPtr listener(dds_create_listener(this));
  if (!waitSetMode_) dds_lset_data_available(listener.get(), onReply);
  reader_ = checked(dds_create_reader(participant_.get(), makeTopic(participant_, topic + "/reply"),
                                      qos.get(), listener.get()),
                    "reader");
  writer_ =
      checked(dds_create_writer(participant_.get(), makeTopic(participant_, topic + "/request"),
                                qos.get(), nullptr),
              "writer");
  if (waitSetMode_) {
    waitSet_ = checked(dds_create_waitset(participant_.get()), "wait set");
    const dds_entity_t condition =
        checked(dds_create_readcondition(reader_, DDS_ANY_STATE), "read condition");
    checked(dds_waitset_attach(waitSet_, condition, 0), "attachment");
  }
  awaitServer();
}

RawClient::~RawClient() {
  dds_delete(reader_);  // its listener uses the rest
}

void RawClient::awaitServer() const {
  const std::int64_t deadline = nowNs() + kMatchNs;
  for (;;) {
    dds_publication_matched_status_t requests{};
    dds_subscription_matched_status_t replies{};
    dds_get_publication_matched_status(writer_, &requests);
    dds_get_subscription_matched_status(reader_, &replies);
    if (requests.current_count > 0 && replies.current_count > 0) return;
    if (nowNs() > deadline) throw std::runtime_error("no raw server found");
    sleepUntilNs(nowNs() + 1'000'000);
  }
}

bool RawClient::ask() {
  {
    const std::lock_guard lock(mutex_);
    ++awaited_;
    done_ = false;
  }
  const bench_Text sample = textSample(awaited_, request_);
  if (dds_write(writer_, &sample) != DDS_RETCODE_OK) return false;
  return waitSetMode_ ? awaitInWaitSet() : awaitSignal();
}

bool RawClient::awaitSignal() {
  std::unique_lock lock(mutex_);
  return replied_.wait_for(lock, kReplyTime, [this] { return done_; });
}

bool RawClient::awaitInWaitSet() {
  while (!done_) {
    if (dds_waitset_wait(waitSet_, nullptr, 0, DDS_SECS(2)) <= 0) return false;
    takeReplies();
  }
  return true;
}

void RawClient::takeReplies() {
  takeTexts(reader_, [this](std::uint64_t number, std::string_view text) {
    const std::lock_guard lock(mutex_);
    if (number != awaited_) return;
    reply_ = text;
    done_ = true;
  });
}

void RawClient::onReply(dds_entity_t, void* client) {
  auto& self = *static_cast<RawClient*>(client);
  self.takeReplies();
  self.replied_.notify_one();
}

RawStarter::RawStarter(const Json::Value& arguments)
    : domain_(arguments["domain"].asUInt()), topic_(arguments["topic"].asString()) {}

Json::Value RawStarter::handle(const Json::Value&) {
  const auto number = static_cast<std::uint64_t>(nowNs());  // unlike those of earlier processes
  const std::int64_t begin = nowNs();
  const RawParticipant participant(domain_);
  const QosPtr qos = startQos();
  const dds_entity_t reader =
      checked(dds_create_reader(participant.get(), makeTopic(participant, topic_ + "/reply"),
                                qos.get(), nullptr),
              "reader");
  const dds_entity_t writer =
      checked(dds_create_writer(participant.get(), makeTopic(participant, topic_ + "/request"),
                                qos.get(), nullptr),
              "writer");
  const dds_entity_t waitSet = checked(dds_create_waitset(participant.get()), "wait set");
  checked(dds_waitset_attach(
              waitSet, checked(dds_create_readcondition(reader, DDS_ANY_STATE), "condition"), 0),
          "attachment");
  const bench_Text sample = textSample(number, "{}");
  checked(dds_write(writer, &sample), "write");
  bool answered = false;
  std::int64_t end = 0;
  while (!answered) {
    if (dds_waitset_wait(waitSet, nullptr, 0, DDS_SECS(10)) <= 0) {
      throw std::runtime_error("the raw server doesn't answer");
    }
    takeTexts(reader, [&](std::uint64_t answer, std::string_view) {
      if (answer != number) return;
      answered = true;
      end = nowNs();
    });
  }
  Json::Value result(Json::objectValue);
  result["ns"] = toJson({end - begin});
  return result;
}

}  // namespace bench
