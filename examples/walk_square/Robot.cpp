#include "Robot.h"

#include <json/json.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdarg>
#include <cstdio>
#include <sstream>
#include <utility>

namespace walk_square {
namespace {

using namespace std::chrono_literals;
using orvane::RobotSdk::IMotionHighLevelClient;
using orvane::RobotSdk::ObservedMotionRecord;
using orvane::RobotSdk::ObservedOdometry;
using orvane::RobotSdk::ObservedSensorRecord;

constexpr std::uint32_t kRequestMs = 3000;
constexpr std::uint32_t kLeaseMs = 60000;
constexpr std::uint32_t kDaemonSeconds = 10;  // for the shared-memory daemon of a board that boots
constexpr std::uint32_t kConnected = 1;
constexpr std::uint32_t kInControl = 2;
constexpr std::uint32_t kWarning = 3;
constexpr auto kTick = 100ms;  // between two looks at Ctrl-C, and two live lines

Json::Value parsed(const std::string& text) {
  Json::Value document;
  std::istringstream stream(text);
  std::string errors;
  if (!Json::parseFromStream(Json::CharReaderBuilder(), stream, &document, &errors) ||
      !document.isObject()) {
    throw Failure("the robot's answer can't be read: " + errors);
  }
  return document;
}

std::string stringMember(const Json::Value& document, const char* key) {
  const Json::Value& value = document[key];
  return value.isString() ? value.asString() : std::string();
}

void observe(Observations& observations, const ObservedSensorRecord& record) {
  const std::lock_guard<std::mutex> lock(observations.mutex);
  const ObservedOdometry& before = observations.odometry;
  const ObservedOdometry& now = record.odom;
  // A new epoch means that the robot has begun its odometry anew.
  if (observations.sensorSamples > 0 && before.epoch == now.epoch) {
    observations.walked +=
        std::hypot(now.position[0] - before.position[0], now.position[1] - before.position[1]);
  }
  observations.odometry = now;
  ++observations.sensorSamples;
  observations.changed.notify_all();
}

[[gnu::format(printf, 1, 2)]] std::string format(const char* pattern, ...) {
  std::array<char, 200> text{};
  va_list values;
  va_start(values, pattern);
  std::vsnprintf(text.data(), text.size(), pattern, values);
  va_end(values);
  return text.data();
}

}  // namespace

std::string errorText(std::uint32_t code) {
  static constexpr std::array<const char*, 11> kTexts = {
      "no error",
      "the library isn't initialised",
      "control could not be acquired",
      "no answer from the robot",
      "the lease expired",
      "control was revoked or taken by another controller",
      "not connected",
      "not in control",
      "no fresh observed data",
      "the robot refused",
      "bad JSON text",
  };
  const char* text = code < kTexts.size() ? kTexts[code] : "unknown";
  return std::to_string(code) + " (" + text + ")";
}

Robot::Robot(const Options& options, std::shared_ptr<Console> console,
             std::function<bool()> interrupted)
    : options_(options),
      console_(std::move(console)),
      interrupted_(std::move(interrupted)),
      service_(orvane::RobotSdk::IMotionSdkService::instance()) {
  const std::uint32_t least = options_.verbose ? 0 : kWarning;
  service_->attachLoggerCallback(
      [log = console_, least](std::uint32_t level, const char* text, int length) {
        if (level < least) return;
        std::string line(text, static_cast<std::size_t>(length));
        while (!line.empty() && line.back() == '\n') line.pop_back();
        log->warning("  log: " + line);
      });
  service_->attachRobotDiscoverCallback(
      [seen = observations_](const std::string& deviceNo, const std::string&) {
        const std::lock_guard<std::mutex> lock(seen->mutex);
        seen->devices.push_back(deviceNo);
        seen->changed.notify_all();
      });
  if (!options_.interface.empty()) service_->setNetworkInterface(options_.interface.c_str());
  if (!service_->initial(nullptr, "walk_square", kDaemonSeconds)) {
    throw Failure("the library could not be initialised; --verbose shows its log");
  }
  const bool onBoard = !service_->isMultiDevice();
  if (onBoard == options_.board) return;
  service_->shutdown();  // the destructor doesn't run
  throw Failure(onBoard
                    ? "this is a robot board; --board walks its robot"
                    : "this isn't a robot board; tools/board-sandbox runs a command as if on one");
}

Robot::~Robot() {
  if (client_) {
    if (client_->getState() == kInControl) {
      client_->stopMotionAction(kRequestMs);
      client_->releaseMotionControl();
    }
    client_->disconnect();
    client_.reset();
  }
  service_->shutdown();
}

void Robot::find() {
  if (options_.board) {
    device_ = options_.master ? "this board's, as master" : "this board's";
    name_ = "this board's robot";
    return;
  }
  console_->line("Looking for " +
                 (options_.device.empty() ? "a robot" : "robot " + options_.device) + " ...");
  setActivity("looking");
  if (!service_->discoverRobotDevice(options_.timeoutSeconds * 1000)) {
    throw Failure("discovery could not be started; --verbose shows the library's log");
  }
  const bool found = waitUntil(
      [this](const Observations& seen) {
        if (options_.device.empty()) return !seen.devices.empty();
        return std::find(seen.devices.begin(), seen.devices.end(), options_.device) !=
               seen.devices.end();
      },
      std::chrono::seconds(options_.timeoutSeconds));
  if (!found) {
    const std::string wanted = options_.device.empty() ? "no robot" : "robot " + options_.device;
    throw Failure(wanted + (options_.device.empty() ? " answered" : " didn't answer") + " within " +
                  std::to_string(options_.timeoutSeconds) + " s on interface " +
                  (options_.interface.empty() ? "(chosen by DDS)" : options_.interface));
  }
  const std::lock_guard<std::mutex> lock(observations_->mutex);
  device_ = options_.device.empty() ? observations_->devices.front() : options_.device;
  name_ = "robot " + device_;
}

void Robot::connect() {
  console_->line("Connecting to " + name_ + (options_.master ? " as master ..." : " ..."));
  setActivity("connecting");
  client_ = options_.board ? IMotionHighLevelClient::create(options_.master)
                           : IMotionHighLevelClient::create(device_);
  if (!client_) throw Failure("no client could be made for " + name_);
  client_->setConnectCallback([seen = observations_](std::uint32_t state, std::uint32_t code) {
    const std::lock_guard<std::mutex> lock(seen->mutex);
    seen->state = state;
    seen->code = code;
    seen->changed.notify_all();
  });
  client_->setMotionObservedCallback([seen = observations_](const ObservedMotionRecord& record) {
    const std::lock_guard<std::mutex> lock(seen->mutex);
    seen->batteryPercent = record.power.power;
    ++seen->motionSamples;
  });
  client_->setSensorObservedCallback(
      [seen = observations_](const ObservedSensorRecord& record) { observe(*seen, record); });
  demand("connect", [this] { return client_->connect(kLeaseMs); });
  if (options_.board) {  // nobody has answered yet: there was no discovery
    std::string state;
    if (!client_->queryMotionState(&state, kRequestMs)) {
      throw Failure("no robot serves this board: error " + errorText(client_->getLastError()));
    }
  }
  // Both streams of observed state are off until they are asked for.
  request("setMotionObservedEnable", [this] {
    std::string accepted;
    return client_->setMotionObservedEnable(R"({"motionEnable":true,"sensorEnable":true})",
                                            &accepted, kRequestMs);
  });
  const auto bothFlow = [](const Observations& seen) {
    return seen.sensorSamples > 0 && seen.motionSamples > 0;
  };
  if (!waitUntil(bothFlow, 5s)) {
    throw Failure("the robot sent no odometry or no motion state within 5 s");
  }
}

void Robot::takeControl() {
  console_->line("Taking control ...");
  setActivity("taking control");
  demand("takeMotionControl",
         [this] { return client_->takeMotionControl(options_.timeoutSeconds * 1000); });
  // The wish is granted or given up in the background; the connect callback tells which. A request
  // under way at the deadline is waited for.
  const bool decided =
      waitUntil([](const Observations& seen) { return seen.state == kInControl || seen.code != 0; },
                std::chrono::seconds(options_.timeoutSeconds) + 15s);
  {
    const std::lock_guard<std::mutex> lock(observations_->mutex);
    if (!decided || observations_->state != kInControl) {
      throw Failure("control of " + name_ + " was not granted: error " +
                    errorText(observations_->code));
    }
  }
  controls_ = true;
  std::string text;
  request("queryMotionState", [&] { return client_->queryMotionState(&text, kRequestMs); });
  const Json::Value state = parsed(text);
  const Json::Value& control = state["control"];
  if (control.isObject() && control["leaseTimeout"].isUInt()) {
    lease_ = format("%u ms, renewed in the background; controller %s",
                    control["leaseTimeout"].asUInt(), stringMember(control, "controller").c_str());
  }
}

void Robot::stand() {
  console_->line("Standing up ...");
  setActivity("standing up");
  request("standing", [this] { return client_->standing(kRequestMs); });
  waitForPosture("standing", 10s);
}

void Robot::lieDown() {
  console_->line("Lying down ...");
  setActivity("lying down");
  request("laying", [this] { return client_->laying(kRequestMs); });
  waitForPosture("lying", 10s);
}

void Robot::release() {
  console_->line("Giving control back ...");
  controls_ = false;
  demand("releaseMotionControl", [this] { return client_->releaseMotionControl(); });
  if (!waitUntil([](const Observations& seen) { return seen.state == kConnected; }, 5s)) {
    throw Failure("control was not given back within 5 s");
  }
}

void Robot::move(double forward, double left, double turn) {
  request("velocityMove", [&] {
    return client_->velocityMove(static_cast<float>(forward), static_cast<float>(left),
                                 static_cast<float>(turn), kRequestMs);
  });
}

void Robot::stop() {
  request("stopMotionAction", [this] { return client_->stopMotionAction(kRequestMs); });
}

Pose Robot::pose() const {
  const std::lock_guard<std::mutex> lock(observations_->mutex);
  const ObservedOdometry& odometry = observations_->odometry;
  return {odometry.position[0], odometry.position[1], odometry.yaw};
}

void Robot::waitForOdometry() {
  // 10 commands a second: the robot stops when none comes for a second.
  std::uint64_t before = 0;
  {
    const std::lock_guard<std::mutex> lock(observations_->mutex);
    before = observations_->sensorSamples;
  }
  if (!waitUntil([&](const Observations& seen) { return seen.sensorSamples >= before + 5; }, 5s)) {
    throw Failure("the robot's odometry has stopped arriving");
  }
  showLive();
}

void Robot::demand(const char* name, const std::function<bool()>& call) {
  if (interrupted_()) throw Interrupted();
  checkStillInControl();
  if (call()) return;
  throw Failure(std::string(name) + " failed: error " + errorText(client_->getLastError()));
}

void Robot::request(const char* name, const std::function<bool()>& call) {
  demand(name, [&] {
    const auto begun = Clock::now();
    const bool done = call();
    requestMs_.push_back(std::chrono::duration<double, std::milli>(Clock::now() - begun).count());
    return done;
  });
}

bool Robot::waitUntil(const std::function<bool(const Observations&)>& met, Clock::duration limit) {
  const auto deadline = Clock::now() + limit;
  while (true) {
    {
      std::unique_lock<std::mutex> lock(observations_->mutex);
      const auto tick = std::min<Clock::time_point>(deadline, Clock::now() + kTick);
      if (observations_->changed.wait_until(lock, tick, [&] { return met(*observations_); })) {
        return true;
      }
    }
    if (interrupted_()) throw Interrupted();
    if (Clock::now() >= deadline) return false;
    checkStillInControl();
    showLive();
  }
}

void Robot::waitForPosture(const std::string& posture, Clock::duration limit) {
  const auto deadline = Clock::now() + limit;
  std::string last;
  while (Clock::now() < deadline) {
    std::string text;
    request("queryMotionState", [&] { return client_->queryMotionState(&text, kRequestMs); });
    last = stringMember(parsed(text), "posture");
    if (last == posture) return;
    waitUntil([](const Observations&) { return false; }, 200ms);
  }
  throw Failure("the robot isn't " + posture + " but " + last);
}

void Robot::checkStillInControl() const {
  if (!controls_) return;
  const std::lock_guard<std::mutex> lock(observations_->mutex);
  if (observations_->state != kInControl) {
    throw Failure("control of the robot was lost: error " + errorText(observations_->code));
  }
}

void Robot::showLive() {
  std::string text;
  {
    const std::lock_guard<std::mutex> lock(observations_->mutex);
    if (observations_->sensorSamples == 0) return;
    const ObservedOdometry& odometry = observations_->odometry;
    text =
        format("  %-14s x %+5.2f m  y %+5.2f m  yaw %+4.0f deg  walked %5.2f m  battery %3.0f %%",
               activity_.c_str(), static_cast<double>(odometry.position[0]),
               static_cast<double>(odometry.position[1]),
               static_cast<double>(odometry.yaw) * 180 / 3.14159265358979323846,
               observations_->walked, static_cast<double>(observations_->batteryPercent));
  }
  console_->live(text);
}

void Robot::printTable() const {
  std::vector<double> times = requestMs_;
  std::sort(times.begin(), times.end());
  const std::lock_guard<std::mutex> lock(observations_->mutex);
  console_->line("");
  console_->line("device           " + device_);
  console_->line("lease            " + lease_);
  console_->line(format("walked           %.2f m by odometry", observations_->walked));
  console_->line(format("samples          %llu motion, %llu sensor",
                        static_cast<unsigned long long>(observations_->motionSamples),
                        static_cast<unsigned long long>(observations_->sensorSamples)));
  console_->line(format("request times    min %.2f ms, median %.2f ms, max %.2f ms (%zu requests)",
                        times.front(), times[times.size() / 2], times.back(), times.size()));
}

}  // namespace walk_square
