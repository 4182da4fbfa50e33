// The robot's program and the robot in a process, met over DDS by the platform's plain clients.

#include <gtest/gtest.h>

#include <algorithm>
#include <csignal>
#include <cstdlib>
#include <functional>
#include <memory>
#include <mutex>
#include <sstream>
#include <string>
#include <vector>

#include "Network.h"
#include "VirtualRobot.h"
#include "app/PaceWatch.h"
#include "msg/MotionTypes.h"
#include "pbase/CMutex.h"
#include "pbase/CSemaphore.h"
#include "pbase/CTime.h"
#include "pbase/System.h"
#include "pdbus/IDDSFactory.h"
#include "pdbus/IDDSSubcriber.h"
#include "pdbus/IEventBus.h"
#include "pdbus/RPC.h"
#include "sdk_process.h"
#include "sdk_robot.h"

namespace orvane::robot {
namespace {

using Pexal::PBase::CTime;
using Pexal::PDBus::IDDSFactory;
using Pexal::PDBus::RpcStatus;
using sdk_test::Process;
using sdk_test::RobotProcess;

constexpr std::uint32_t kSoonMs = 10000;
constexpr std::uint32_t kShortMs = 500;

/// What an application's host would set up, without the SDK.
class Host {
 public:
  Host() {
    Json::Value document = ddsDocument("lo", 42);
    for (const char* server : {"robotServer", "cerebellumServer"}) {
      Json::Value client;
      client["server"] = server;
      client["domain"] = kHostDomain;
      document["client"].append(client);
    }
    document["eventBus"][0]["server"] = "robotServer";
    document["eventBus"][0]["domain"] = kHostDomain;
    EXPECT_TRUE(factory_->initial(document));
  }
  ~Host() { factory_->shutdown(); }

  [[nodiscard]] IDDSFactory& factory() { return *factory_; }

  /// The transport's status; the answer is kept.
  RpcStatus ask(const std::string& device, const std::string& method,
                const std::string& clientId = "test", const char* server = "robotServer",
                const Json::Value& params = {}, std::uint32_t timeoutMs = kSoonMs) {
    Json::Value request;
    request["call"]["clientId"] = clientId;
    if (!params.empty()) request["params"] = params;
    answer = Json::Value();
    return static_cast<RpcStatus>(factory_->rpcClient(server)->call(
        "robotAppService", method, request, answer, timeoutMs, device));
  }
  [[nodiscard]] bool accepts(const std::string& device, const std::string& method,
                             const std::string& clientId = "test",
                             const char* server = "robotServer", const Json::Value& params = {}) {
    return ask(device, method, clientId, server, params) == RpcStatus::kOk &&
           answer["result"] == true;
  }
  [[nodiscard]] std::string take(const std::string& device) {
    EXPECT_TRUE(accepts(device, "takeMotionControl"));
    return answer["params"]["controller"].asString();
  }

  Json::Value answer;

 private:
  std::shared_ptr<IDDSFactory> factory_ = IDDSFactory::create();
};

/// Collects events of one topic.
class Listener : public std::enable_shared_from_this<Listener> {
 public:
  static std::shared_ptr<Listener> to(Host& host, const std::string& topic) {
    auto listener = std::make_shared<Listener>();
    EXPECT_TRUE(host.factory()
                    .eventBus("robotServer")
                    ->subscribe(topic, Pexal::PDBus::EventHandler::bind(
                                           std::weak_ptr<Listener>(listener), &Listener::onEvent)));
    return listener;
  }
  /// True once `wanted` holds for one of the payloads.
  bool hears(const std::function<bool(const Json::Value&)>& wanted) {
    std::unique_lock lock(mutex_);
    return heard_.waitUntil(lock, CTime::getCurrentMicroSecond() + kSoonMs * 1000ULL, [&] {
      return std::any_of(payloads_.begin(), payloads_.end(), wanted);
    });
  }

 private:
  void onEvent(const std::string&, const Json::Value& payload) {
    {
      const std::lock_guard lock(mutex_);
      payloads_.push_back(payload);
    }
    heard_.notifyAll();
  }
  Pexal::PBase::CMutex mutex_;  // guards payloads_
  Pexal::PBase::CCondition heard_;
  std::vector<Json::Value> payloads_;
};

/// Counts samples of one topic that fit.
template <class Sample>
class Watcher {
 public:
  Watcher(Host& host, const char* topic, std::function<bool(const Sample&)> fits)
      : subscriber_(host.factory().subscriber("host", topic)),
        reader_(std::make_shared<Pexal::PDBus::MSGDDSReader<Sample>>(
            subscriber_, dds::sub::qos::DataReaderQos(), [this, fits](const Sample& sample) {
              if (fits(sample)) seen.post();
            })) {}
  ~Watcher() { subscriber_->removeReader(reader_); }

