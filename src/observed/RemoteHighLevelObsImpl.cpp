#include "observed/RemoteHighLevelObsImpl.h"

#include <json/value.h>

#include <array>
#include <atomic>
#include <cstddef>
#include <exception>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <utility>

#include "log/Log.h"
#include "observed/ObservedRecords.h"

namespace orvane::RobotSdk {
namespace {

using Pexal::PBase::CMutex;
using Pexal::PBase::CThread;
using Pexal::PBase::CThreadLite;
using Pexal::PDBus::IBaseDDSReader;
using Pexal::PDBus::IDDSSubcriber;
using Pexal::PDBus::MSGDDSReader;
using Lock = std::lock_guard<CMutex>;

constexpr const char* kUnit = "RemoteHighLevelObsImpl";
constexpr std::uint32_t kDataAvailable = 0x400;
constexpr std::uint32_t kStopPollMs = 2;

/// How long the wait loop rests after a wait that ended early. Its readers wake it for every sample
/// and an application that takes its time leaves them triggered: without a rest the loop would
/// spin.
constexpr std::uint32_t kRestMs = 100;
constexpr std::uint32_t kRestAfterFailureMs = 1000;

std::string textOr(const Json::Value& configuration, const char* key, const char* fallback) {
  const Json::Value& value = configuration[key];
  return value.isString() ? value.asString() : fallback;
}

Json::Value qosDocument() {
  Json::Value qos(Json::objectValue);
  qos["history"] = "KEEP_LAST";
  qos["depth"] = 1;
  qos["reliability"] = "BEST_EFFORT";
  qos["durability"] = "VOLATILE";
  return qos;
}

/// Listens to the writers of that device, and to those that don't say whose they are.
IDDSSubcriber::WriterFilter writersOf(const std::string& deviceId) {
  if (deviceId.empty()) return {};
  return [deviceId](std::string_view userData) {
    constexpr std::string_view kDevice = "deviceNo=";
    if (!userData.starts_with(kDevice)) return true;
    userData.remove_prefix(kDevice.size());
    return userData.empty() || userData == deviceId;
  };
}

}  // namespace

/// The wait of the thread "robotSdk:HLRObs", apart from the source so that neither needs the other
/// to be alive. The data comes through the readers' callbacks; this keeps them in a wait set.
class RemoteHighLevelObsImpl::WaitLoop {
 public:
  /// Before the thread starts. Throws dds::core::Exception when DDS has no room for the condition.
  void begin(std::shared_ptr<IBaseDDSReader> motion, std::shared_ptr<IBaseDDSReader> sensor) {
    stopCondition_.emplace();
    const Lock lock(mutex_);
    motion_ = std::move(motion);
    sensor_ = std::move(sensor);
    running_ = true;
  }

  /// Lets run() end. The order matters: run() resets the trigger first and looks at running_ after
  /// that.
  void end() {
    running_ = false;
    try {
      stopCondition_->trigger_value(true);
    } catch (const std::exception&) {
      // DDS is gone altogether; then the wait has failed, too, and the loop looks around by itself.
    }
  }

  /// After the thread has ended: lets go of the readers.
  void clear() {
    std::shared_ptr<IBaseDDSReader> motion;
    std::shared_ptr<IBaseDDSReader> sensor;
    const Lock lock(mutex_);
    motion.swap(motion_);
    sensor.swap(sensor_);
  }

  /// The thread's body.
  void run() {
    std::shared_ptr<IBaseDDSReader> motion;
    std::shared_ptr<IBaseDDSReader> sensor;
    {
      const Lock lock(mutex_);
      motion = motion_;
      sensor = sensor_;
    }
    if (motion == nullptr || sensor == nullptr) {
      return;
    }
    try {
      dds::core::cond::WaitSet waitSet;
      stopCondition_->trigger_value(false);
      waitSet.attach_condition(*stopCondition_);
      Attachments attachments(waitSet);
      attachments.add(*motion);
      attachments.add(*sensor);
      while (running_ && CThread::looping()) {
        waitOnce(waitSet);
      }
    } catch (const std::exception& error) {
      MOTION_LOG(kUnit, level::kWarning, " remote obs wait exception:%s", error.what());
    }
  }

 private:
  /// The readers that a wait set wakes on, for as long as this lives.
  class Attachments {
   public:
    explicit Attachments(dds::core::cond::WaitSet& waitSet) : waitSet_(waitSet) {}
    ~Attachments() {
      for (std::size_t i = 0; i < count_; ++i) {
        try {
          readers_[i]->delWaitSet(waitSet_);
        } catch (const std::exception&) {
          // The reader is gone from DDS and so from the set.
        }
      }
    }
    Attachments(const Attachments&) = delete;
    Attachments& operator=(const Attachments&) = delete;

    void add(IBaseDDSReader& reader) {
      reader.addWaitSet(waitSet_, kDataAvailable);
      readers_.at(count_++) = &reader;
    }

   private:
    dds::core::cond::WaitSet& waitSet_;
    std::array<IBaseDDSReader*, 2> readers_{};
    std::size_t count_ = 0;
  };

  void waitOnce(dds::core::cond::WaitSet& waitSet) {
    std::uint32_t restMs = 0;
    try {
      const Pexal::PBase::ExternalWait outside;
      restMs = waitSet.wait(dds::core::Duration(1, 0)).empty() ? 0 : kRestMs;
    } catch (const std::exception& error) {
      MOTION_LOG(kUnit, level::kWarning, " remote obs wait exception:%s", error.what());
      restMs = kRestAfterFailureMs;
    }
    if (restMs > 0 && running_) {
      CThread::sleep(restMs);  // over at once when the thread is cancelled
    }
  }

