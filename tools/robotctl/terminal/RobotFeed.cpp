#include "terminal/RobotFeed.h"

#include <algorithm>
#include <chrono>
#include <sstream>
#include <utility>

#include "core/Documents.h"
#include "core/Errors.h"
#include "core/Failure.h"
#include "core/Text.h"
#include "terminal/Clock.h"

namespace robotctl {
namespace {

constexpr std::uint32_t kAnswerMs = 1000;
constexpr auto kBetweenQuestions = std::chrono::milliseconds(500);
constexpr std::size_t kMostHappenings = 200;
constexpr std::size_t kLongestText = 400;

/// A document as one line: "posture standing  previous standingUp"; a "type" comes first.
std::string oneLine(const Json::Value& detail) {
  if (detail.isString()) return detail.asString();
  if (!detail.isObject()) {
    Json::StreamWriterBuilder writer;
    writer["indentation"] = "";
    return detail.isNull() ? "" : Json::writeString(writer, detail);
  }
  const std::string type = textAt(detail, "type");
  std::string line = detail.isMember(type) ? "" : type;
  for (const std::string& name : detail.getMemberNames()) {
    if (name == "type" && detail[name].isString()) continue;
    line += (line.empty() ? "" : "  ") + name + " " + oneLine(detail[name]);
  }
  return line;
}

std::string readable(const std::string& detail) {
  Json::Value document;
  std::istringstream stream(detail);
  try {
    if (Json::parseFromStream(Json::CharReaderBuilder(), stream, &document, nullptr)) {
      return shortened(printable(oneLine(document)), kLongestText);
    }
  } catch (const Json::Exception&) {  // nested too deeply
  }
  return shortened(printable(detail), kLongestText);
}

/// "host.event" of "robotServer.host.event".
std::string shortTopic(const std::string& topic) {
  const std::size_t dot = topic.find('.');
  return printable(dot == std::string::npos ? topic : topic.substr(dot + 1));
}

std::string stateChange(Robot::State state) {
  if (state.second != 0) return "lost: " + errorText(state.second);
  return state.first == 2 ? "this program holds it" : "given back";
}

}  // namespace

struct RobotFeed::Shared {
  bool tellRefusals = true;        // set before any thread
  std::mutex mutex;                // guards everything below
  std::condition_variable wanted;  // askAt was brought forward, or ending
  bool ending = false;
  std::chrono::steady_clock::time_point askAt;
  RobotModel model;
  RateMeter motion, sensor;
  std::uint64_t happened = 0;

