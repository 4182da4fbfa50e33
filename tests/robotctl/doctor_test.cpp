// robotctl doctor and sim as their users meet them. Every fault is really planted: in the network
// of this test's own, in virtual robots, on a sandbox's board. Where a cure can be carried out here
// it is, and must help.

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <json/json.h>

#include <csignal>
#include <cstddef>
#include <filesystem>
#include <fstream>
#include <optional>
#include <random>
#include <string>
#include <utility>
#include <vector>

#include "doctor/Spdp.h"
#include "pbase/CShmTripleBuffer.h"
#include "pbase/Utils.h"
#include "sdk_process.h"
#include "sdk_robot.h"
#include "sdk_support.h"

namespace sdk_test {
namespace {

namespace fs = std::filesystem;
using testing::HasSubstr;
using Words = std::vector<std::string>;

constexpr std::uint32_t kExitMs = 60000;
constexpr char kLock[] = "/tmp/orvane_motion_sdk.lock";
constexpr char kBuffer[] = "/dev/shm/orvane.motion_observed";
// Root, but only where a file's mode lets it.
const Words kBoundByModes{"/usr/bin/setpriv", "--bounding-set", "-dac_override,-dac_read_search"};

/// What the doctor said.
struct Diagnosis {
  std::optional<int> status;
  std::string text;
  Json::Value document;

