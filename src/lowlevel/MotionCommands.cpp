#include "lowlevel/MotionCommands.h"

#include <cstring>

#include "log/Log.h"
#include "pbase/CTime.h"
#include "pbase/RTAbsSleep.h"
#include "shm/MotionRecords.h"

namespace orvane::RobotSdk::lowlevel {
namespace {

using Pexal::PBase::CTime;
using Robot::Motion::ShareLowLevelMotionCtrlData;

constexpr int kRetries = 5;
constexpr std::uint64_t kLogPauseMs = 1000;
constexpr std::uint32_t kLongestPauseNs = 100'000;
constexpr std::uint32_t kUsPerMs = 1000;
constexpr std::uint8_t kNoTrailer = 0xFF;  // in each of the first four bytes

constexpr char kNoSession[] = "state not connected/no session";
constexpr char kLeftState[] = "sdk not connected (state not in connected/prepared)";

ShareLowLevelMotionCtrlData recordOf(std::uint32_t kind, std::uint64_t sessionId,
                                     std::uint64_t seq) {
  ShareLowLevelMotionCtrlData record{};
  record.kind = kind;
  record.sessionId = sessionId;
  record.seq = seq;
  std::memset(record.trailer.bytes, kNoTrailer, 4);
  return record;
}

/// True for one caller a second.
bool mayLog(std::atomic<std::uint64_t>& lastMs) {
  std::uint64_t last = lastMs.load();  // before the clock, which is never behind it then
  const std::uint64_t now = CTime::getCurrentMilliSecond();
  return now - last >= kLogPauseMs && lastMs.compare_exchange_strong(last, now);
}

unsigned long long printable(std::uint64_t number) {
  return number;
}

}  // namespace

/// What sets one kind of send apart from another.
struct MotionCommands::Order {
  std::uint32_t kind;
  bool isTimed;
  const LowLevelTrailer* trailer;
  const char* failure;
};

struct MotionCommands::Wait {
  const char* timeoutReason;
  std::uint32_t lengthUs;
};

// --- sending ---

bool MotionCommands::publishMotorAction(const LowLevelMotorRecord* motors,
                                        const LowLevelTrailer* trailer) {
  using namespace Robot::Motion;
  const auto kind = trailer == nullptr ? kMotorCommand : kMotorCommandWithTrailer;
  return send(motors, {kind, false, trailer, "shm publish motor action failed"});
}

bool MotionCommands::publishMaxTorque(const LowLevelMotorRecord* motors) {
  return send(motors, {Robot::Motion::kMaxTorque, true, nullptr, "shm publish max torque failed"});
}

bool MotionCommands::send(const LowLevelMotorRecord* motors, const Order& order) {
  const std::uint64_t sessionId = status_.sessionId();
  const State state = status_.state();
  if (state != kPrepared || sessionId == 0) {
    return state == kConnected ? refuse(error::kDriveOff, "state=kConnected (need kPrepared)")
                               : refuse(error::kWrongState, kNoSession);
  }
  if (motors == nullptr || motors->motorNum - 1 >= kMaxMotors) {
    return refuse(error::kInvalidArgument, "invalid motorNum");
  }
  const char* const reason = write(*motors, order, sessionId);
  return reason == nullptr || rejectSend(reason);
}

const char* MotionCommands::write(const LowLevelMotorRecord& motors, const Order& order,
                                  std::uint64_t sessionId) {
  const SendGate::Attempt gate(channels_.gate());
  if (!gate.holds()) return failed(error::kWrongState, "gate busy (concurrent send or cleanup)");
  auto* const writer = channels_.writer();
  if (writer == nullptr) return failed(error::kWrongState, "ctrl writer null");
  // Nothing that was meant for one session is sent, or counted, in the next.
  if (status_.sessionId() != sessionId) return failed(error::kWrongState, kNoSession);
  ShareLowLevelMotionCtrlData record = recordOf(order.kind, sessionId, status_.nextSeq());
  record.motors = motors;
  if (order.isTimed) record.timestampUs = CTime::getCurrentMicroSecond();
  if (order.trailer != nullptr) record.trailer = *order.trailer;
  return writer->write(record, kRetries) ? nullptr : order.failure;
}

bool MotionCommands::publishStoppedCmd(std::uint64_t sessionId) {
  const char* const reason = writeStop(sessionId);
  return reason == nullptr || rejectSend(reason);
}

const char* MotionCommands::writeStop(std::uint64_t sessionId) {
  const SendGate::Attempt gate(channels_.gate());
  // The worker alone changes the writer, and the worker is who calls this.
  auto* const writer = channels_.writer();
  if (sessionId == 0 || writer == nullptr) {
    return "publish stopped cmd rejected: ctrl writer null or session invalid";
  }
  if (!gate.holds()) return "publish stopped cmd rejected: gate busy";
  const auto record =
      recordOf(Robot::Motion::kMotorCommandWithTrailer, sessionId, status_.nextSeq());
  return writer->write(record, kRetries) ? nullptr : "publish stopped cmd failed";
}

const char* MotionCommands::failed(std::uint32_t code, const char* reason) {
  status_.fail(code);
  return reason;
}

bool MotionCommands::refuse(std::uint32_t code, const char* reason) {
  status_.fail(code);
  return rejectSend(reason);
}

bool MotionCommands::rejectSend(const char* reason) {
  if (mayLog(lastRejectLogMs_)) {
    MOTION_LOG(kUnit, level::kWarning, " local low level sendControl reject: %s, lastError=%d",
               reason, static_cast<int>(status_.lastError()));
  }
  return false;
}

// --- waiting ---

bool MotionCommands::requireObserved(ObservedMotionRecord* out, std::uint32_t timeoutMs) {
  if (out == nullptr) {
    status_.fail(error::kInvalidArgument);
    return false;
  }
  // The record's field wraps, and the wait is as long.
  const Wait wait{"wait obs SHM timeout (server didn't write)", timeoutMs * kUsPerMs};
  const char* refusal = nullptr;
  const char* failure = nullptr;
  {
    const bool isConnected = status_.isConnected();
    const SendGate::Attempt gate(channels_.gate());
    if (!isConnected || !gate.holds()) {
      status_.fail(error::kWrongState);
      return false;
    }
    std::uint64_t base = 0;
    refusal = writeRequest(wait.lengthUs, base);
    if (refusal == nullptr) failure = awaitNewer(wait, *channels_.observed(), base, out);
  }
  if (refusal != nullptr) return rejectObserved(refusal);
  return failure == nullptr || rejectWait("observed", failure);
}

/// Also gives the number of the newest record before it.
const char* MotionCommands::writeRequest(std::uint32_t waitUs, std::uint64_t& base) {
  auto* const reader = channels_.observed();
  auto* const writer = channels_.writer();
  if (reader == nullptr || writer == nullptr) {
    return failed(error::kWrongState, "writer or reader null");
  }
  auto record = recordOf(Robot::Motion::kRequireObserved, status_.sessionId(), status_.nextSeq());
  record.waitUs = waitUs;
  record.timestampUs = CTime::getCurrentMicroSecond();
  base = reader->latestSeq();
  if (writer->write(record, kRetries)) return nullptr;
  return failed(error::kWrongState, "publish quire-obs failed");
}

bool MotionCommands::requireSensor(ObservedSensorRecord* out, std::uint32_t timeoutUs) {
  // Asked first: what is called when the state has left doesn't hold up the closing of the reader.
  if (out == nullptr || !status_.isConnected()) {
    status_.fail(error::kWrongState);
    return false;
  }
  const char* failure = nullptr;
  {
    const MotionChannels::SensorUse sensor(channels_);
    if (sensor.reader() == nullptr) {
      status_.fail(error::kWrongState);
      return false;
    }
    failure = awaitNewer({"wait sensor timeout (server didn't write)", timeoutUs}, *sensor.reader(),
                         sensor.reader()->latestSeq(), out);
  }
  return failure == nullptr || rejectWait("sensor", failure);
}

/// Looks for a record beyond number `base`, at least twice.
template <class Record>
const char* MotionCommands::awaitNewer(const Wait& wait, MotionChannels::Reader& reader,
                                       std::uint64_t base, Record* out) {
  const auto arrived = [&] {
    std::uint64_t seq = 0;
    return reader.latestSeq() > base && reader.get(out, seq) && seq > base;
  };
  const std::uint64_t deadline = CTime::getCurrentMicroSecond() + wait.lengthUs;
  Pexal::PBase::RTAbsSleep pause;
  do {
    if (arrived()) return nullptr;
    pause.manualBackoff(kLongestPauseNs);
    if (!status_.isConnected()) return failed(error::kWrongState, kLeftState);
  } while (CTime::getCurrentMicroSecond() < deadline);
  return arrived() ? nullptr : failed(error::kNotDone, wait.timeoutReason);
}

bool MotionCommands::rejectWait(const char* what, const char* reason) {
  MOTION_LOG(kUnit, level::kWarning, " local low level require %s reject: %s, sessionId=%llu", what,
             reason, printable(status_.sessionId()));
  return false;
}

bool MotionCommands::rejectObserved(const char* reason) {
  if (mayLog(lastObservedRejectLogMs_)) {
    MOTION_LOG(kUnit, level::kWarning,
               " local low level require observed reject: %s, sessionId=%llu", reason,
               printable(status_.sessionId()));
  }
  return false;
}

}  // namespace orvane::RobotSdk::lowlevel
