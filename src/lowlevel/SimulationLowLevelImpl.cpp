#include "lowlevel/SimulationLowLevelImpl.h"

#include <poll.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <mutex>
#include <utility>

#include "observed/ObservedRecords.h"
#include "pbase/CTime.h"
#include "service/Boundary.h"
#include "service/CallbackScope.h"

namespace orvane::RobotSdk {
namespace {

using Lock = std::lock_guard<Pexal::PBase::CMutex>;
using lowlevel::ConnectionNumber;
using lowlevel::SimulationTransport;
using lowlevel::State;
using msg::dds_::MotionCtrl_;
using msg::dds_::MotionObserved_;
using msg::dds_::RemoteControl_;
using Pexal::PBase::CThread;
using Pexal::PBase::CThreadLite;
using Pexal::PBase::CTime;
namespace error = lowlevel::error;

constexpr std::uint32_t kReceivePauseMs = 1;
constexpr std::uint64_t kUsPerMs = 1000;
constexpr std::uint64_t kComplaintPauseMs = 1000;
/// Of one topic, before the other one has its turn.
constexpr std::int32_t kSamplesPerPass = 64;

/// Nobody may read the pipe behind standard error: a thread that writes to a full one waits for
/// good, and who joins that thread with it.
bool canPrint() {
  pollfd output{STDERR_FILENO, POLLOUT, 0};
  return ::poll(&output, 1, 0) == 1 && output.revents == POLLOUT;  // broken: POLLERR beside it
}

}  // namespace

void lowlevel::Complaint::tell(const std::exception& reason) {
  const std::uint64_t now = CTime::getCurrentMilliSecond();
  std::uint64_t due = dueMs_.load();
  if (now < due || !dueMs_.compare_exchange_strong(due, now + kComplaintPauseMs) || !canPrint()) {
    ++leftOut_;
    return;
  }
  static_cast<void>(
      std::fprintf(stderr, "SimulationLowLevelClientImpl %s failed: %s\n", what_, reason.what()));
  if (const std::uint32_t count = leftOut_.exchange(0); count > 0) {
    static_cast<void>(
        std::fprintf(stderr, "SimulationLowLevelClientImpl %s: %u more before\n", what_, count));
  }
}

// --- connect and disconnect ---

bool SimulationLowLevelClientImpl::Impl::connect() {
  if (state_ != lowlevel::kDisconnected) return true;
  ConnectionNumber number = 0;
  {
    const Lock lifecycle(lifecycleLock_);
    if (ended_) return false;
    if (state_ != lowlevel::kDisconnected) return true;
    const Lock lock(mutex_);
    number = ++connections_;
    change(lowlevel::kConnecting, error::kNone);
  }
  tell(lowlevel::kConnecting, error::kNone);

  State reached = lowlevel::kDisconnected;
  std::uint32_t code = error::kNoChannel;
  {
    const Lock lifecycle(lifecycleLock_);
    // The callback, or another thread, may have ended this connection.
    if (number != connections_ || state_ != lowlevel::kConnecting) return false;
    if (open()) {
      reached = lowlevel::kConnected;
      code = error::kNone;
    }
    const Lock lock(mutex_);
    change(reached, code);
  }
  tell(reached, code);
  return reached == lowlevel::kConnected;
}

bool SimulationLowLevelClientImpl::Impl::open() {
  for (auto* const failure : {&openFailure_, &readFailure_, &writeFailure_}) failure->beginAnew();
  try {
    const auto transport = SimulationTransport::open(settings_);
    {
      const Lock lock(mutex_);
      transport_ = transport;
      stopping_ = false;
    }
    thread_ = std::make_unique<CThreadLite>("robotSdk:LLClientSim", 64, 0, 0,
                                            [this, transport] { receive(*transport); });
    if (thread_->createThread()) return true;
  } catch (const std::exception& failure) {
    openFailure_.tell(failure);
  }
  close();
  return false;
}

bool SimulationLowLevelClientImpl::Impl::disconnect() {
  {
    const Lock lifecycle(lifecycleLock_);
    close();
    const Lock lock(mutex_);
    const bool isOver = state_ == lowlevel::kDisconnected;
    change(lowlevel::kDisconnected, error::kNone);
    if (isOver) return true;
  }
  tell(lowlevel::kDisconnected, error::kNone);
  return true;
}

void SimulationLowLevelClientImpl::Impl::end() {
  const Lock lifecycle(lifecycleLock_);
  ended_ = true;
  close();
  const Lock lock(mutex_);
  change(lowlevel::kDisconnected, error::kNone);
}

/// Stops intake, wakes the waiters, joins the thread, closes the entities. A command that is being
/// written keeps them for as long as that takes.
void SimulationLowLevelClientImpl::Impl::close() {
  std::shared_ptr<SimulationTransport> closed;
  {
    const Lock lock(mutex_);
    stopping_ = true;
    closed.swap(transport_);
  }
  arrived_.notifyAll();
  thread_.reset();
  const Lock lock(mutex_);
  received_ = consumed_ = 0;
  remoteControlMs_ = 0;
}

// --- state, error and who is told ---

/// With mutex_ held.
void SimulationLowLevelClientImpl::Impl::change(State state, std::uint32_t code) {
  state_ = state;
  lastError_ = code;
}

void SimulationLowLevelClientImpl::Impl::tell(State state, std::uint32_t code) {
  SharedCallback callback;
  {
    const Lock lock(mutex_);
    callback = stateCallback_;
  }
  if (callback == nullptr) return;
  const CallbackScope scope;
  guarded("state callback", [&] { (*callback)(state, code); });
}

void SimulationLowLevelClientImpl::Impl::setStateCallback(LowLevelStateCallback callback) {
  SharedCallback replacement;  // and what it replaced: the application's own, freed unlocked
  if (callback) replacement = std::make_shared<const LowLevelStateCallback>(std::move(callback));
  const Lock lock(mutex_);
  stateCallback_.swap(replacement);
}

bool SimulationLowLevelClientImpl::Impl::setSessionFlag(bool enable) {
  const State state = enable ? lowlevel::kPrepared : lowlevel::kConnected;
  {
    const Lock lock(mutex_);
    if (state_ < lowlevel::kConnected) return fail(error::kWrongState);
    change(state, error::kNone);
  }
  tell(state, error::kNone);
  return true;
}

// --- receiving ---

void SimulationLowLevelClientImpl::Impl::receive(SimulationTransport& transport) {
  while (!stopping_) {
    try {
      takeObserved(transport);
      takeRemoteControl(transport);
    } catch (const std::exception& failure) {
      if (stopping_) return;
      readFailure_.tell(failure);
      lastError_ = error::kNotDone;
    }
    CThread::sleep(kReceivePauseMs);
  }
}

void SimulationLowLevelClientImpl::Impl::takeObserved(SimulationTransport& transport) {
  MotionObserved_ sample{};
  dds::sub::SampleInfo info;
  auto left = std::max(settings_.depth, kSamplesPerPass);
  while (!stopping_ && left-- > 0 && transport.observed.take_into(&sample, info)) {
    if (!info.valid()) continue;
    {
      const Lock lock(mutex_);
      observed_ = sample;
      ++received_;
    }
    arrived_.notifyAll();
  }
}

void SimulationLowLevelClientImpl::Impl::takeRemoteControl(SimulationTransport& transport) {
  RemoteControl_ sample{};
  dds::sub::SampleInfo info;
  auto left = std::max(settings_.depth, kSamplesPerPass);
  while (!stopping_ && left-- > 0 && transport.remoteControl.take_into(&sample, info)) {
    if (!info.valid()) continue;
    const Lock lock(mutex_);
    remoteControl_ = sample;
    remoteControlMs_ = CTime::getCurrentMilliSecond();
  }
}

bool SimulationLowLevelClientImpl::Impl::requireObserved(ObservedMotionRecord* out,
                                                         std::uint32_t timeoutMs) {
  if (out == nullptr) return fail(error::kInvalidArgument);
  const std::uint64_t deadlineUs = CTime::getCurrentMicroSecond() + timeoutMs * kUsPerMs;
  MotionObserved_ observed;
  RemoteControl_ remoteControl;
  bool isFresh = false;
  {
    std::unique_lock lock(mutex_);
    const ConnectionNumber connection = connections_;
    const auto hasEnded = [&] { return stopping_ || connections_ != connection; };
    arrived_.waitUntil(lock, deadlineUs, [&] { return received_ != consumed_ || hasEnded(); });
    if (received_ == consumed_ || hasEnded()) return false;
    consumed_ = received_;
    observed = observed_;
    isFresh = remoteControlMs_ != 0 &&
              CTime::getCurrentMilliSecond() - remoteControlMs_ <= settings_.staleMs;
    if (isFresh) remoteControl = remoteControl_;
  }
  *out = toMotionRecord(observed);
  if (isFresh) includeRemoteControl(remoteControl, *out);
  return true;
}

// --- commanding ---

bool SimulationLowLevelClientImpl::Impl::mayCommand(const LowLevelMotorRecord* record) {
  if (state_ != lowlevel::kPrepared) return fail(error::kDriveOff);
  if (record == nullptr || record->motorNum - 1 >= kMaxMotors) return fail(error::kInvalidArgument);
  return true;
}

bool SimulationLowLevelClientImpl::Impl::write(const MotionCtrl_& sample) {
  std::shared_ptr<SimulationTransport> transport;
  {
    const Lock lock(mutex_);
    // Once more: another thread may have changed it since mayCommand.
    if (state_ != lowlevel::kPrepared) return fail(error::kDriveOff);
    transport = transport_;
  }
  if (transport == nullptr) return fail(error::kWrongState);
  try {
    transport->control.write(sample);
    return true;
  } catch (const std::exception& failure) {
    writeFailure_.tell(failure);
    return fail(error::kNotDone);
  }
}

}  // namespace orvane::RobotSdk