  [[nodiscard]] Json::Value finding(const std::string& check,
                                    const std::string& subject = {}) const {
    for (const Json::Value& finding : document["findings"]) {
      if (finding["check"] == check && (subject.empty() || finding["subject"] == subject)) {
        return finding;
      }
    }
    return {};
  }
};

Diagnosis diagnose(const Words& options = {}, Words before = {}) {
  before.insert(before.end(), {ROBOTCTL, "doctor", "--json", "--quiet", "--find-timeout", "3"});
  before.insert(before.end(), options.begin(), options.end());
  Process doctor(before);
  Diagnosis result{doctor.finish(kExitMs), doctor.output(), {}};
  EXPECT_TRUE(Pexal::Utils::stringToJson(result.text, result.document)) << result.text;
  return result;
}

/// A finding that isn't fine: it says `seen`, and its cure holds `cure`.
struct Fault {
  const char* check;
  const char* verdict;
  const char* seen;
  const char* cure;
  const char* subject = "";
};

/// Finds it, and ends with 1 for a problem.
testing::AssertionResult finds(const Diagnosis& diagnosis, const Fault& fault) {
  const Json::Value finding = diagnosis.finding(fault.check, fault.subject);
  const auto holds = [&](const char* member, const char* part) {
    return finding[member].asString().find(part) != std::string::npos;
  };
  const bool problem = std::string(fault.verdict) == "problem";
  if (finding.isObject() && finding["verdict"] == fault.verdict && holds("seen", fault.seen) &&
      holds("cure", fault.cure) && !finding["meaning"].asString().empty() &&
      (!problem || diagnosis.status == 1)) {
    return testing::AssertionSuccess();
  }
  return testing::AssertionFailure() << fault.check << ' ' << fault.verdict << " \"" << fault.seen
                                     << "\" \"" << fault.cure << "\" in\n"
                                     << diagnosis.text;
}

testing::AssertionResult isHealthy(const Diagnosis& diagnosis) {
  if (diagnosis.status == 0 && diagnosis.document["problems"] == 0) {
    return testing::AssertionSuccess();
  }
  return testing::AssertionFailure() << diagnosis.text;
}

void shell(const std::string& line) {
  Process process({"/bin/sh", "-c", line});
  EXPECT_EQ(process.finish(kLimitMs), 0) << line << ": " << process.output();
}

/// Types what the doctor prescribes (there is no sudo here, and no need of it).
void cure(const Diagnosis& diagnosis, const Fault& fault) {
  std::string line = diagnosis.finding(fault.check, fault.subject)["cure"].asString();
  if (line.starts_with("sudo ")) line.erase(0, 5);
  shell(line);
}

void write(const std::string& path, const std::string& text) {
  std::ofstream(path) << text;
}

// ------------------------------------------------------------------------------- an external host

/// The loopback interface is as it was when a test ends.
class DoctorOnHost : public testing::Test {
 protected:
  ~DoctorOnHost() override {
    shell("ip link set lo up multicast on && ip route replace 224.0.0.0/4 dev lo");
  }
};

TEST_F(DoctorOnHost, HasNothingToSayAgainstAHealthyOne) {
  const RobotProcess robot("dog");
  write("/tmp/fine.json", R"({"lowLevel": {"leaseTimeout": 5000}})");
  const Diagnosis diagnosis = diagnose({"--config", "/tmp/fine.json"});
  EXPECT_TRUE(isHealthy(diagnosis));
  EXPECT_EQ(diagnosis.document["deployment"], "external host");
  for (const auto& [check, seen] : std::vector<std::pair<const char*, const char*>>{
           {"network.interface", "up, multicast, 127.0.0.1"},
           {"network.route", "through lo"},
           {"dds.start", "joined domain 42 on lo, which DDS chose"},
           {"dds.peers", "virtual-robot (process "},
           {"robot.found", "dog (virtual-quadruped): lying"},
           {"version.robot", "version 1.0.0"},
           {"version.platform", "libpdbus.so"},
           {"config", "is JSON"}}) {
    EXPECT_EQ(diagnosis.finding(check)["verdict"], "ok") << diagnosis.text;
    EXPECT_THAT(diagnosis.finding(check)["seen"].asString(), HasSubstr(seen));
  }
  // The same for people, and one thing that is wrong.
  Process table({ROBOTCTL, "doctor", "--robot", "cat", "--find-timeout", "1"});
  EXPECT_EQ(table.finish(kExitMs), 1);
  EXPECT_THAT(table.output(), HasSubstr("problem  robot "));
  EXPECT_THAT(table.output(), HasSubstr("cat doesn't answer; these do: dog (virtual-quadruped)"));
  EXPECT_THAT(table.output(), HasSubstr("\n         cure   robotctl --robot dog info\n"));
}

TEST_F(DoctorOnHost, MissesTheInterface) {
  const Fault down{"network.interface", "problem", "lo (down", "ip link set lo up"};
  shell("ip link set lo down");
  Diagnosis diagnosis = diagnose();
  EXPECT_TRUE(finds(diagnosis, down));
  EXPECT_TRUE(finds(diagnosis, {"dds.start", "problem", "no interface", "network"}));
  EXPECT_TRUE(finds(diagnose({"--interface", "lo"}),
                    {"network.interface", "problem", "down", "ip link set lo up", "interface lo"}));
  cure(diagnosis, down);
  diagnosis = diagnose({"--interface", "nix0"});
  EXPECT_TRUE(finds(diagnosis, {"network.interface", "problem", "there are: lo (up",
                                "robotctl doctor --interface lo"}));
}

TEST_F(DoctorOnHost, MissesMulticastYetFindsTheRobotThroughItsSlot) {
  const Fault none{"network.multicast", "warning", "no multicast flag",
                   "ip link set lo multicast on"};
  shell("ip link set lo multicast off");
  const RobotProcess robot("dog");
  const Diagnosis diagnosis = diagnose({"--interface", "lo"});
  EXPECT_TRUE(finds(diagnosis, none));
  EXPECT_TRUE(isHealthy(diagnosis));
  EXPECT_THAT(diagnosis.finding("dds.peers")["seen"].asString(), HasSubstr("virtual-robot"));
  cure(diagnosis, none);
  EXPECT_EQ(diagnose().finding("network.multicast")["verdict"], "ok");
}

TEST_F(DoctorOnHost, SaysThatThereIsNoRobotOrThatItIsInAnotherDomain) {
  const Diagnosis alone = diagnose();
  EXPECT_TRUE(finds(alone, {"robot.found", "problem", "none answered", "robotctl sim"}));
  EXPECT_EQ(alone.document["problems"], 1);
  EXPECT_EQ(alone.finding("dds.peers")["seen"], "none");

  const RobotProcess robot("cat", {"--domain", "43", "--no-sim"});
  const Diagnosis diagnosis = diagnose();
  EXPECT_TRUE(
      finds(diagnosis, {"robot.domain", "problem", "cat (virtual-quadruped) in domain 43 on lo",
                        "virtual-robot --device-id cat --interface lo --domain 42"}));
  EXPECT_EQ(diagnosis.finding("dds.otherDomains")["seen"], "1 in domain 43");
}

TEST_F(DoctorOnHost, SeesThatDdsPrefersAnotherInterfaceThanTheRobots) {
  Process pair({"/usr/sbin/ip", "link", "add", "cable0", "type", "veth", "peer", "name", "cable1"});
  if (pair.finish(kLimitMs) != 0) GTEST_SKIP() << "no pairs of interfaces here: " << pair.output();
  shell("ip address add 10.9.0.1/24 dev cable0 && ip link set cable0 up && ip link set cable1 up");
  const RobotProcess robot("dog");
  const Diagnosis diagnosis = diagnose();
  EXPECT_TRUE(
      finds(diagnosis, {"robot.interface", "problem", "dog (virtual-quadruped) in domain 42 on lo",
                        "robotctl --interface lo discover"}));
  EXPECT_EQ(diagnosis.finding("dds.start")["seen"], "joined domain 42 on cable0, which DDS chose");
  EXPECT_TRUE(isHealthy(diagnose({"--interface", "lo"})));
  shell("ip link delete cable0");
}

TEST_F(DoctorOnHost, ComparesTheRobotsVersionWithTheLibrarys) {
  {
    const RobotProcess robot("dog", {"--robot-version", "2.4.1"});
    EXPECT_TRUE(finds(diagnose(), {"version.robot", "problem", "version 2.4.1, the library is 1.",
                                   "update the robot to 1.x"}));
  }
  {
    const RobotProcess robot("dog", {"--robot-version", "1.9.0-rc1"});
    EXPECT_TRUE(isHealthy(diagnose()));
  }
  const RobotProcess robot("dog", {"--robot-version", "newest"});
  EXPECT_TRUE(
      finds(diagnose(), {"version.robot", "warning", "can't be read: newest", "version 1."}));
}

TEST_F(DoctorOnHost, MissesRealTimeRights) {
  const RobotProcess robot("dog");
  const Diagnosis diagnosis =
      diagnose({}, {"/usr/bin/prlimit", "--rtprio=0", "--memlock=65536", "/usr/bin/setpriv",
                    "--bounding-set", "-sys_nice,-ipc_lock"});
  EXPECT_TRUE(finds(diagnosis, {"realtime.priority", "warning", "limit 0, CAP_SYS_NICE no",
                                "- rtprio 99\" | sudo tee -a /etc/security/limits.d/"}));
  EXPECT_TRUE(
      finds(diagnosis, {"realtime.memory", "warning", "limit 64 KiB", "memlock unlimited"}));
  EXPECT_TRUE(isHealthy(diagnosis)) << "warnings don't fail";
}

TEST_F(DoctorOnHost, ReadsTheConfiguration) {
  const RobotProcess robot("dog");
  EXPECT_TRUE(finds(diagnose({"--config", "/tmp/none.json"}),
                    {"config", "problem", "can't be read", "ls -l /tmp/none.json"}));
  write("/tmp/bad.json", "{\"lowLevel\": ");
  EXPECT_TRUE(finds(diagnose({"--config", "/tmp/bad.json"}),
                    {"config", "problem", "isn't JSON", "json.tool /tmp/bad.json"}));
}

// ------------------------------------------------------------------------------------ a board

class DoctorOnBoard : public testing::Test {
 protected:
  ~DoctorOnBoard() override { fs::remove_all(kLock); }
};

TEST_F(DoctorOnBoard, HasNothingToSayAgainstAHealthyOne) {
  const RobotProcess robot("VR-0001", {"--board"});
  write(kLock, "");  // of an application that ended
  const Diagnosis diagnosis = diagnose();
  EXPECT_TRUE(isHealthy(diagnosis));
  EXPECT_EQ(diagnosis.document["deployment"], "robot board");
  for (const auto& [check, seen] : std::vector<std::pair<const char*, const char*>>{
           {"board.daemon", "iox-roudi (process "},
           {"board.lock", "free; "},
           {"dds.start", "joined domains 2 and 1 on lo"},
           {"robot.found", "VR-0001 (virtual-quadruped): lying"},
           {"shm.buffer", "written by virtual-robot (process "},
           {"version.robot", "version 1.0.0"}}) {
    EXPECT_EQ(diagnosis.finding(check)["verdict"], "ok") << diagnosis.text;
    EXPECT_THAT(diagnosis.finding(check)["seen"].asString(), HasSubstr(seen));
  }
}

TEST_F(DoctorOnBoard, TellsAStaleLockFromOneInUse) {
  const RobotProcess robot("VR-0001", {"--board"});
  {
    Process application({"/usr/bin/flock", "--no-fork", kLock, "/bin/sleep", "1000"});
    ASSERT_TRUE(waitUntil([] { return diagnose().finding("board.lock")["verdict"] == "warning"; },
                          kLimitMs));
    const Diagnosis inUse = diagnose();
    EXPECT_TRUE(finds(inUse, {"board.lock", "warning", "held by sleep (process ", "kill "}));
    EXPECT_TRUE(isHealthy(inUse));
    application.signal(SIGSTOP);
    EXPECT_TRUE(finds(diagnose(), {"board.lock", "problem", "which is stopped", "kill -CONT "}));
  }
  // Who took it has ended; what it started holds it still.
  const Fault inherited{"board.lock", "problem", "stale: who took it has ended, and sleep",
                        "kill "};
  shell(std::string("exec 9>") + kLock + "; flock 9; sleep 1000 >/dev/null 2>&1 &");
  const Diagnosis stale = diagnose();
  EXPECT_TRUE(finds(stale, inherited));
  cure(stale, inherited);
  EXPECT_TRUE(isHealthy(diagnose()));
  // Another user's, as far as access goes.
  const Fault foreign{"board.lock", "problem", "this user can't write to it", "rm -r "};
  fs::permissions(kLock, fs::perms::none);
  const Diagnosis unwritable = diagnose({}, kBoundByModes);
  EXPECT_TRUE(finds(unwritable, foreign));
  cure(unwritable, foreign);
  EXPECT_TRUE(isHealthy(diagnose({}, kBoundByModes)));
}

TEST_F(DoctorOnBoard, FindsSharedMemoryThatCantBeRead) {
  const char* const subject = "motion_observed";
  const Fault closed{"shm.buffer", "problem", "unreadable: its mode is 0000", "chmod 0644",
                     subject};
  {
    const RobotProcess robot("VR-0001", {"--board"});
    fs::permissions(kBuffer, fs::perms::none);
    const Diagnosis diagnosis = diagnose({}, kBoundByModes);
    EXPECT_TRUE(finds(diagnosis, closed));
    cure(diagnosis, closed);
    EXPECT_TRUE(isHealthy(diagnose({}, kBoundByModes)));
  }
  // Nobody writes any more.
  EXPECT_TRUE(finds(diagnose(), {"shm.buffer", "warning", "its writer has ended, and no newer",
                                 "start the board's motion process", subject}));
  const Fault spoilt{"shm.buffer", "problem", "unreadable: ", "rm '/dev/shm/orvane.", subject};
  shell(std::string("dd if=/dev/urandom of=") + kBuffer + " bs=64 count=1 conv=notrunc");
  const Diagnosis diagnosis = diagnose();
  EXPECT_TRUE(finds(diagnosis, spoilt));
  cure(diagnosis, spoilt);
  // What a robot with other records would write.
  Pexal::Memory::CShmTripleBuffer other;
  ASSERT_TRUE(other.create(subject, 700));
  EXPECT_TRUE(
      finds(diagnose(), {"shm.buffer", "problem", "records have 700 bytes, this library's 712",
                         "of the robot's version", subject}));
  fs::remove(kBuffer);
}

TEST(DoctorOnBareBoard, MissesTheDaemon) {
  const Diagnosis diagnosis = diagnose();
  EXPECT_TRUE(finds(diagnosis, {"board.daemon", "problem", "no iox-roudi runs", "iox-roudi &"}));
  EXPECT_TRUE(
      finds(diagnosis, {"robot.found", "problem", "none answered", "virtual-robot --board"}));
  write("/tmp/iox-unique-roudi_ready.lock", "");
  EXPECT_TRUE(finds(diagnose(), {"board.daemon", "warning", "no iox-roudi runs", "rm /tmp/iox-"}));
}

// ----------------------------------------------------------------------------------- datagrams

/// An announcement as others write them: with a parameter without a value, and properties.
class Announcement {
 public:
  Announcement(const robotctl::doctor::GuidPrefix& prefix, bool bigEndian, bool inlineQos)
      : bigEndian_(bigEndian) {
    bytes({'R', 'T', 'P', 'S', 2, 1, 9, 9});
    bytes({prefix.begin(), prefix.end()});
    bytes({0x15, static_cast<std::uint8_t>((bigEndian ? 0 : 1) | (inlineQos ? 2 : 0) | 4)});
    number(0, 2);   // "up to the end"
    number(0, 2);   // further flags
    number(16, 2);  // to what follows the sequence number
    bytes({0, 0, 0, 0, 0, 1, 0, 0xc2});
    number(0, 4);
    number(1, 4);
    if (inlineQos) {
      parameter(0x70, {prefix.begin(), prefix.end()});
      parameter(0x01, {});
    }
    bytes({0, static_cast<std::uint8_t>(bigEndian ? 2 : 3), 0, 0});
    parameter(0x62, {});
    parameter(0x50, {prefix.begin(), prefix.end()});
    number(0x59, 2);
    number(4 + 20 + 8 + 12 + 8, 2);
    number(2, 4);
    text("__ProcessName");
    text("cat");
    text("__Pid");
    text("812");
    parameter(0x01, {});
  }
  [[nodiscard]] const std::vector<std::uint8_t>& out() const { return out_; }