  void note(const std::string& topic, const std::string& text, bool bad) {
    model.happenings.push_back({++happened, monotonicMs(), clockNow(), topic, text, bad});
    if (model.happenings.size() > kMostHappenings) model.happenings.pop_front();
  }
  void noteDifferences(const Json::Value& before, const Json::Value& now);
};

/// Control and refusals are told by the state alone.
void RobotFeed::Shared::noteDifferences(const Json::Value& before, const Json::Value& now) {
  if (before.isNull()) return;
  const auto holder = [](const Json::Value& state) {
    return std::pair(textAt(state, "control.holder"), textAt(state, "control.controller"));
  };
  if (holder(before) != holder(now)) {
    const std::string name = holder(now).first;
    note("control", name.empty() ? "nobody has it now" : name + " has it now", false);
  }
  if (tellRefusals && numberAt(before, "lastRefusal.atMs") != numberAt(now, "lastRefusal.atMs") &&
      numberAt(now, "lastRefusal.atMs")) {
    note("refused", textAt(now, "lastRefusal.method") + ": " + textAt(now, "lastRefusal.reason"),
         true);
  }
}

RobotFeed::RobotFeed(Refusals refusals) : shared_(std::make_shared<Shared>()) {
  shared_->tellRefusals = refusals == Refusals::kTold;
}

RobotFeed::~RobotFeed() {
  stop();
}

RobotCallbacks RobotFeed::callbacks() const {
  RobotCallbacks callbacks;
  callbacks.state = [shared = shared_](std::uint32_t state, std::uint32_t code) {
    const std::lock_guard lock(shared->mutex);
    ++shared->model.controlReports;
    shared->note("control", stateChange({state, code}), code != 0);
  };
  callbacks.event = [shared = shared_](const std::string& topic, const std::string& detail) {
    const std::string text = readable(detail);
    const std::lock_guard lock(shared->mutex);
    shared->note(shortTopic(topic), text, false);
  };
  callbacks.motion = [shared = shared_](const orvane::RobotSdk::ObservedMotionRecord& record) {
    const std::lock_guard lock(shared->mutex);
    shared->motion.count();
    shared->model.motion = record;
    shared->model.motionMs = monotonicMs();
  };
  callbacks.sensor = [shared = shared_](const orvane::RobotSdk::ObservedSensorRecord& record) {
    const std::lock_guard lock(shared->mutex);
    shared->sensor.count();
    shared->model.sensor = record;
    shared->model.sensorMs = monotonicMs();
    shared->model.path.add(record.odom);
  };
  return callbacks;
}

void RobotFeed::start(Robot& robot) {
  std::vector<std::string> names;
  try {
    const orvane::RobotSdk::MotorLayout layout = robot.motorLayout();
    const std::uint32_t motors = std::min(layout.motorNum, orvane::RobotSdk::kMaxMotors);
    for (std::uint32_t motor = 0; motor < motors; ++motor) {
      names.push_back(printable(layout.motors[motor].name));
    }
  } catch (const Failure& failure) {  // numbers serve as well
    note("link", failure.what(), true);
  }
  robot.enableStreams(true, true);
  {
    const std::lock_guard lock(shared_->mutex);
    shared_->model.name = robot.name();
    shared_->model.interface = robot.context().options.interface;
    shared_->model.jointNames = std::move(names);
    shared_->model.answers = true;
    shared_->model.stateMs = monotonicMs();
  }
  asking_ = std::thread([this, client = &robot.client()] { ask(*client); });
}

void RobotFeed::stop() {
  {
    const std::lock_guard lock(shared_->mutex);
    shared_->ending = true;
    shared_->wanted.notify_all();
  }
  if (asking_.joinable()) asking_.join();
}

void RobotFeed::askNow() {
  const std::lock_guard lock(shared_->mutex);
  shared_->askAt = {};
  shared_->wanted.notify_all();
}

void RobotFeed::note(const std::string& topic, const std::string& text, bool bad) {
  const std::lock_guard lock(shared_->mutex);
  shared_->note(topic, text, bad);
}

RobotModel RobotFeed::snapshot() {
  const std::lock_guard lock(shared_->mutex);
  RobotModel& model = shared_->model;
  model.nowMs = monotonicMs();
  model.clock = clockNow();
  model.motionHz = shared_->motion.perSecond(model.nowMs);
  model.sensorHz = shared_->sensor.perSecond(model.nowMs);
  return model;
}

void RobotFeed::ask(Robot::Client& client) {
  std::unique_lock lock(shared_->mutex);
  bool enabled = true;
  while (!shared_->ending) {
    lock.unlock();
    std::string text;
    Json::Value state;
    bool answered = client.queryMotionState(&text, kAnswerMs);
    try {
      if (answered) state = parseObject(text, "motion state");
    } catch (const Failure&) {
      answered = false;
    }
    // A robot that was away may be another one now, which streams to those who ask it.
    if (answered && !enabled) {
      std::string accepted;
      enabled = client.setMotionObservedEnable(R"({"motionEnable":true,"sensorEnable":true})",
                                               &accepted, kAnswerMs);
    }
    lock.lock();
    RobotModel& model = shared_->model;
    if (answered != model.answers) {
      shared_->note("link", answered ? "the robot answers again" : "the robot doesn't answer",
                    !answered);
    }
    model.answers = answered;
    if (answered) {
      shared_->noteDifferences(model.state, state);
      model.state = std::move(state);
      model.stateMs = monotonicMs();
    } else {
      enabled = false;
    }
    shared_->askAt = std::chrono::steady_clock::now() + kBetweenQuestions;
    while (!shared_->ending && std::chrono::steady_clock::now() < shared_->askAt) {
      shared_->wanted.wait_until(lock, shared_->askAt);
    }
  }
}

}  // namespace robotctl
