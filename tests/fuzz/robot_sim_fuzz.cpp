// What clients on other machines and game pads send to the virtual robot. The first line says what
// the rest is:
//
//   script     a game pad's script
//   events     events of a joystick device, 8 bytes each
//   commands   motor commands: writer, milliseconds that pass, count, then each motor's limb and
//              joint (a byte each) and its five figures (floats)

#include <algorithm>
#include <cmath>
#include <cstring>
#include <memory>
#include <span>
#include <variant>

#include "EventOutbox.h"
#include "FuzzSupport.h"
#include "RobotCore.h"
#include "body/JointModel.h"
#include "body/KinematicBody.h"
#include "gamepad/JoystickDecoder.h"
#include "gamepad/PadScript.h"

namespace {

using namespace orvane::robot;

constexpr std::size_t kMostCommands = 64;

void checkPad(const PadState& state) {
  for (const PadButton& button : kPadButtons) {
    fuzz::require(state.*button.member <= 1, "a button is pressed or not");
  }
  for (const PadAxis& axis : kPadAxes) {
    const float value = state.*axis.member;
    fuzz::require(value >= axis.lower && value <= 1, "an axis stays within its range");
  }
}

void checkScript(std::string_view text) {
  auto parsed = PadScript::parse(text);
  if (const auto* const error = std::get_if<std::string>(&parsed)) {
    fuzz::require(!error->empty() && error->size() < 300 &&
                      std::all_of(error->begin(), error->end(), [](char c) { return c >= ' '; }),
                  "an error is a short text that can be shown", *error);
    return;
  }
  // However often it is looked at, it is the same at the same time.
  auto& often = std::get<PadScript>(parsed);
  PadScript seldom = often;
  std::uint64_t ms = 0;
  for (const std::uint64_t pass : {0, 1, 3, 20, 100, 1000, 50'000, 90'000'000}) {
    PadState first{};
    PadState second{};
    static_cast<void>(often.at(ms + pass / 3, first));
    static_cast<void>(often.at(ms + pass / 2, first));
    ms += pass;
    const bool plays = often.at(ms, first);
    fuzz::require(plays == seldom.at(ms, second), "a script has one end");
    if (!plays) return;
    fuzz::require(std::memcmp(&first, &second, sizeof(first)) == 0, "a script plays by the clock");
    checkPad(first);
  }
}

void checkEvents(std::string_view text) {
  const auto bytes = std::as_bytes(std::span(text));
  JoystickDecoder whole;
  whole.feed(bytes);
  JoystickDecoder cut;
  for (std::size_t at = 0; at < bytes.size(); at += 3) {
    cut.feed(bytes.subspan(at, std::min<std::size_t>(3, bytes.size() - at)));
    checkPad(cut.state());
  }
  fuzz::require(std::memcmp(&whole.state(), &cut.state(), sizeof(PadState)) == 0,
                "it doesn't matter how events are cut");
}

/// Takes a value off the front; what is missing is zero.
template <class T>
T takeValue(std::string_view& bytes) {
  T value{};
  const std::size_t size = std::min(sizeof(T), bytes.size());
  std::memcpy(&value, bytes.data(), size);
  bytes.remove_prefix(size);
  return value;
}

orvane::msg::dds_::MotionCtrl_ takeCommand(std::string_view& bytes) {
  orvane::msg::dds_::MotionCtrl_ command{};
  command.motorNum = takeValue<std::uint8_t>(bytes);
  for (std::size_t i = 0; i < std::min<std::size_t>(command.motorNum, std::size(command.motor));
       ++i) {
    auto& motor = command.motor[i];
    motor.header.limbsNo = takeValue<std::uint8_t>(bytes);
    motor.header.jointNo = takeValue<std::uint8_t>(bytes);
    for (float* const figure :
         {&motor.position, &motor.velocity, &motor.kpGain, &motor.kdGain, &motor.torque}) {
      *figure = takeValue<float>(bytes);
    }
  }
  return command;
}

void checkBody(const BodyState& body) {
  for (std::size_t i = 0; i < kJoints; ++i) {
    const JointState& joint = body.joints[i];
    const JointLimit& range = kJointLimits[i % kJointsPerLeg];
    fuzz::require(joint.position >= range.lower && joint.position <= range.upper &&
                      std::abs(joint.velocity) <= kMaxJointSpeed * 1.001 &&
                      std::abs(joint.torque) <= range.maxTorque,
                  "a joint keeps to its limits");
  }
}

void checkCommands(std::string_view bytes) {
  RobotCore core(std::make_unique<KinematicBody>(), std::make_shared<EventOutbox>("VR-7"));
  RecordCounts seen;
  for (std::size_t i = 0; i < kMostCommands && !bytes.empty(); ++i) {
    const std::uint64_t writer = takeValue<std::uint8_t>(bytes);
    const auto pass = takeValue<std::uint8_t>(bytes);
    {
      RobotCore::Access robot = core.access();
      const RecordFate fate = robot.take(takeCommand(bytes), writer);
      fuzz::require(fate != RecordFate::kTaken || robot.hold().heldBy(writer),
                    "whoever commands has the motors");
      const RecordCounts& now = robot.hold().counts();
      fuzz::require(now.commands + now.refused == seen.commands + seen.refused + 1,
                    "each command is counted once");
      seen = now;
    }
    for (std::uint32_t ms = 0; ms < pass; ms += 2) {
      fuzz::virtualClock().advance(2);
      RobotCore::Access robot = core.access();
      robot.step(0.002);
      if (robot.hold().held()) checkBody(robot.body());
    }
  }
  fuzz::virtualClock().advance(MotorControl::kSilenceMs);
  fuzz::require(!core.access().hold().held(), "silence frees the robot");
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
  return fuzz::startOnVirtualClock();
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  std::string_view input = fuzz::textOf(data, size);
  const std::string_view what = fuzz::takeUntil(input, '\n');
  if (what == "script") checkScript(input);
  if (what == "events") checkEvents(input);
  if (what == "commands") checkCommands(input);
  return 0;
}
