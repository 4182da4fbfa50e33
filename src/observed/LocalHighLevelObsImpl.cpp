#include "observed/LocalHighLevelObsImpl.h"

#include <atomic>
#include <mutex>
#include <utility>

#include "log/Log.h"
#include "pbase/CThread.h"
#include "pbase/CTime.h"

namespace orvane::RobotSdk {
namespace {

using Pexal::PBase::CMutex;
using Pexal::PBase::CThread;
using Pexal::PBase::CThreadLite;
using Pexal::PBase::CTime;
using Robot::Motion::ObservedBuffer;
using Robot::Motion::ShareObservedReader;
using Lock = std::lock_guard<CMutex>;

constexpr char kUnit[] = "LocalHighLevelObsImpl";
constexpr std::uint32_t kPassMs = 20;
constexpr std::uint32_t kStopPollMs = 2;
constexpr std::uint64_t kDeliveryPatienceMs = 1000;

std::shared_ptr<ShareObservedReader> openReader(const ObservedBuffer& which) {
  auto reader = ShareObservedReader::open(which);
  if (reader == nullptr) MOTION_LOG(kUnit, level::kError, "open %s reader failed", which.name);
  return reader;
}

/// The newest record of a buffer, handed out once.
template <class Record>
class Stream {
 public:
  /// Passes over what is in the buffer now.
  explicit Stream(std::shared_ptr<ShareObservedReader> reader)
      : reader_(std::move(reader)), next_(reader_->latestSeq() + 1) {}

  /// False: nothing new since the last time. Of several new records it gives the newest.
  [[nodiscard]] bool take(Record& record) {
    std::uint64_t seq = 0;
    if (!reader_->get(&record, seq)) return false;
    const bool isNew = seq >= next_;
    const bool countsAfresh = seq + 1 < next_;  // a writer that found nothing of its predecessor
    if (isNew || countsAfresh) next_ = reader_->latestSeq() + 1;
    return isNew;
  }

 private:
  const std::shared_ptr<ShareObservedReader> reader_;
  std::uint64_t next_;
};

}  // namespace

/// One run of the thread "robotSdk:HLLObs", from a start to its stop. The thread holds it while it
/// runs: a run that is stopped from inside its own delivery, or whose delivery doesn't end, ends by
/// itself later.
class LocalHighLevelObsImpl::Polling {
 public:
  [[nodiscard]] static std::shared_ptr<Polling> make(std::weak_ptr<LocalHighLevelObsImpl> source,
                                                     ReaderPtr sensorReader,
                                                     ReaderPtr motionReader) {
    auto made = std::make_shared<Polling>(std::move(source), std::move(sensorReader),
                                          std::move(motionReader));
    // Weak, since the object owns the thread that owns this function.
    const auto body = [weak = std::weak_ptr<Polling>(made)] {
      if (const auto running = weak.lock()) running->run();
    };
    made->thread_ = std::make_unique<CThreadLite>("robotSdk:HLLObs", 64, 0, 0, body);
    return made;
  }
  /// Made by make only.
  Polling(std::weak_ptr<LocalHighLevelObsImpl> source, ReaderPtr sensorReader,
          ReaderPtr motionReader)
      : sensor(std::move(sensorReader)),
        motion(std::move(motionReader)),
        source_(std::move(source)) {}

  /// False: the system has no thread. Ended before: the thread ends at once.
  [[nodiscard]] bool begin() { return thread_->createThread(); }

  /// No delivery begins once this has begun. Waits for the one under way, see stop.
  void end() {
    running_ = false;
    thread_->cancelThread();
    if (thread_->isCurrentThread()) return;
    const std::uint64_t deadline = CTime::getCurrentMilliSecond() + kDeliveryPatienceMs;
    while (!thread_->isThreadOver()) {
      if (CTime::getCurrentMilliSecond() >= deadline) {
        MOTION_LOG(kUnit, level::kWarning,
                   " an observed callback doesn't end, not waiting any longer");
        return;
      }
      CThread::sleep(kStopPollMs);
    }
  }

  [[nodiscard]] bool isRunning() const { return running_ && CThread::looping(); }

  // Used on the thread only.
  Stream<ObservedSensorRecord> sensor;
  Stream<ObservedMotionRecord> motion;

 private:
  void run() {
    while (isRunning()) {
      const auto source = source_.lock();
      if (source == nullptr) return;
      pass(*source);
    }
  }

  /// The client is held from before the pause on, and released before the source that it owns.
  void pass(LocalHighLevelObsImpl& source) {
    const auto sink = source.client.lock();
    CThread::sleep(kPassMs);
    if (sink != nullptr && isRunning()) source.takeNew(*this, *sink);
  }

  const std::weak_ptr<LocalHighLevelObsImpl> source_;
  std::atomic<bool> running_{true};
  std::unique_ptr<CThread> thread_;
};

LocalHighLevelObsImpl::LocalHighLevelObsImpl(std::weak_ptr<IObservedSink> owner)
    : IHighLevelObserved(std::move(owner)) {}

LocalHighLevelObsImpl::~LocalHighLevelObsImpl() {
  LocalHighLevelObsImpl::stop();
}

bool LocalHighLevelObsImpl::start() {
  {
    const Lock lock(mutex);
    if (started) return true;
  }
  if (!openReaders()) {
    MOTION_LOG(kUnit, level::kError, "open local motion observed shared memory failed");
    return false;
  }
  const auto polling = Polling::make(weak_from_this(), sensorReader_, motionReader_);
  {
    const Lock lock(mutex);
    polling_ = polling;
    started = true;
  }
  if (polling->begin()) return true;
  const Lock lock(mutex);
  polling_.reset();
  started = false;
  return false;
}

bool LocalHighLevelObsImpl::openReaders() {
  ReaderPtr sensor = sensorReader_;
  ReaderPtr motion = motionReader_;
  if (sensor == nullptr) sensor = openReader(Robot::Motion::kSensorObserved);
  if (motion == nullptr) motion = openReader(Robot::Motion::kMotionObserved);
  const Lock lock(mutex);
  sensorReader_ = sensor;
  motionReader_ = motion;
  return sensor != nullptr && motion != nullptr;
}

void LocalHighLevelObsImpl::stop() {
  std::shared_ptr<Polling> polling;
  ReaderPtr motion;
  ReaderPtr sensor;
  {
    const Lock lock(mutex);
    if (!started) return;
    started = false;
    polling.swap(polling_);
    motion.swap(motionReader_);
    sensor.swap(sensorReader_);
  }
  polling->end();
}

/// What is new is stored first and delivered then, the sensor record before the motion record. So a
/// switch that turns inside the first delivery still lets the second one pass.
void LocalHighLevelObsImpl::takeNew(Polling& polling, IObservedSink& sink) {
  ObservedSensorRecord sensor;
  ObservedMotionRecord motion;
  const bool sensorIsNew = sensorEnabled && polling.sensor.take(sensor) && keep(sensor);
  const bool motionIsNew = motionEnabled && polling.motion.take(motion) && keep(motion);
  if (sensorIsNew && polling.isRunning()) sink.deliverSensorObserved(sensor);
  if (motionIsNew && polling.isRunning()) sink.deliverMotionObserved(motion);
}

std::shared_ptr<IHighLevelObserved> makeLocalObserved(std::weak_ptr<IObservedSink> owner) {
  return std::make_shared<LocalHighLevelObsImpl>(std::move(owner));
}

}  // namespace orvane::RobotSdk
