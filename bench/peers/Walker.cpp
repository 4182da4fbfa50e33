#include "peers/Walker.h"

#include <functional>
#include <stdexcept>
#include <string>

#include "harness/Clock.h"

namespace bench {
namespace {

using orvane::RobotSdk::ObservedMotionRecord;
using orvane::RobotSdk::ObservedSensorRecord;

constexpr std::int64_t kNsPerMs = 1'000'000;
constexpr std::int64_t kTickNs = 100 * kNsPerMs;
constexpr std::uint32_t kInControl = 2;
constexpr std::uint32_t kControlMs = 15'000;
constexpr std::uint32_t kStandMs = 20'000;

void await(const char* what, std::uint32_t limitMs, const std::function<bool()>& met) {
  const std::int64_t deadline = nowNs() + limitMs * kNsPerMs;
  while (!met()) {
    if (nowNs() > deadline) throw std::runtime_error(std::string("the robot doesn't ") + what);
    sleepUntilNs(nowNs() + kTickNs / 2);
  }
}

}  // namespace

Walker::Walker(const Json::Value& arguments)
    : client_(SdkSession::client(arguments["device"].asString())) {
  client_->setMotionObservedCallback([this](const ObservedMotionRecord&) { ++samples_; });
  client_->setSensorObservedCallback([](const ObservedSensorRecord&) {});
  SdkSession::connect(*client_);
  SdkSession::observe(*client_, true);
  takeControl();
  standUp();
}

Walker::~Walker() {
  client_->disconnect();
}

void Walker::takeControl() {
  if (!client_->takeMotionControl(kControlMs)) throw std::runtime_error("control isn't wanted");
  await("give control", kControlMs, [this] { return client_->getState() == kInControl; });
}

void Walker::standUp() {
  if (!client_->standing(kRequestMs)) throw std::runtime_error("the robot refuses to stand up");
  await("stand up", kStandMs, [this] {
    std::string state;
    return client_->queryMotionState(&state, kRequestMs) &&
           state.find("\"standing\"") != std::string::npos;
  });
}

Json::Value Walker::handle(const Json::Value& command) {
  const bool walks = command["do"] == "walk";
  if (!walks && command["do"] != "stand") throw std::runtime_error("unknown command");
  const std::uint32_t before = samples_;
  const std::int64_t end = nowNs() + command["ms"].asInt64() * kNsPerMs;
  for (std::int64_t tick = nowNs(); tick < end; tick += kTickNs) {
    sleepUntilNs(tick);
    if (walks && !client_->velocityMove(0.3F, 0, 0.3F, kRequestMs)) {
      throw std::runtime_error("the robot doesn't walk");
    }
  }
  sleepUntilNs(end);
  Json::Value answer(Json::objectValue);
  answer["samples"] = samples_ - before;
  return answer;
}

}  // namespace bench
