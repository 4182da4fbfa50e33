#include "peers/Simulation.h"

#include <chrono>
#include <ctime>
#include <random>
#include <stdexcept>

#include "harness/Allocations.h"
#include "harness/Clock.h"
#include "peers/Stamp.h"

namespace bench {
namespace {

using orvane::msg::dds_::MotionObserved_;
using orvane::RobotSdk::IMotionLowLevelClient;
using orvane::RobotSdk::ObservedMotionRecord;

constexpr std::int64_t kShortestGapNs = 1'500'000;
constexpr std::int64_t kLongestGapNs = 2'500'000;
constexpr std::uint32_t kMotors = 12;
constexpr std::uint32_t kHertz = 500;

dds_entity_t topicOn(const RawParticipant& participant, const dds_topic_descriptor_t& type,
                     const char* name) {
  return checked(dds_create_topic(participant.get(), &type, name, nullptr, nullptr), "topic");
}

dds_entity_t writerOn(const RawParticipant& participant, const dds_topic_descriptor_t& type,
                      const char* name) {
  const QosPtr qos = observedQos();
  const dds_entity_t topic = topicOn(participant, type, name);
  return checked(dds_create_writer(participant.get(), topic, qos.get(), nullptr), "writer");
}

dds_entity_t readerOf(const RawParticipant& participant, dds_entity_t topic) {
  const QosPtr qos = observedQos();
  return checked(dds_create_reader(participant.get(), topic, qos.get(), nullptr), "reader");
}

void connect(IMotionLowLevelClient& client) {
  if (!client.connect(kHertz, 0)) throw std::runtime_error("the topics don't open");
}

void sleepMillisecond() {
  timespec rest{0, 1'000'000};
  while (nanosleep(&rest, &rest) != 0) {
  }
}

}  // namespace

// --- the other side ---

Simulator::Simulator(const Json::Value& arguments)
    : participant_(arguments["domain"].asUInt()),
      commands_(readerOf(
          participant_, topicOn(participant_, orvane_msg_dds__MotionCtrl__desc, "motion/control"))),
      observed_(writerOn(participant_, orvane_msg_dds__MotionObserved__desc, "motion/observed")) {
  if (arguments["writes"].asBool()) writer_ = std::thread([this] { write(); });
}

Simulator::~Simulator() {
  stopping_ = true;
  if (writer_.joinable()) writer_.join();
}

Json::Value Simulator::handle(const Json::Value& command) {
  if (command["do"] != "matched") throw std::runtime_error("unknown command");
  dds_subscription_matched_status_t status{};
  checked(dds_get_subscription_matched_status(commands_, &status), "matched");
  Json::Value answer(Json::objectValue);
  answer["writers"] = status.current_count;
  return answer;
}

void Simulator::write() const {
  std::minstd_rand random;
  std::uniform_int_distribution<std::int64_t> gap(kShortestGapNs, kLongestGapNs);
  MotionObserved_ sample{};
  sample.motorNum = kMotors;
  for (std::int64_t due = nowNs(); !stopping_; due += gap(random)) {
    sleepUntilNs(due);
    stampMotion(sample, nowNs());
    dds_write(observed_, &sample);
  }
}

// --- commands ---

Json::Value CommanderRole::handle(const Json::Value& command) {
  if (command["do"] != "allocations") return AskingRole::handle(command);
  const std::uint32_t count = command["count"].asUInt();
  const std::uint64_t before = allocationsOfThread();
  for (std::uint32_t i = 0; i < count; ++i) {
    if (!ask()) throw std::runtime_error("a command wasn't sent");
  }
  Json::Value answer(Json::objectValue);
  answer["allocations"] = static_cast<double>(allocationsOfThread() - before) / count;
  return answer;
}

SdkCommander::SdkCommander(const Json::Value&) : client_(IMotionLowLevelClient::create()) {
  connect(*client_);
  client_->setSessionFlag(true);
  record_.motorNum = kMotors;
}

bool SdkCommander::ask() {
  return client_->publishMotorAction(&record_, nullptr);
}

RawCommander::RawCommander(const Json::Value& arguments)
    : participant_(arguments["domain"].asUInt()),
      writer_(writerOn(participant_, orvane_msg_dds__MotionCtrl__desc, "motion/control")) {
  sample_.motorNum = kMotors;
}

bool RawCommander::ask() {
  return dds_write(writer_, &sample_) == DDS_RETCODE_OK;
}

// --- observed samples ---

void RequirerRole::start(void (*look)(RequirerRole& self)) {
  stopping_ = false;
  caller_ = std::thread([this, look] {
    while (!stopping_) look(*this);
  });
}

void RequirerRole::stop() {
  stopping_ = true;
  if (caller_.joinable()) caller_.join();
}

SdkRequirer::SdkRequirer(const Json::Value&) : client_(IMotionLowLevelClient::create()) {}

SdkRequirer::~SdkRequirer() {
  SdkRequirer::detach();
}

void SdkRequirer::attach() {
  connect(*client_);
  start([](RequirerRole& role) {
    auto& self = static_cast<SdkRequirer&>(role);
    ObservedMotionRecord record;
    if (self.client_->requireObserved(&record, kWaitMs)) {
      self.collector_.put(nowNs() - motionStampOf(record));
    }
  });
}

void SdkRequirer::detach() {
  stop();
  client_->disconnect();
}

RawRequirer::RawRequirer(const Json::Value& arguments)
    : callerPolls_(arguments["callerPolls"].asBool()), participant_(arguments["domain"].asUInt()) {}

RawRequirer::~RawRequirer() {
  RawRequirer::detach();
}

void RawRequirer::attach() {
  topic_ = topicOn(participant_, orvane_msg_dds__MotionObserved__desc, "motion/observed");
  reader_ = readerOf(participant_, topic_);
  if (callerPolls_) {
    start([](RequirerRole& role) {
      auto& self = static_cast<RawRequirer&>(role);
      Sample sample{};
      while (self.take(sample)) self.collector_.put(nowNs() - motionStampOf(sample));
      sleepMillisecond();
    });
    return;
  }
  start([](RequirerRole& role) { static_cast<RawRequirer&>(role).await(); });
  poller_ = std::thread([this] {
    while (!stopping_) poll();
  });
}

void RawRequirer::detach() {
  if (reader_ == 0) return;
  stop();
  if (poller_.joinable()) poller_.join();
  dds_delete(reader_);
  dds_delete(topic_);
  reader_ = 0;
}

bool RawRequirer::take(Sample& sample) const {
  void* pointer = &sample;
  dds_sample_info_t info;
  return dds_take(reader_, &pointer, &info, 1, 1) > 0 && info.valid_data;
}

void RawRequirer::poll() {
  Sample sample{};
  while (take(sample)) {
    {
      const std::lock_guard lock(mutex_);
      newest_ = sample;
      fresh_ = true;
    }
    arrived_.notify_all();
  }
  sleepMillisecond();
}

void RawRequirer::await() {
  Sample sample;
  {
    std::unique_lock lock(mutex_);
    const auto limit = std::chrono::milliseconds(kWaitMs);
    if (!arrived_.wait_for(lock, limit, [this] { return fresh_; })) return;
    fresh_ = false;
    sample = newest_;
  }
  collector_.put(nowNs() - motionStampOf(sample));
}

}  // namespace bench