  Pexal::PBase::CSemaphore seen{0};

 private:
  std::shared_ptr<Pexal::PDBus::IDDSSubcriber> subscriber_;
  std::shared_ptr<Pexal::PDBus::MSGDDSReader<Sample>> reader_;
};

TEST(RobotProgram, servesBothServersAndEndsWithSigtermAndSigint) {
  for (const int signal : {SIGTERM, SIGINT}) {
    RobotProcess robot("VR-A");
    Host host;
    for (const char* server : {"robotServer", "cerebellumServer"}) {
      ASSERT_TRUE(host.accepts("VR-A", "queryMotionState", "test", server));
      EXPECT_EQ(host.answer["params"]["posture"].asString(), "lying");
    }
    const std::string controller = host.take("VR-A");
    EXPECT_FALSE(host.accepts("VR-A", "takeMotionControl", "test", "cerebellumServer"));
    EXPECT_EQ(Pexal::PBase::getLastErrno(), static_cast<std::uint32_t>(Reason::kHeldByAnother));
    EXPECT_TRUE(host.accepts("VR-A", "renewMotionControl", controller, "cerebellumServer"));
    robot.signal(signal);
    EXPECT_EQ(robot.finish(kSoonMs), 0);
    std::istringstream lines(robot.output());
    std::string line;
    std::getline(lines, line);
    EXPECT_EQ(line, "ready: VR-A on lo, domain 42, kinematic body");
    while (std::getline(lines, line) && line.find("real-time factor ") != 0) {
      EXPECT_EQ(line.find("VR-A: lying"), 0U) << line;
    }
    EXPECT_FALSE(line.empty()) << "it doesn't say how its time went";
  }
}

TEST(RobotProgram, hasTheBodyThatItWasBuiltWith) {
  Process robot({VIRTUAL_ROBOT, "--device-id", "VR-A"});
  EXPECT_TRUE(robot.says(kHasPhysics ? "physics body" : "kinematic body", kSoonMs))
      << robot.output();
}

TEST(RobotProgram, robotsAreKeptApartByTheirId) {
  const RobotProcess first("VR-A");
  const RobotProcess second("VR-B");
  Host host;
  const std::string controller = host.take("VR-A");
  for (const char* device : {"VR-A", "VR-B"}) {
    ASSERT_TRUE(host.accepts(device, "queryMotionState"));
    EXPECT_EQ(host.answer["params"]["deviceNo"].asString(), device);
    EXPECT_EQ(host.answer["params"]["control"]["controlled"].asBool(), device[3] == 'A');
  }
  Json::Value params;
  params["action"] = "standing";
  EXPECT_FALSE(host.accepts("VR-B", "startMotionAction", controller, "robotServer", params));
  EXPECT_TRUE(host.accepts("VR-A", "startMotionAction", controller, "robotServer", params));
  EXPECT_EQ(host.ask("VR-C", "queryMotionState", "test", "robotServer", {}, kShortMs),
            RpcStatus::kNoServer);
}

TEST(RobotProgram, answersDiscoveryAndTellsOfControlEvenAtItsEnd) {
  RobotProcess robot("VR-A");
  Host host;
  const auto found = Listener::to(host, "robotServer.discoverDevice.response");
  const auto control = Listener::to(host, "robotServer.control.status");
  ASSERT_TRUE(host.factory()
                  .eventBus("robotServer")
                  ->publish("robotServer.discoverDevice.request", Json::Value(), kSoonMs));
  EXPECT_TRUE(found->hears([](const Json::Value& payload) {
    return payload["deviceNo"] == "VR-A" && payload["detail"]["model"].isString();
  }));
  const std::string controller = host.take("VR-A");
  EXPECT_TRUE(control->hears([&](const Json::Value& payload) {
    return payload["controlled"] == true && payload["controller"] == controller &&
           payload["deviceNo"] == "VR-A";
  }));
  robot.signal(SIGTERM);
  EXPECT_TRUE(
      control->hears([](const Json::Value& payload) { return payload["controlled"] == false; }));
  EXPECT_EQ(robot.finish(kSoonMs), 0);
}

TEST(RobotProgram, anInProcessRobotPublishesWhatCanBeSeenOrNonsenseOrNothing) {
  RobotSettings settings;
  settings.deviceId = "VR-P";
  VirtualRobot robot(settings);
  std::string error;
  ASSERT_TRUE(robot.start(error)) << error;
  Host host;
  using Motion = orvane::msg::dds_::MotionObserved_;
  using Sensor = orvane::msg::dds_::SensorObserved_;
  Watcher<Motion> motion(host, "motion/observed", [](const Motion& sample) {
    return sample.motorNum == 12 && sample.motor[11].header.limbsNo == 3;
  });
  Watcher<Motion> spoilt(host, "motion/observed",
                         [](const Motion& sample) { return sample.motorNum != 12; });
  Watcher<Sensor> sensor(host, "sensor/observed",
                         [](const Sensor& sample) { return sample.odom.valid == 1; });
  EXPECT_TRUE(motion.seen.wait(kSoonMs));
  EXPECT_TRUE(sensor.seen.wait(kSoonMs));
  sensor.seen.clear();
  motion.seen.clear();
  const std::uint64_t begunMs = CTime::getCurrentMilliSecond();
  for (int sample = 0; sample < 50; ++sample) ASSERT_TRUE(sensor.seen.wait(kSoonMs));
  EXPECT_GT(CTime::getCurrentMilliSecond() - begunMs, 500U) << "50 sensor samples are a second";
  std::uint32_t motionSamples = 0;
  while (motion.seen.wait(0)) ++motionSamples;
  EXPECT_GT(motionSamples, 100U);
  const Pace pace = robot.pace();
  EXPECT_GT(pace.realTimeFactor, 0.5);
  EXPECT_LE(pace.realTimeFactor, 1.0) << "a step counts before its time has passed";

  EXPECT_FALSE(spoilt.seen.wait(0));
  const auto control = Listener::to(host, "robotServer.control.status");
  ASSERT_TRUE(robot.faults().apply("nonsense").done);
  EXPECT_TRUE(spoilt.seen.wait(kSoonMs));
  EXPECT_TRUE(control->hears([](const Json::Value& payload) {
    return payload.isObject() && payload["deviceNo"] == "VR-P" && !payload["controlled"].isBool();
  })) << "without being asked";
  EXPECT_EQ(host.ask("VR-P", "takeMotionControl"), RpcStatus::kOk);
  EXPECT_FALSE(robot.status().holder.empty()) << "it is carried out all the same";

  ASSERT_TRUE(robot.faults().applyAll({"sense", "silent"}).done);
  EXPECT_TRUE(sdk_test::waitUntil([&] { return !motion.seen.wait(kShortMs); }, kSoonMs));
  EXPECT_FALSE(robot.faults().apply("die").done) << "this process is ours";
  robot.stop();
  robot.stop();
  EXPECT_FALSE(robot.start(error)) << "a robot is started once";
}

TEST(RobotProgram, complainsOfAMachineThatIsTooBusyButNotOfAPause) {
  PaceWatch watch;
  std::uint64_t nowMs = 1000;
  double robotMs = 0;
  Pace pace;
  const auto complaints = [&](double factor, std::uint64_t ms) {
    std::vector<double> heard;
    for (const std::uint64_t endMs = nowMs + ms; nowMs < endMs;) {
      if (const auto low = watch.look(pace, nowMs)) heard.push_back(*low);
      nowMs += 200;
      robotMs += 200 * factor;
      pace.realTimeFactor = robotMs / static_cast<double>(nowMs - 1000);
    }
    return heard;
  };
  EXPECT_TRUE(complaints(1, 20'000).empty());
  const auto busy = complaints(0.5, 40'000);
  ASSERT_GE(busy.size(), 3U);
  EXPECT_LE(busy.size(), 4U);
  EXPECT_NEAR(busy[1], 0.5, 0.02);
  nowMs += 60'000;  // stopped; the first look is at a pace of before
  EXPECT_TRUE(complaints(1, 40'000).empty());
}

TEST(RobotProgram, doesWhatItIsTold) {
  RobotProcess robot("VR-A", {"--loss", "0.5", "--fault", "drop getMotorLayout", "--fault",
                              "after 86400000 revoke"});
  Host host;
  EXPECT_EQ(host.ask("VR-A", "getMotorLayout", "test", "robotServer", {}, kShortMs),
            RpcStatus::kTimeout);
  const std::string controller = host.take("VR-A");
  EXPECT_EQ(robot.tell("revoke"), "control is revoked\n");
  EXPECT_FALSE(host.accepts("VR-A", "renewMotionControl", controller));
  EXPECT_EQ(Pexal::PBase::getLastErrno(), static_cast<std::uint32_t>(Reason::kRevoked));

  EXPECT_EQ(robot.tell("silent"), "silent\n");
  EXPECT_EQ(host.ask("VR-A", "queryMotionState", "test", "robotServer", {}, kShortMs),
            RpcStatus::kTimeout);
  const std::string list = robot.tell("list");
  EXPECT_NE(list.find("drop getMotorLayout\nsilent\nafter 863"), std::string::npos) << list;
  EXPECT_EQ(robot.tell("speak"), "speak\n");
  EXPECT_TRUE(host.accepts("VR-A", "queryMotionState"));

  EXPECT_EQ(robot.tell("die"), "dies\n");
  EXPECT_EQ(robot.finish(kSoonMs), -SIGKILL);
}

TEST(RobotProgram, refusesWhatItCannotDoWithAReason) {
  const RobotProcess robot("VR-A");
  struct Case {
    std::vector<std::string> arguments;
    const char* reason;
  };
  std::vector<Case> cases = {
      {{"--device-id", "VR*"}, "device id"},
      {{"--interface", "nope0"}, "no network interface \"nope0\""},
      {{"--domain", "900"}, "--domain"},
      {{"--nonsense"}, "nonsense"},
      {{"--body", "rubber"}, "--body: physics or kinematic, not rubber"},
      {{"--body", "1"}, "physics or kinematic, not 1"},
      {{"--seed", "-1"}, "in range 0 to 4294967295"},
      {{"--body", "kinematic", "--seed", "3"}, "is for --body physics"},
      {{"--loss", "101"}, "the loss must be"},
      {{"--loss", "-1"}, "the loss must be"},
      {{"--fault", "refuse"}, "the form is: refuse METHOD [TIMES] [errno NUMBER]"},
      {{"--fault", "revoke"}, "nobody holds control"},
      {{"--trc-topic", "motion/observed"}, "motion/observed would have two meanings"},
      {{"--control-topic", ""}, "a topic has a name"},
      {{"--trc-reliability", "maybe"}, "must be RELIABLE or BEST_EFFORT"},
      {{"--gamepad", "/"}, "neither a script nor a joystick device nor a FIFO"},
      {{"--board", "--gamepad", "/dev/input/js0"}, "doesn't go with --board alone"},
      {{"tell", "--device-id", "VR-A", "restore"}, "nobody was preempted"},
      {{"tell", "--device-id", "VR-A", "die", "dye"}, "no fault \"dye\""},
      {{"tell", "--device-id", "VR-B", "--timeout", "500", "die"}, "no virtual robot \"VR-B\""},
      {{"tell", "--device-id", "VR*", "die"}, "device id"},
      {{"tell"}, "faults is required"},
      {{"--board"}, "no robot board: there is no /etc/dds/motion_config.xml"},
      {{"--board", "--host"}, "no robot board"},
      {{"--board", "--domain", "7"}, "doesn't go with --board alone"},
      {{"tell", "--board", "list"}, "no robot board"},
      {{"tell", "--board", "--device-id", "VR-A", "list"}, "a board has one robot"},
  };
  if (!kHasPhysics) cases.push_back({{"--body", "physics"}, "libmujoco-dev"});
  for (const Case& row : cases) {
    SCOPED_TRACE(row.reason);
    std::vector<std::string> command = row.arguments;
    command.insert(command.begin(), VIRTUAL_ROBOT);
    Process program(command);
    EXPECT_GT(program.finish(kSoonMs).value_or(-1), 0);
    EXPECT_TRUE(program.says(row.reason, 0)) << program.output();
    EXPECT_EQ(program.output().find("ready"), std::string::npos);
  }
}

TEST(RobotProgram, saysWhenNoParticipantSlotIsLeft) {
  ASSERT_EQ(std::system("ip link set lo multicast off"), 0);
  const std::shared_ptr<void> restored(
      nullptr, [](void*) { EXPECT_EQ(std::system("ip link set lo multicast on"), 0); });
  std::vector<std::unique_ptr<RobotProcess>> robots;
  for (int i = 0; i < 9; ++i) {
    robots.push_back(std::make_unique<RobotProcess>("VR-" + std::to_string(i)));
  }
  Process tenth({VIRTUAL_ROBOT, "--device-id", "VR-9"});
  EXPECT_GT(tenth.finish(kSoonMs).value_or(-1), 0);
  EXPECT_TRUE(tenth.says("no participant slot left on lo", 0)) << tenth.output();
}

}  // namespace
}  // namespace orvane::robot
