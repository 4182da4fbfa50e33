#include "peers/Observers.h"

#include <stdexcept>

#include "harness/Allocations.h"
#include "harness/Clock.h"
#include "msg/MotionTypes.h"
#include "pbase/CThread.h"
#include "peers/Stamp.h"

namespace bench {
namespace {

using orvane::msg::dds_::MotionObserved_;
using orvane::msg::dds_::SensorObserved_;
using orvane::RobotSdk::ObservedMotionRecord;
using orvane::RobotSdk::ObservedSensorRecord;

constexpr std::uint32_t kWarmUpSamples = 100;
constexpr std::uint32_t kLongestPeriodMs = 20;
constexpr std::uint32_t kSettleMs = 10000;
constexpr std::uint32_t kBlockMs = 1000;
constexpr std::int64_t kNsPerMs = 1'000'000;
constexpr std::int64_t kRequestEveryNs = 4 * kNsPerMs;  // as often as the robot writes sensors

std::int64_t stampIn(const ObservedSensorRecord& record) {
  const auto& odometry = record.odom;
  return stampOf(
      {odometry.position[0], odometry.position[1], odometry.position[2], odometry.velocity[0]});
}

}  // namespace

Json::Value ObserverRole::handle(const Json::Value& command) {
  const std::string what = command["do"].asString();
  if (what == "collect") return collect(command["count"].asUInt());
  if (what == "attach") {
    attach();
  } else if (what == "detach") {
    detach();
  } else {
    throw std::runtime_error("unknown command");
  }
  return Json::Value(Json::objectValue);
}

Json::Value ObserverRole::collect(std::uint32_t count) {
  collector_.begin(kWarmUpSamples, count);
  const std::uint64_t before = allocationsOfProcess();
  if (!collector_.await(kSettleMs + (count + kWarmUpSamples) * kLongestPeriodMs)) {
    throw std::runtime_error("the observed samples don't come");
  }
  const std::uint64_t allocated = allocationsOfProcess() - before;
  Json::Value answer(Json::objectValue);
  answer["ns"] = toJson(collector_.end());
  answer["allocations"] =
      static_cast<double>(allocated) / static_cast<double>(count + kWarmUpSamples);
  answer["threadAllocations"] = collector_.threadAllocations();
  return answer;
}

SdkObserver::SdkObserver(const Json::Value& arguments)
    : client_(SdkSession::client(arguments["device"].asString())) {
  client_->setMotionObservedCallback([this](const ObservedMotionRecord& record) {
    collector_.put(nowNs() - motionStampOf(record));
  });
  client_->setSensorObservedCallback([](const ObservedSensorRecord&) {});
}

SdkObserver::~SdkObserver() {
  client_->disconnect();
}

Json::Value SdkObserver::handle(const Json::Value& command) {
  if (command["do"] != "connect") return ObserverRole::handle(command);
  SdkSession::connect(*client_);
  return Json::Value(Json::objectValue);
}

void SdkObserver::attach() {
  SdkSession::connect(*client_);
  SdkSession::observe(*client_, true);
}

void SdkObserver::detach() {
  client_->disconnect();
}

RawObserver::RawObserver(const Json::Value& arguments)
    : participant_(arguments["domain"].asUInt()) {}

RawObserver::~RawObserver() {
  RawObserver::detach();
}

void RawObserver::attach() {
  open<MotionObserved_>(
      motion_, orvane_msg_dds__MotionObserved__desc, "motion/observed",
      [this](const MotionObserved_& sample) { collector_.put(nowNs() - motionStampOf(sample)); });
  open<SensorObserved_>(sensor_, orvane_msg_dds__SensorObserved__desc, "sensor/observed",
                        [this](const SensorObserved_&) { ++sensorSamples_; });
}

void RawObserver::detach() {
  close(motion_);
  close(sensor_);
}

template <class Sample, class Use>
void RawObserver::open(Stream& stream, const dds_topic_descriptor_t& type, const char* name,
                       Use use) {
  const QosPtr qos = observedQos();
  stream.topic =
      checked(dds_create_topic(participant_.get(), &type, name, nullptr, nullptr), "topic");
  stream.reader =
      checked(dds_create_reader(participant_.get(), stream.topic, qos.get(), nullptr), "reader");
  stream.waitSet = checked(dds_create_waitset(participant_.get()), "wait set");
  stream.stop = checked(dds_create_guardcondition(participant_.get()), "guard condition");
  const dds_entity_t data =
      checked(dds_create_readcondition(stream.reader, DDS_ANY_STATE), "read condition");
  checked(dds_waitset_attach(stream.waitSet, data, 0), "attachment");
  checked(dds_waitset_attach(stream.waitSet, stream.stop, 0), "attachment");
  stream.thread = std::thread([&stream, use] {
    Sample sample{};
    void* pointer = &sample;
    dds_sample_info_t info;
    bool stopping = false;
    while (!stopping) {
      dds_waitset_wait(stream.waitSet, nullptr, 0, DDS_SECS(60));
      dds_read_guardcondition(stream.stop, &stopping);
      if (dds_take(stream.reader, &pointer, &info, 1, 1) > 0 && info.valid_data) use(sample);
    }
  });
}

void RawObserver::close(Stream& stream) {
  if (!stream.thread.joinable()) return;
  dds_set_guardcondition(stream.stop, true);
  stream.thread.join();
  dds_delete(stream.waitSet);
  dds_delete(stream.stop);
  dds_delete(stream.reader);
  dds_delete(stream.topic);
}

BlockedObserver::BlockedObserver(const Json::Value& arguments)
    : client_(SdkSession::client(arguments["device"].asString())) {
  client_->setMotionObservedCallback([this](const ObservedMotionRecord&) {
    if (!blocked_) return;
    ++blockedCalls_;
    Pexal::PBase::CThread::sleep(kBlockMs);
  });
  client_->setSensorObservedCallback([this](const ObservedSensorRecord& record) {
    sensorWrittenNs_ = stampIn(record);
    sensor_.put(nowNs() - sensorWrittenNs_);
  });
  SdkSession::connect(*client_);
  SdkSession::observe(*client_, true);
}

BlockedObserver::~BlockedObserver() {
  client_->disconnect();
}

Json::Value BlockedObserver::handle(const Json::Value& command) {
  blocked_ = command["blocked"].asBool();
  blockedCalls_ = 0;
  // The callback that blocked last has ended, or the first one has begun.
  Pexal::PBase::CThread::sleep(kBlockMs + kLongestPeriodMs);
  sensor_.begin(0, UINT32_MAX);
  std::vector<std::int64_t> requests;
  std::string state;
  const std::int64_t end = nowNs() + command["ms"].asInt64() * kNsPerMs;
  // The robot keeps time by the same clock: halfway between two sensor samples.
  std::int64_t due = sensorWrittenNs_ + kRequestEveryNs / 2;
  while (due < end) {
    sleepUntilNs(due += kRequestEveryNs);
    const std::int64_t begin = nowNs();
    if (!client_->queryMotionState(&state, kRequestMs)) {
      throw std::runtime_error("the robot doesn't answer");
    }
    requests.push_back(nowNs() - begin);
  }
  Json::Value answer(Json::objectValue);
  answer["sensorNs"] = toJson(sensor_.end());
  answer["requestNs"] = toJson(requests);
  answer["blockedCalls"] = blockedCalls_.load();
  blocked_ = false;
  return answer;
}

}  // namespace bench
