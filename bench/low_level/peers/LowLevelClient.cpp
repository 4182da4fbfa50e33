#include "low_level/peers/LowLevelClient.h"

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <stdexcept>
#include <string>

#include "harness/Clock.h"
#include "pbase/CThread.h"

namespace bench {
namespace {

using namespace orvane::RobotSdk;

constexpr std::int64_t kNsPerSecond = 1'000'000'000;
constexpr std::int64_t kPreparedNs = 20 * kNsPerSecond;
constexpr std::uint32_t kDaemonSeconds = 10;
constexpr std::uint32_t kPrepared = 3;
constexpr std::uint32_t kRefusals = 3;
constexpr std::uint32_t kMotors = 12;
constexpr std::uint32_t kAnswerMs = 100;
constexpr std::uint32_t kPassMs = 5;
constexpr float kStiffness = 60;  // N m/rad
constexpr float kDamping = 2;     // N m s/rad

void awaitPrepared(LowLevelSession::Client& client) {
  const std::int64_t deadline = nowNs() + kPreparedNs;
  while (client.getState() != kPrepared) {
    if (nowNs() > deadline) {
      throw std::runtime_error("state " + std::to_string(client.getState()) + ", error " +
                               std::to_string(client.getLastError()) + " instead of prepared");
    }
    Pexal::PBase::CThread::sleep(1);
    client.setSessionFlag(true);
  }
}

}  // namespace

LowLevelSession::LowLevelSession(const Json::Value& arguments) {
  IMotionSdkService& service = *IMotionSdkService::instance();
  service.attachLoggerCallback([](std::uint32_t level, const char* text, int length) {
    if (level >= kRefusals) std::fprintf(stderr, "%.*s", length, text);
  });
  if (!service.initial(nullptr, "bench", kDaemonSeconds)) {
    throw std::runtime_error("the service doesn't start; is this a board?");
  }
  client_ = Client::create();
  if (client_ == nullptr || !client_->connect(arguments.get("observedHz", 500).asUInt(), 0)) {
    throw std::runtime_error("no low-level client");
  }
  awaitPrepared(*client_);
}

LowLevelSession::~LowLevelSession() {
  if (client_ != nullptr) client_->disconnect();
  client_.reset();
  IMotionSdkService::instance()->shutdown();
}

void CommandStamp::putInto(LowLevelMotorRecord& motors) const noexcept {
  static_assert(sizeof(CommandStamp) <= sizeof(LowLevelMotor));
  std::memcpy(static_cast<void*>(&motors.motor[kMaxMotors - 1]), this, sizeof *this);
}

CommandStamp CommandStamp::of(const LowLevelMotorRecord& motors) noexcept {
  CommandStamp stamp;
  std::memcpy(static_cast<void*>(&stamp), &motors.motor[kMaxMotors - 1], sizeof stamp);
  return stamp;
}

LowLevelClient::LowLevelClient(const Json::Value& arguments)
    : session_(arguments), client_(session_.client()) {
  motors_.motorNum = kMotors;
}

bool LowLevelClient::write(const Message& message) noexcept {
  CommandStamp{message.sentNs, message.kind}.putInto(motors_);
  return client_.publishMotorAction(&motors_, nullptr);
}

bool LowLevelClient::ask(std::int64_t& writtenNs) noexcept {
  if (!client_.requireObserved(&seen_, kAnswerMs)) return false;
  writtenNs = stampOf(seen_);
  return true;
}

JointHolder::JointHolder(const Json::Value& arguments)
    : session_(arguments), client_(session_.client()) {
  if (!client_.requireObserved(&seen_, kAnswerMs)) throw std::runtime_error("no observed record");
  motors_.motorNum = static_cast<std::uint32_t>(std::clamp(+seen_.motorNum, 0, 16));
  for (std::uint32_t i = 0; i < motors_.motorNum; ++i) {
    const ObservedMotor seen = seen_.motor[i];
    motors_.motor[i] = {seen.position, 0, kStiffness, kDamping, 0, seen.limbsNo, seen.jointNo};
  }
}

Json::Value JointHolder::handle(const Json::Value& command) {
  Json::Value answer = LoopRole::handle(command);
  answer["unanswered"] = unanswered_;
  answer["refused"] = refused_;
  return answer;
}

void JointHolder::pass() noexcept {
  if (!client_.requireObserved(&seen_, kPassMs)) ++unanswered_;
  if (!client_.publishMotorAction(&motors_, nullptr)) ++refused_;
}

}  // namespace bench