 private:
  void bytes(const std::vector<std::uint8_t>& some) {
    out_.insert(out_.end(), some.begin(), some.end());
  }
  void number(std::uint32_t value, int size) {
    for (int i = 0; i < size; ++i) {
      out_.push_back(static_cast<std::uint8_t>(value >> 8 * (bigEndian_ ? size - 1 - i : i)));
    }
  }
  void parameter(std::uint16_t id, const std::vector<std::uint8_t>& value) {
    number(id, 2);
    number(static_cast<std::uint32_t>(value.size()), 2);
    bytes(value);
  }
  /// With a NUL, and up to the next multiple of four.
  void text(const std::string& value) {
    number(static_cast<std::uint32_t>(value.size() + 1), 4);
    bytes({value.begin(), value.end()});
    bytes(std::vector<std::uint8_t>(4 - value.size() % 4));
  }

  const bool bigEndian_;
  std::vector<std::uint8_t> out_;
};

TEST(DoctorAnnouncement, IsReadAndSurvivesWhateverComes) {
  using namespace robotctl::doctor;
  const GuidPrefix prefix{1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12};
  std::vector<std::vector<std::uint8_t>> datagrams{probe(prefix, 42, 0x0100007f, 7410, 3)};
  const auto read = readAnnouncement(datagrams[0].data(), datagrams[0].size());
  ASSERT_TRUE(read);
  EXPECT_EQ(read->prefix, prefix);
  EXPECT_EQ(read->address, 0x0100007fU);
  for (const auto& [bigEndian, inlineQos] : {std::pair(false, true), {true, false}, {true, true}}) {
    datagrams.push_back(Announcement(prefix, bigEndian, inlineQos).out());
    const auto other = readAnnouncement(datagrams.back().data(), datagrams.back().size());
    ASSERT_TRUE(other) << bigEndian << inlineQos;
    EXPECT_EQ(other->prefix, prefix);
    EXPECT_EQ(other->describe(), "cat (process 812)");
  }
  // What follows shows itself under the sanitizers. Copies, so that a byte too far is seen.
  const auto take = [](const std::vector<std::uint8_t>& bytes) {
    const std::vector<std::uint8_t> exact(bytes);
    if (const auto found = readAnnouncement(exact.data(), exact.size())) {
      EXPECT_FALSE(found->describe().empty());
    }
  };
  std::mt19937 random(7);
  for (const auto& datagram : datagrams) {
    for (std::size_t size = 0; size < datagram.size(); ++size) {
      take({datagram.begin(), datagram.begin() + static_cast<std::ptrdiff_t>(size)});
    }
    for (int round = 0; round < 10000; ++round) {
      std::vector<std::uint8_t> spoilt = datagram;
      for (int i = 0; i < 4; ++i) {
        spoilt[20 + random() % (spoilt.size() - 20)] = static_cast<std::uint8_t>(random());
      }
      take(spoilt);
    }
  }
}

// ------------------------------------------------------------------------------------------- sim

TEST(RobotctlSim, BecomesTheVirtualRobot) {
  Process robot(
      {ROBOTCTL, "--interface", "lo", "sim", "--device-id", "cat", "--fault", "silent 1"});
  ASSERT_TRUE(robot.says("ready: cat on lo, domain 42", kLimitMs)) << robot.output();
  EXPECT_TRUE(robot.says("lying", kLimitMs)) << "its status line";
  Process second({ROBOTCTL, "sim", "--device-id=cat"});
  EXPECT_EQ(second.finish(kExitMs), 1);
  EXPECT_THAT(second.output(), HasSubstr("a robot cat answers on lo already"));
  robot.signal(SIGINT);
  EXPECT_EQ(robot.finish(kExitMs), 0) << "it ends in good order";

  const auto outcome = [](const Words& words) {
    Process process(words);
    const auto status = process.finish(kExitMs);
    return std::pair(status, process.output());
  };
  EXPECT_EQ(outcome({ROBOTCTL, "sim", "--interface", "nix0"}),
            outcome({VIRTUAL_ROBOT, "--interface", "nix0"}));
  EXPECT_EQ(outcome({ROBOTCTL, "sim", "--help"}).second, outcome({VIRTUAL_ROBOT, "--help"}).second);
}

TEST(RobotctlSim, LooksForItsProgramBesideItself) {
  fs::create_directories("/tmp/place/bin");
  fs::create_directories("/tmp/place/libexec");
  fs::copy_file(ROBOTCTL, "/tmp/place/bin/robotctl", fs::copy_options::overwrite_existing);
  const Words sim{"/usr/bin/env", "PATH=/none",  "/tmp/place/bin/robotctl",
                  "sim",          "--interface", "nix0"};
  Process missing(sim);
  EXPECT_EQ(missing.finish(kExitMs), 6);
  EXPECT_THAT(missing.output(), HasSubstr("there is no program virtual-robot"));
  for (const char* place : {"/tmp/place/libexec/virtual-robot", "/tmp/place/bin/virtual-robot"}) {
    fs::create_symlink(VIRTUAL_ROBOT, place);
    Process found(sim);
    EXPECT_EQ(found.finish(kExitMs), 1);
    EXPECT_THAT(found.output(), HasSubstr("virtual-robot: there is no network interface"));
    fs::remove(place);
  }
}

}  // namespace
}  // namespace sdk_test
