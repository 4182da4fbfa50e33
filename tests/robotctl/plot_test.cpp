// Pictures of recordings: well-formed whatever the recording holds, with what was recorded where it
// belongs.

#include <cmath>
#include <filesystem>
#include <limits>

#include "plot/Plot.h"
#include "recording_support.h"

namespace robotctl_test {
namespace {

using sdk_test::Process;

constexpr const char* kFile = "/tmp/plotted.mcap";
constexpr const char* kPicture = "/tmp/plotted.svg";
const std::vector<PlotPart> kAll = {PlotPart::kControl, PlotPart::kPath, PlotPart::kBattery,
                                    PlotPart::kImu, PlotPart::kJoints};
constexpr double kSpikeAt = 30;  // seconds

/// A minute at full rate: joints swing, one record of one joint sticks out, the robot goes round a
/// rectangle of 4 m by 2 m, control changes hands.
void recordAMinute() {
  HandMade recording(kFile);
  recording.add(ChannelNumber::kRecorder, 0, std::string(R"({"what":"begin","robot":"<d&g>"})"));
  for (int number = 0; number <= 30000; ++number) {
    const double time = number / 500.0;
    ObservedMotionRecord record{};
    record.motorNum = 12;
    for (std::uint16_t motor = 0; motor < 12; ++motor) {
      record.motor[motor].limbsNo = motor / 3;
      record.motor[motor].jointNo = motor % 3;
      record.motor[motor].position = static_cast<float>(0.1 * std::sin(9 * time + motor));
    }
    if (number == static_cast<int>(kSpikeAt * 500)) record.motor[4].position = 1;
    record.power.power = static_cast<float>(90 - time / 6);
    recording.add(ChannelNumber::kMotion, time, record);
    if (number % 10 != 0) continue;
    ObservedSensorRecord sensor{};
    sensor.odom.valid = 1;
    const double way = time / 5;  // metres
    sensor.odom.position[0] = static_cast<float>(way < 4    ? way
                                                 : way < 6  ? 4
                                                 : way < 10 ? 10 - way
                                                            : 0);
    sensor.odom.position[1] = static_cast<float>(way < 4    ? 0
                                                 : way < 6  ? way - 4
                                                 : way < 10 ? 2
                                                            : 12 - way);
    recording.add(ChannelNumber::kSensor, time, sensor);
    if (number % 250 != 0) continue;
    recording.add(
        ChannelNumber::kState, time,
        std::string(time < 20
                        ? R"({"posture":"standing","control":{"controlled":false}})"
                        : R"({"posture":"walking","control":{"controlled":true,"holder":"A&B"}})"));
  }
  recording.finish();
}

Json::Value draw(ByteSource& source) {
  OutputFile picture(kPicture, OutputFile::Existing::kReplace);
  const std::string text = drawPlot(readPlotData(source), kAll);
  picture.append({reinterpret_cast<const std::uint8_t*>(text.data()), text.size()});
  return checked("check_svg.py", {kPicture});
}

Json::Value named(const Json::Value& list, const std::string& begin) {
  for (const Json::Value& entry : list) {
    if (entry["title"].asString().rfind(begin, 0) == 0) return entry;
  }
  ADD_FAILURE() << "no " << begin;
  return {};
}

TEST(Plot, HasEverythingWhereItBelongs) {
  recordAMinute();
  FileSource source(kFile);
  const Json::Value drawn = draw(source);
  // 12 joints of three quantities, three vectors of the inertial unit, three of the battery, a
  // path.
  EXPECT_EQ(drawn["curves"].size(), 36U + 9 + 3 + 1);
  EXPECT_LT(std::filesystem::file_size(kPicture), 2'000'000U);

  // A single record among 30000 still shows, at its place, on the scale that all legs share.
  const Json::Value spiking = named(drawn["curves"], "front right thigh, position")["points"];
  const Json::Value calm = named(drawn["curves"], "front right calf, position")["points"];
  double highest = 1e9;  // y grows downwards
  double at = 0;
  double calmHighest = 1e9;
  for (const Json::Value& point : spiking) {
    if (point[1].asDouble() >= highest) continue;
    highest = point[1].asDouble();
    at = point[0].asDouble();
  }
  for (const Json::Value& point : calm) calmHighest = std::min(calmHighest, point[1].asDouble());
  const double left = spiking[0][0].asDouble();
  const double right = spiking[spiking.size() - 1][0].asDouble();
  EXPECT_NEAR((at - left) / (right - left), kSpikeAt / 60, 0.005);
  const double lowest = calm[0][1].asDouble();
  EXPECT_GT(lowest - highest, 5 * (lowest - calmHighest));

  // The rectangle is twice as wide as it is high.
  Range x;
  Range y;
  const Json::Value path = named(drawn["curves"], "path");
  for (const Json::Value& point : path["points"]) {
    x.include(point[0].asDouble());
    y.include(point[1].asDouble());
  }
  EXPECT_NEAR((x.high - x.low) / (y.high - y.low), 2, 0.02);

  // Nobody had control for the first third.
  const Json::Value nobody = named(drawn["bars"], "nobody");
  const Json::Value holder = named(drawn["bars"], "A&B");
  const double ends = nobody["right"].asDouble();
  EXPECT_NEAR(ends, holder["left"].asDouble(), 1);
  EXPECT_NEAR(
      (ends - nobody["left"].asDouble()) / (holder["right"].asDouble() - nobody["left"].asDouble()),
      1.0 / 3, 0.01);
}

TEST(Plot, IsWellFormedWhateverTheRecordingHolds) {
  HandMade recording(kFile);
  recording.add(ChannelNumber::kRecorder, 0,
                std::string("{\"what\":\"begin\",\"robot\":\"\\u0001\\uffff<\xc3(\\\"]]>\"}"));
  ObservedMotionRecord record{};
  record.motorNum = 1000;
  for (auto& motor : record.motor) motor.limbsNo = 60000;
  record.motor[0].torque = std::numeric_limits<float>::infinity();
  record.motor[1].torque = std::numeric_limits<float>::max();
  record.motor[2].torque = -std::numeric_limits<float>::max();
  record.motor[3].torque = std::numeric_limits<float>::denorm_min();
  record.imu.accel.x = std::numeric_limits<float>::quiet_NaN();
  for (const double time : {0.0, 1e9, 5e8}) recording.add(ChannelNumber::kMotion, time, record);
  ObservedSensorRecord sensor{};
  sensor.odom.valid = 1;
  sensor.odom.position[0] = std::numeric_limits<float>::quiet_NaN();
  recording.add(ChannelNumber::kSensor, 1, sensor);
  for (const char* text : {"", "{", "[]", "null", R"({"control":7,"posture":[]})",
                           R"({"control":{"controlled":true,"holder":"]]><script>"}})"}) {
    recording.add(ChannelNumber::kState, 2, std::string(text));
    recording.add(ChannelNumber::kRecorder, 3, std::string(text));
  }
  const std::string endless(500'000, 'x');
  recording.add(ChannelNumber::kState, 4,
                R"({"control":{"controlled":true,"holder":")" + endless + R"("}})");
  recording.finish();
  const Bytes whole = contentsOf(kFile);
  for (std::size_t size : {whole.size(), whole.size() - 700, std::size_t{100}}) {
    MemorySource source(mcap::ByteView(whole).first(size));
    EXPECT_GT(draw(source)["width"].asDouble(), 0) << size;
    EXPECT_LT(std::filesystem::file_size(kPicture), endless.size()) << size;
  }
}

TEST(PlotCommand, DrawsWhatItIsAskedForAndRefusesTheRest) {
  recordAMinute();
  std::filesystem::resize_file(kFile, std::filesystem::file_size(kFile) / 2);
  Process plot({ROBOTCTL, "plot", kFile, "-o", kPicture, "--only", "joints,battery"});
  EXPECT_EQ(plot.finish(sdk_test::kLimitMs), 0) << plot.output();
  EXPECT_NE(plot.output().find("ends early"), std::string::npos) << plot.output();
  EXPECT_EQ(checked("check_svg.py", {kPicture})["curves"].size(), 36U + 3);

  const Bytes before = contentsOf(kFile);
  struct Wrong {
    std::vector<std::string> words;
    int status;
  };
  for (const Wrong& wrong : {Wrong{{kPicture}, 6}, Wrong{{"/nowhere/none.mcap"}, 6},
                             Wrong{{kFile, "--only", "wheels"}, 2}, Wrong{{kFile, "-o", kFile}, 2},
                             Wrong{{kFile, "-o", "/tmp/plotted.PNG"}, 2},
                             Wrong{{kFile, "-o", "/nowhere/none.svg"}, 6}}) {
    std::vector<std::string> command = {ROBOTCTL, "plot"};
    command.insert(command.end(), wrong.words.begin(), wrong.words.end());
    Process refused(command);
    EXPECT_EQ(refused.finish(sdk_test::kLimitMs), wrong.status) << refused.output();
    EXPECT_NE(refused.output().find(wrong.words.back()), std::string::npos) << refused.output();
  }
  EXPECT_EQ(contentsOf(kFile), before);
}

}  // namespace
}  // namespace robotctl_test
