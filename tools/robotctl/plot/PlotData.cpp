#include "plot/PlotData.h"

#include <json/json.h>

#include <algorithm>
#include <array>
#include <limits>
#include <optional>
#include <utility>

#include "core/Documents.h"
#include "core/Failure.h"
#include "core/Text.h"
#include "orvane/RobotSdk/Records.h"
#include "record/Channels.h"
#include "record/RecordCodec.h"

namespace robotctl {
namespace {

using namespace orvane::RobotSdk;

constexpr std::size_t kMostEpisodes = 2000;
constexpr std::size_t kMostEpisodeBytes = 128;  // of its name
constexpr std::size_t kMostEvents = 2000;
constexpr std::size_t kMostDocumentBytes = 1U << 20;
constexpr double kPathGap = 2;     // seconds without odometry that interrupt the path
constexpr double kEpisodeGap = 5;  // seconds without a state after which nothing is known

constexpr std::array<const char*, 4> kLimbs = {"front left", "front right", "rear left",
                                               "rear right"};
constexpr std::array<const char*, 3> kJoints = {"hip", "thigh", "calf"};

template <std::size_t kCount>
std::string nameOf(const std::array<const char*, kCount>& names, std::size_t number,
                   const char* kind) {
  return number < kCount ? names[number] : kind + (" " + std::to_string(number));
}

std::vector<Curve> curves(TimeSpan span, std::initializer_list<const char*> names) {
  std::vector<Curve> made;
  for (const char* name : names) made.emplace_back(name, span, kCurveColumns);
  return made;
}

/// The kind of a channel, when it is one of ours with the very same message definition.
std::optional<ChannelNumber> kindOfChannel(const mcap::Channel& channel) {
  static const std::string motion = codec::motionDefinition();
  static const std::string sensor = codec::sensorDefinition();
  for (std::size_t at = 0; at < kChannels; ++at) {
    const ChannelKind& kind = kChannelKinds[at];
    if (channel.schema->name != kind.schemaName || channel.encoding != kind.encoding) continue;
    const auto number = static_cast<ChannelNumber>(at);
    if (number == ChannelNumber::kMotion && channel.schema->data != motion) continue;
    if (number == ChannelNumber::kSensor && channel.schema->data != sensor) continue;
    return number;
  }
  return std::nullopt;
}

/// Who controls the robot, in a motion state; "" when nobody does.
std::string holderIn(const Json::Value& document) {
  if (flagAt(document, "control.controlled")) {
    const std::string holder = textAt(document, "control.holder");
    return holder.empty() ? "somebody" : holder;
  }
  if (flagAt(document, "lowLevel.active")) {
    return "motor by motor: " + textAt(document, "lowLevel.holder");
  }
  return flagAt(document, "simulation.active") ? "motor by motor: a simulation client" : "";
}

/// Puts what a recording says into the data, message by message.
class Collector {
 public:
  explicit Collector(PlotData& data) : data_(data) {}

  void take(const mcap::Message& message) {
    const auto kind = kindOf(message.channel);
    if (!kind) return;
    time_ = static_cast<double>(static_cast<std::int64_t>(message.timeNs - data_.startNs)) * 1e-9;
    const bool read = *kind == ChannelNumber::kMotion   ? takeMotion(message.data)
                      : *kind == ChannelNumber::kSensor ? takeSensor(message.data)
                                                        : takeNote(*kind, message.data);
    if (!read) ++data_.unreadable;
  }

  /// What still lasted when the recording ended.
  void end() {
    if (silentSince_) data_.silences.push_back({*silentSince_, data_.span.end, "no answer"});
  }

 private:
  std::optional<ChannelNumber> kindOf(const mcap::Channel& channel) {
    const auto known = kinds_.find(channel.id);
    if (known != kinds_.end()) return known->second;
    return kinds_.emplace(channel.id, kindOfChannel(channel)).first->second;
  }

  bool takeMotion(mcap::ByteView bytes) {
    ObservedMotionRecord record;
    if (!codec::decode(bytes, record)) return false;
    const std::int32_t said = record.motorNum;
    const auto motors = static_cast<std::size_t>(std::clamp<std::int32_t>(said, 0, kMaxMotors));
    while (data_.joints.size() < motors) addJoint(record.motor[data_.joints.size()]);
    for (std::size_t at = 0; at < motors; ++at) {
      const ObservedMotor motor = record.motor[at];
      Joint& joint = data_.joints[at];
      joint.position.add(time_, motor.position);
      joint.velocity.add(time_, motor.velocity);
      joint.torque.add(time_, motor.torque);
    }
    takeVector(data_.acceleration, record.imu.accel);
    takeVector(data_.angularVelocity, record.imu.gyro);
    takeVector(data_.euler, record.imu.euler);
    const ObservedPower power = record.power;
    data_.charge[0].add(time_, power.power);
    data_.voltage[0].add(time_, power.chargeVoltage);
    data_.current[0].add(time_, power.chargeCurrent);
    return true;
  }