  CMutex mutex_;  // guards the two readers
  std::shared_ptr<IBaseDDSReader> motion_;
  std::shared_ptr<IBaseDDSReader> sensor_;
  std::atomic<bool> running_{false};
  std::optional<dds::core::cond::GuardCondition> stopCondition_;  // wakes the wait; one per run
};

template <class T>
void RemoteHighLevelObsImpl::Channel<T>::close() {
  if (reader != nullptr && subscriber != nullptr) {
    subscriber->removeReader(reader->base());
  }
}

RemoteHighLevelObsImpl::RemoteHighLevelObsImpl(std::weak_ptr<IObservedSink> owner,
                                               std::string deviceId)
    : IHighLevelObserved(std::move(owner)),
      deviceId_(std::move(deviceId)),
      loop_(std::make_shared<WaitLoop>()) {
  thread_ =
      std::make_unique<CThreadLite>("robotSdk:HLRObs", 64, 0, 0, [loop = loop_] { loop->run(); });
}

RemoteHighLevelObsImpl::~RemoteHighLevelObsImpl() {
  RemoteHighLevelObsImpl::stop();
}

template <class T>
RemoteHighLevelObsImpl::Channel<T> RemoteHighLevelObsImpl::openChannel(
    const Json::Value& configuration, const char* defaultTopic,
    std::function<void(const T&)> onData) const {
  const std::string domain = textOr(configuration, "domain", "host");
  const std::string topic = textOr(configuration, "topic", defaultTopic);
  Channel<T> channel;
  try {
    channel.subscriber = IDDSSubcriber::instance(domain, topic);
    if (channel.subscriber == nullptr) {
      MOTION_LOG(kUnit, level::kConfiguration, "dds %s:%s reader is null", domain.c_str(),
                 topic.c_str());
      return channel;
    }
    channel.reader = std::make_shared<MSGDDSReader<T>>(channel.subscriber,
                                                       IDDSSubcriber::createDDSQos(qosDocument()),
                                                       std::move(onData), writersOf(deviceId_));
  } catch (const std::exception& error) {
    MOTION_LOG(kUnit, level::kError, "create dds data reader exception:%s", error.what());
  }
  return channel;
}

bool RemoteHighLevelObsImpl::start() {
  {
    const Lock lock(mutex);
    if (started) {
      return true;
    }
  }
  const Json::Value configuration(Json::objectValue);
  const std::weak_ptr<RemoteHighLevelObsImpl> weak = weak_from_this();
  auto motion = openChannel<MotionSample>(configuration, "motion/observed",
                                          [weak](const MotionSample& sample) {
                                            if (const auto self = weak.lock()) {
                                              self->takeMotion(sample);
                                            }
                                          });
  auto sensor = openChannel<SensorSample>(configuration, "sensor/observed",
                                          [weak](const SensorSample& sample) {
                                            if (const auto self = weak.lock()) {
                                              self->takeSensor(sample);
                                            }
                                          });
  if (motion.reader == nullptr || sensor.reader == nullptr) {
    MOTION_LOG(kUnit, level::kError, "remote obs setup failed: dds reader unavailable");
  } else if (beginWaiting(motion, sensor)) {
    return true;
  }
  motion.close();
  sensor.close();
  return false;
}

bool RemoteHighLevelObsImpl::beginWaiting(const Channel<MotionSample>& motion,
                                          const Channel<SensorSample>& sensor) {
  try {
    loop_->begin(motion.reader, sensor.reader);
  } catch (const std::exception& error) {
    MOTION_LOG(kUnit, level::kWarning, " remote obs wait exception:%s", error.what());
    return false;
  }
  if (thread_->isThreadOver() && !thread_->createThread()) {
    loop_->end();
    loop_->clear();
    return false;
  }
  const Lock lock(mutex);
  motion_ = motion;
  sensor_ = sensor;
  started = true;
  return true;
}

void RemoteHighLevelObsImpl::stop() {
  Channel<MotionSample> motion;
  Channel<SensorSample> sensor;
  {
    const Lock lock(mutex);
    if (!started) {
      return;
    }
    started = false;
    std::swap(motion, motion_);
    std::swap(sensor, sensor_);
  }
  thread_->cancelThread();
  loop_->end();
  while (!thread_->isThreadOver()) {
    CThread::sleep(kStopPollMs);
  }
  loop_->clear();
  motion.close();
  sensor.close();
}

void RemoteHighLevelObsImpl::takeMotion(const MotionSample& sample) {
  if (!motionEnabled) {
    return;
  }
  const auto sink = client.lock();
  if (sink == nullptr) {
    return;
  }
  const ObservedMotionRecord record = toMotionRecord(sample);
  if (keep(record)) {
    sink->deliverMotionObserved(record);
  }
}

void RemoteHighLevelObsImpl::takeSensor(const SensorSample& sample) {
  if (!sensorEnabled) {
    return;
  }
  const auto sink = client.lock();
  if (sink == nullptr) {
    return;
  }
  const ObservedSensorRecord record = toSensorRecord(sample);
  if (keep(record)) {
    sink->deliverSensorObserved(record);
  }
}

std::shared_ptr<IHighLevelObserved> makeRemoteObserved(std::weak_ptr<IObservedSink> owner,
                                                       std::string deviceId) {
  return std::make_shared<RemoteHighLevelObsImpl>(std::move(owner), std::move(deviceId));
}

}  // namespace orvane::RobotSdk
