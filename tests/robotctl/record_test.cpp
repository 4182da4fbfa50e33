// Recordings: the file format held against its rules by a checker of its own, nothing lost between
// the library's callbacks and the file, and what is left when the writer, the disk or the robot
// gives up.

#include <sys/mount.h>
#include <sys/stat.h>

#include <algorithm>
#include <atomic>
#include <csignal>
#include <filesystem>
#include <map>
#include <memory>

#include "record/Recorder.h"
#include "recording_support.h"
#include "sdk_robot.h"

namespace robotctl_test {
namespace {

using sdk_test::kLimitMs;
using sdk_test::Process;
using sdk_test::waitUntil;

constexpr const char* kFile = "/tmp/recording.mcap";

ObservedMotionRecord someMotion(int number) {
  ObservedMotionRecord record{};
  record.motorNum = 12;
  record.imu.gyro = {0, 0.5F, -1.5F, static_cast<float>(number)};
  record.power.power = 87.5F;
  record.motor[11].error = 3;
  record.motor[11].torque = -2.25F;
  record.motor[11].limbsNo = 3;
  record.motor[11].jointNo = 2;
  return record;
}

struct Contents {
  mcap::Report report;
  std::map<std::string, std::uint64_t> counts;
  std::vector<std::string> messages;  // topic, time and data of each
  std::uint64_t lastNs = 0;
};

Contents read(ByteSource& source) {
  Contents contents;
  mcap::McapReader reader(source);
  contents.report = reader.read([&](const mcap::Message& message) {
    ++contents.counts[message.channel.topic];
    contents.lastNs = std::max(contents.lastNs, message.timeNs);
    contents.messages.push_back(message.channel.topic + std::to_string(message.timeNs) +
                                std::string(message.data.begin(), message.data.end()));
  });
  return contents;
}

Contents read(const std::string& path) {
  FileSource source(path);
  return read(source);
}

Bytes smallFile() {
  HandMade recording(kFile);
  for (int number = 0; number < 6; ++number) {
    recording.add(ChannelNumber::kMotion, 0.1 * number, someMotion(number));
    recording.add(ChannelNumber::kSensor, 0.1 * number, ObservedSensorRecord{});
    if (number % 2 == 1) recording.flush();
  }
  recording.finish();
  return contentsOf(kFile);
}

TEST(Recording, KeepsToTheFormatAndSaysWhatTheRecordsSaid) {
  constexpr int kRecords = 3000;  // several chunks
  Recorder recorder;
  for (int number = 0; number < kRecords; ++number) recorder.motion(someMotion(number));
  ObservedSensorRecord sensor{};
  sensor.uwb.rssi = -40;
  sensor.odom.position[1] = 1.25F;
  sensor.odom.epoch = 77;
  recorder.sensor(sensor);
  recorder.open(kFile, OutputFile::Existing::kReplace, "test", Json::objectValue);
  recorder.event("robotServer.host.event", R"({"posture":"standing"})");
  recorder.event("large", '"' + std::string(2U << 20, 'x') + '"');
  recorder.connection(1, 5);
  recorder.error(3, "no \"answer\"\n");
  recorder.finish();

  const Json::Value file = checked("check_mcap.py", {kFile});
  EXPECT_EQ(file["counts"]["/motion"].asInt(), kRecords);
  EXPECT_EQ(file["counts"]["/sensor"].asInt(), 1);
  EXPECT_EQ(file["counts"]["/event"].asInt(), 2);
  const Json::Value& motion = file["last"]["/motion"];
  EXPECT_EQ(motion["imu"]["angular_velocity"]["z"].asDouble(), kRecords - 1);
  EXPECT_EQ(motion["power"]["charge"].asDouble(), 87.5);
  ASSERT_EQ(motion["motors"].size(), 12U);
  EXPECT_EQ(motion["motors"][11]["error"].asInt(), 3);
  EXPECT_EQ(motion["motors"][11]["torque"].asDouble(), -2.25);
  EXPECT_EQ(motion["motors"][11]["joint_no"].asInt(), 2);
  const Json::Value& observed = file["last"]["/sensor"];
  EXPECT_EQ(observed["uwb"]["rssi"].asInt(), -40);
  EXPECT_EQ(observed["odometry"]["position"][1].asDouble(), 1.25);
  EXPECT_EQ(observed["odometry"]["epoch"].asInt(), 77);
  EXPECT_EQ(file["last"]["/error"]["text"].asString(), "no \"answer\"\n");

  const Contents contents = read(kFile);
  EXPECT_TRUE(contents.report.complete) << contents.report.damage;
  EXPECT_EQ(contents.counts.at("/motion"), kRecords);
}

TEST(Recording, CountsWhatFindsNoRoom) {
  constexpr int kTooMany = 10000;  // the ring is smaller, and nobody empties it yet
  Recorder recorder;
  for (int number = 0; number < kTooMany; ++number) recorder.motion(someMotion(number));
  recorder.open(kFile, OutputFile::Existing::kReplace, "test", Json::objectValue);
  recorder.finish();
  const Contents contents = read(kFile);
  const std::uint64_t lost = kTooMany - contents.counts.at("/motion");
  EXPECT_TRUE(contents.report.complete) << contents.report.damage;
  EXPECT_GT(lost, 0U);
  EXPECT_EQ(recorder.totals().lostInAll(), lost);
  EXPECT_NE(contents.messages.back().find("\"lost\":" + std::to_string(lost)), std::string::npos);
}

TEST(Reader, CopesWithAFileCutAnywhere) {
  const Bytes whole = smallFile();
  const std::vector<std::string> all = [&] {
    MemorySource source(whole);
    return read(source).messages;
  }();
  ASSERT_EQ(all.size(), 12U);
  std::size_t before = 0;
  for (std::size_t size = 0; size < whole.size(); ++size) {
    const Bytes cut(whole.begin(), whole.begin() + static_cast<std::ptrdiff_t>(size));
    MemorySource source(cut);
    if (size < mcap::kMagic.size()) {
      EXPECT_THROW(read(source), mcap::NotMcap);
      continue;
    }
    const Contents contents = read(source);
    ASSERT_FALSE(contents.report.complete) << size;
    ASSERT_GE(contents.messages.size(), before) << size;
    before = contents.messages.size();
    ASSERT_TRUE(std::equal(contents.messages.begin(), contents.messages.end(), all.begin()));
  }
  EXPECT_EQ(before, all.size());
}

TEST(Reader, DeliversNothingThatWasTamperedWith) {
  const Bytes whole = smallFile();
  MemorySource untouched(whole);
  const std::vector<std::string> all = read(untouched).messages;
  for (std::size_t at = mcap::kMagic.size(); at < whole.size(); ++at) {
    for (const std::uint8_t change : {0x01, 0x80, 0xFF}) {
      Bytes changed = whole;
      changed[at] ^= change;
      MemorySource source(changed);
      const Contents contents = read(source);
      for (const std::string& message : contents.messages) {
        ASSERT_NE(std::find(all.begin(), all.end(), message), all.end()) << at;
      }
      ASSERT_TRUE(contents.messages == all || !contents.report.complete) << at;
    }
  }
}

/// Counts what the library delivers beside the recorder, from the same callbacks.
TEST(Recording, HoldsEveryRecordThatTheLibraryDelivered) {
  const sdk_test::Sdk sdk;
  const sdk_test::LocalRobot robot("dog");
  const auto client = sdk_test::IMotionHighLevelClient::create("dog");
  const auto recorder = std::make_shared<Recorder>();
  struct Counts {
    std::atomic<std::uint64_t> motion{0}, sensor{0}, event{0}, connection{0};
  };
  const auto counts = std::make_shared<Counts>();
  client->setMotionObservedCallback([=](const auto& record) {
    ++counts->motion;
    recorder->motion(record);
  });
  client->setSensorObservedCallback([=](const auto& record) {
    ++counts->sensor;
    recorder->sensor(record);
  });
  client->setEventCallback([=](const auto& topic, const auto& detail) {
    ++counts->event;
    recorder->event(topic, detail);
  });
  client->setConnectCallback([=](auto state, auto code) {
    ++counts->connection;
    recorder->connection(state, code);
  });
  recorder->open(kFile, OutputFile::Existing::kReplace, "test", Json::objectValue);
  ASSERT_TRUE(client->connect(60000));
  std::string out;
  ASSERT_TRUE(client->setMotionObservedEnable(R"({"motionEnable":true,"sensorEnable":true})", &out,
                                              sdk_test::kRequestMs));
  ASSERT_TRUE(client->takeMotionControl(0));
  ASSERT_TRUE(waitUntil([&] { return counts->connection > 0; }));
  ASSERT_TRUE(client->standing(sdk_test::kRequestMs));
  ASSERT_TRUE(waitUntil([&] { return counts->motion > 1500 && counts->event > 0; }));
  client->disconnect();
  recorder->finish();
  EXPECT_EQ(recorder->totals().lostInAll(), 0U);
  const Json::Value written = checked("check_mcap.py", {kFile})["counts"];
  EXPECT_EQ(written["/motion"].asUInt64(), counts->motion);
  EXPECT_EQ(written["/sensor"].asUInt64(), counts->sensor);
  EXPECT_EQ(written["/event"].asUInt64(), counts->event);
  EXPECT_EQ(written["/connection"].asUInt64(), counts->connection);
}

std::vector<std::string> recordCommand(std::vector<std::string> more = {}) {
  std::vector<std::string> command = {ROBOTCTL, "record", kFile, "--interface", "lo"};
  command.insert(command.end(), more.begin(), more.end());
  return command;
}

/// The recording has grown well beyond its beginning.
[[nodiscard]] bool hasBegun(const std::string& path = kFile) {
  return waitUntil([&] {
    std::error_code none;
    const auto size = std::filesystem::file_size(path, none);
    return !none && size > 500'000;
  });
}

class RecordCommand : public ::testing::Test {
 protected:
  RecordCommand() { std::filesystem::remove(kFile); }
  const sdk_test::RobotProcess robot_{"dog"};
};

TEST_F(RecordCommand, EndsProperlyOnASignalAndKeepsWhatExists) {
  for (const int signal : {SIGINT, SIGTERM}) {
    std::filesystem::remove(kFile);
    Process recording(recordCommand({"--json", "--quiet"}));
    ASSERT_TRUE(hasBegun()) << recording.output();
    recording.signal(signal);
    EXPECT_EQ(recording.finish(kLimitMs), 0) << recording.output();
    const Json::Value said = parsed(recording.output());
    const Json::Value written = checked("check_mcap.py", {kFile})["counts"];
    EXPECT_EQ(written["/motion"], said["delivered"]["motion"]);
    EXPECT_EQ(written["/sensor"], said["delivered"]["sensor"]);
    EXPECT_EQ(said["lost"].asInt(), 0);
    EXPECT_GT(written["/state"].asInt(), 0);
  }
  const Bytes before = contentsOf(kFile);
  Process refused(recordCommand());
  EXPECT_EQ(refused.finish(kLimitMs), 2);
  EXPECT_NE(refused.output().find("exists already"), std::string::npos) << refused.output();
  EXPECT_EQ(contentsOf(kFile), before);
}

TEST_F(RecordCommand, IsReadableUpToTheLastSecondAfterKill) {
  Process recording(recordCommand());
  ASSERT_TRUE(hasBegun()) << recording.output();
  Process second(recordCommand({"--force"}));
  EXPECT_EQ(second.finish(kLimitMs), 6) << "it would spoil the first: " << second.output();
  recording.signal(SIGKILL);
  const std::uint64_t killedNs = RecordClock().now();
  EXPECT_EQ(recording.finish(kLimitMs), -SIGKILL);
  const Contents contents = read(kFile);
  EXPECT_FALSE(contents.report.complete);
  EXPECT_EQ(contents.report.damagedChunks, 0U);
  EXPECT_GT(contents.counts.at("/motion"), 500U);
  EXPECT_LT(killedNs - contents.lastNs, 1'000'000'000U);
  const Json::Value checkedCounts = checked("check_mcap.py", {kFile, "--unfinished"})["counts"];
  EXPECT_EQ(checkedCounts["/motion"].asUInt64(), contents.counts.at("/motion"));
}

TEST_F(RecordCommand, GoesOnWithoutTheRobotAndSaysSo) {
  Process recording(recordCommand());
  ASSERT_TRUE(hasBegun()) << recording.output();
  static_cast<void>(robot_.tell("silent 3000"));
  ASSERT_TRUE(recording.says("doesn't answer", kLimitMs)) << recording.output();
  ASSERT_TRUE(recording.says("is back after", kLimitMs)) << recording.output();
  recording.forgetOutput();
  static_cast<void>(robot_.tell("die"));
  ASSERT_TRUE(recording.says("doesn't answer", kLimitMs)) << recording.output();
  recording.signal(SIGINT);
  EXPECT_EQ(recording.finish(kLimitMs), 5) << recording.output();
  const Json::Value written = checked("check_mcap.py", {kFile})["counts"];
  EXPECT_EQ(written["/recorder"].asInt(), 5) << "begin, silent, answers, silent, end";
  EXPECT_GE(written["/error"].asInt(), 3);
}

TEST_F(RecordCommand, RefusesWhatIsNoFileAndOutlivesAClosedPipe) {
  for (const std::string path : {"/nowhere/none.mcap", "/tmp", "/dev/full"}) {
    Process refused({ROBOTCTL, "record", path, "--force", "--interface", "lo"});
    EXPECT_EQ(refused.finish(kLimitMs), 6) << refused.output();
    EXPECT_NE(refused.output().find(path), std::string::npos) << refused.output();
  }
  Process closed({"/bin/bash", "-c",
                  std::string("set -o pipefail; " ROBOTCTL " record ") + kFile +
                      " --for 1 --interface lo --json 2>/dev/null | true; echo status $?"});
  EXPECT_EQ(closed.finish(kLimitMs), 0);
  EXPECT_EQ(closed.output(), "status 141\n");
  EXPECT_GT(checked("check_mcap.py", {kFile})["counts"]["/motion"].asInt(), 0);
}

TEST_F(RecordCommand, SaysThatTheDiskIsFullAndLeavesAReadableFile) {
  const std::string disk = "/tmp/small";
  ASSERT_EQ(::mkdir(disk.c_str(), 0700), 0);
  ASSERT_EQ(::mount("tmpfs", disk.c_str(), "tmpfs", 0, "size=1m"), 0);
  const std::string file = disk + "/full.mcap";
  // Also where nobody reads what was recorded.
  Process recording({"/bin/bash", "-c",
                     "exec > >(:); wait $!; exec " ROBOTCTL " record " + file + " --interface lo"});
  EXPECT_EQ(recording.finish(kLimitMs), 6) << recording.output();
  EXPECT_NE(recording.output().find("No space left"), std::string::npos) << recording.output();
  const Contents contents = read(file);
  EXPECT_GT(contents.counts.at("/motion"), 500U);
  EXPECT_EQ(contents.report.damagedChunks, 0U);
  static_cast<void>(checked("check_mcap.py", {file, "--unfinished"}));
  EXPECT_EQ(::umount(disk.c_str()), 0);
}

}  // namespace
}  // namespace robotctl_test