  void addJoint(const ObservedMotor& motor) {
    const std::size_t number = data_.joints.size();
    // A robot that numbers no limbs and joints has them by threes, as far as anybody can tell.
    const bool numbered = number == 0 || motor.limbsNo != 0 || motor.jointNo != 0;
    const std::size_t limbNo = numbered ? motor.limbsNo : number / kJoints.size();
    const std::size_t jointNo = numbered ? motor.jointNo : number % kJoints.size();
    const std::string limb = nameOf(kLimbs, limbNo, "limb");
    const std::string name = nameOf(kJoints, jointNo, "joint");
    const auto curve = [&](const char* what) {
      return Curve(limb + " " + name + ", " + what, data_.span, kCurveColumns);
    };
    data_.joints.push_back({limb, name, curve("position"), curve("velocity"), curve("torque")});
  }

  void takeVector(std::vector<Curve>& curves, ObservedVector3 vector) const {
    const bool trusted = vector.error == 0;
    const std::array<float, 3> values = {vector.x, vector.y, vector.z};
    for (std::size_t at = 0; at < values.size(); ++at) {
      curves[at].add(time_, trusted ? values[at] : std::numeric_limits<double>::quiet_NaN());
    }
  }

  bool takeSensor(mcap::ByteView bytes) {
    ObservedSensorRecord record;
    if (!codec::decode(bytes, record)) return false;
    const ObservedOdometry& odometry = record.odom;
    const bool goesOn =
        odometry.valid != 0 && odometry.epoch == epoch_ && time_ - odometryTime_ < kPathGap;
    if (!goesOn) data_.path.interrupt();
    if (odometry.valid == 0) return true;
    data_.path.add(odometry.position[0], odometry.position[1]);
    epoch_ = odometry.epoch;
    odometryTime_ = time_;
    return true;
  }

  bool takeNote(ChannelNumber kind, mcap::ByteView bytes) {
    if (kind == ChannelNumber::kEvent) {
      if (data_.events.size() < kMostEvents) data_.events.push_back(time_);
      return true;
    }
    if (kind != ChannelNumber::kState && kind != ChannelNumber::kRecorder) return true;
    if (bytes.size() > kMostDocumentBytes) return false;
    Json::Value document;
    try {
      document = parseObject({reinterpret_cast<const char*>(bytes.data()), bytes.size()}, "a note");
    } catch (const Failure&) {
      return false;
    }
    if (kind == ChannelNumber::kState) {
      takeState(document);
    } else {
      takeRemark(document);
    }
    return true;
  }

  void takeState(const Json::Value& document) {
    extend(data_.control, holderIn(document));
    extend(data_.postures, textAt(document, "posture"));
  }

  /// The last episode lasts until now, or another one begins.
  void extend(std::vector<Episode>& episodes, const std::string& told) const {
    const std::string what = shortened(told, kMostEpisodeBytes);
    const bool known = !episodes.empty() && time_ - episodes.back().end < kEpisodeGap;
    if (known) episodes.back().end = time_;
    if (known && episodes.back().what == what) return;
    if (episodes.size() < kMostEpisodes) episodes.push_back({time_, time_, what});
  }

  void takeRemark(const Json::Value& document) {
    const std::string what = textAt(document, "what");
    if (what == "begin") data_.robot = textAt(document, "robot");
    if (what == "silent") silentSince_ = time_;
    if (what == "answers" && silentSince_) {
      data_.silences.push_back({*silentSince_, time_, "no answer"});
      silentSince_.reset();
    }
  }

  PlotData& data_;
  std::map<std::uint16_t, std::optional<ChannelNumber>> kinds_;
  double time_ = 0;
  std::uint32_t epoch_ = 0;
  double odometryTime_ = -kPathGap;
  std::optional<double> silentSince_;
};

}  // namespace

PlotData::PlotData(TimeSpan theSpan)
    : span(theSpan),
      acceleration(curves(span, {"forward (x)", "left (y)", "up (z)"})),
      angularVelocity(curves(span, {"about x", "about y", "about z"})),
      euler(curves(span, {"roll", "pitch", "yaw"})),
      charge(curves(span, {"charge"})),
      voltage(curves(span, {"voltage"})),
      current(curves(span, {"current"})) {}

PlotData readPlotData(ByteSource& source) {
  mcap::McapReader reader(source);
  std::uint64_t first = std::numeric_limits<std::uint64_t>::max();
  std::uint64_t last = 0;
  static_cast<void>(reader.read([&](const mcap::Message& message) {
    first = std::min(first, message.timeNs);
    last = std::max(last, message.timeNs);
  }));
  const double length = first < last ? static_cast<double>(last - first) * 1e-9 : 0;
  PlotData data({0, length});
  data.startNs = first <= last ? first : 0;
  Collector collector(data);
  data.report = reader.read([&](const mcap::Message& message) { collector.take(message); });
  collector.end();
  return data;
}

}  // namespace robotctl
