// The program itself, as a process of its own, met with the platform's plain request client.
// argv[1]: the virtual-robot to run.

#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "Network.h"
#include "VirtualRobot.h"
#include "pbase/CMutex.h"
#include "pbase/CSemaphore.h"
#include "pbase/CThread.h"
#include "pbase/CTime.h"
#include "pbase/System.h"
#include "pdbus/IDDSFactory.h"
#include "pdbus/IDDSSubcriber.h"
#include "pdbus/IEventBus.h"
#include "pdbus/RPC.h"

namespace orvane::robot {
namespace {

using Pexal::PBase::CTime;
using Pexal::PDBus::IDDSFactory;
using Pexal::PDBus::RPCClient;
using Pexal::PDBus::RpcStatus;

std::string programPath;

constexpr std::uint32_t kSoonMs = 10000;

/// A child process with its output in a pipe. Killed when the test leaves it alive.
class Program {
 public:
  explicit Program(std::vector<std::string> arguments) {
    int out[2];
    int err[2];
    if (::pipe2(out, O_CLOEXEC) != 0 || ::pipe2(err, O_CLOEXEC) != 0) return;
    arguments.insert(arguments.begin(), programPath);
    std::vector<char*> argv;
    for (std::string& argument : arguments) argv.push_back(argument.data());
    argv.push_back(nullptr);
    pid_ = ::fork();
    if (pid_ == 0) {
      ::dup2(out[1], STDOUT_FILENO);
      ::dup2(err[1], STDERR_FILENO);
      ::execv(programPath.c_str(), argv.data());
      ::_exit(127);
    }
    ::close(out[1]);
    ::close(err[1]);
    out_ = out[0];
    err_ = err[0];
  }
  ~Program() {
    if (pid_ > 0) {
      ::kill(pid_, SIGKILL);
      ::waitpid(pid_, nullptr, 0);
    }
    ::close(out_);
    ::close(err_);
  }
  Program(const Program&) = delete;
  Program& operator=(const Program&) = delete;

  void signal(int number) const { ::kill(pid_, number); }
  /// Reads standard output until a line contains `text`. False: it ended or took too long.
  bool prints(const std::string& text) {
    return readUntil(out_, output_, [&] { return output_.find(text) != std::string::npos; });
  }
  /// The exit status; -1 when it didn't end in time or by a signal. Reads both outputs to their
  /// end.
  int exitStatus() {
    readUntil(out_, output_, [] { return false; });
    readUntil(err_, errors_, [] { return false; });
    int status = 0;
    const std::uint64_t deadline = CTime::getCurrentMilliSecond() + kSoonMs;
    while (::waitpid(pid_, &status, WNOHANG) == 0) {
      if (CTime::getCurrentMilliSecond() > deadline) return -1;
      Pexal::PBase::CThread::sleep(2);
    }
    pid_ = -1;
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
  }
  [[nodiscard]] const std::string& output() const { return output_; }
  [[nodiscard]] const std::string& errors() const { return errors_; }

 private:
  template <class Ready>
  static bool readUntil(int fd, std::string& text, Ready ready) {
    const std::uint64_t deadline = CTime::getCurrentMilliSecond() + kSoonMs;
    while (!ready()) {
      const std::uint64_t now = CTime::getCurrentMilliSecond();
      pollfd waiting{fd, POLLIN, 0};
      if (now >= deadline || ::poll(&waiting, 1, static_cast<int>(deadline - now)) <= 0)
        return false;
      char chunk[4096];
      const ssize_t count = ::read(fd, chunk, sizeof(chunk));
      if (count <= 0) return false;
      text.append(chunk, static_cast<std::size_t>(count));
    }
    return true;
  }

  pid_t pid_ = -1;
  int out_ = -1;
  int err_ = -1;
  std::string output_;
  std::string errors_;
};

/// What an application's host would set up, without the SDK.
class Host {
 public:
  Host() {
    Json::Value document;
    Json::Value domain;
    domain["name"] = "host";
    domain["domain"] = 42;
    domain["url"] = ddsProfile("lo", 42);
    document["domain"].append(domain);
    for (const char* server : {"robotServer", "cerebellumServer"}) {
      Json::Value client;
      client["server"] = server;
      client["domain"] = "host";
      document["client"].append(client);
    }
    Json::Value bus;
    bus["server"] = "robotServer";
    bus["domain"] = "host";
    document["eventBus"].append(bus);
    started_ = factory_->initial(document);
  }
  ~Host() { factory_->shutdown(); }

  [[nodiscard]] bool started() const { return started_; }
  [[nodiscard]] IDDSFactory& factory() { return *factory_; }

  std::uint32_t ask(const std::string& device, const std::string& method,
                    const std::string& clientId, Json::Value& answer,
                    const Json::Value& params = {}, const char* server = "robotServer",
                    std::uint32_t timeoutMs = 5000) {
    Json::Value request;
    request["call"]["clientId"] = clientId;
    if (!params.empty()) request["params"] = params;
    return factory_->rpcClient(server)->call("robotAppService", method, request, answer, timeoutMs,
                                             device);
  }

 private:
  std::shared_ptr<IDDSFactory> factory_ = IDDSFactory::create();
  bool started_ = false;
};

/// Collects events of one topic.
class Listener : public std::enable_shared_from_this<Listener> {
 public:
  bool listen(IDDSFactory& factory, const std::string& topic) {
    return factory.eventBus("robotServer")
        ->subscribe(topic, Pexal::PDBus::EventHandler::bind(weak_from_this(), &Listener::onEvent));
  }
  /// True once `wanted` holds for one of the payloads.
  bool hears(const std::function<bool(const Json::Value&)>& wanted) {
    std::unique_lock lock(mutex_);
    return heard_.waitUntil(lock, CTime::getCurrentMicroSecond() + kSoonMs * 1000ULL, [&] {
      for (const Json::Value& payload : payloads_) {
        if (wanted(payload)) return true;
      }
      return false;
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

TEST(RobotProgram, servesARequestAndEndsWithSigtermAndSigint) {
  for (const int signal : {SIGTERM, SIGINT}) {
    Program robot({"--device-id", "VR-A"});
    ASSERT_TRUE(robot.prints("ready: VR-A on lo, domain 42\n"));
    Host host;
    ASSERT_TRUE(host.started());
    for (const char* server : {"robotServer", "cerebellumServer"}) {
      Json::Value answer;
      ASSERT_EQ(host.ask("VR-A", "queryMotionState", "test", answer, {}, server), 0U);
      EXPECT_TRUE(answer["result"].asBool());
      EXPECT_EQ(answer["params"]["posture"].asString(), "lying");
    }
    robot.signal(signal);
    EXPECT_EQ(robot.exitStatus(), 0) << robot.errors();
    EXPECT_NE(robot.output().find("VR-A: lying"), std::string::npos);
    EXPECT_EQ(robot.errors(), "");
  }
}

TEST(RobotProgram, robotsAreKeptApartByTheirId) {
  Program first({"--device-id", "VR-A"});
  Program second({"--device-id", "VR-B"});
  ASSERT_TRUE(first.prints("ready"));
  ASSERT_TRUE(second.prints("ready"));
  Host host;
  Json::Value answer;
  ASSERT_EQ(host.ask("VR-A", "takeMotionControl", "test", answer), 0U);
  const std::string controller = answer["params"]["controller"].asString();
  ASSERT_FALSE(controller.empty());
  for (const char* device : {"VR-A", "VR-B"}) {
    ASSERT_EQ(host.ask(device, "queryMotionState", "test", answer), 0U);
    EXPECT_EQ(answer["params"]["deviceNo"].asString(), device);
    EXPECT_EQ(answer["params"]["control"]["controlled"].asBool(), device == std::string("VR-A"));
  }
  Json::Value params;
  params["action"] = "standing";
  ASSERT_EQ(host.ask("VR-B", "startMotionAction", controller, answer, params), 0U);
  EXPECT_FALSE(answer["result"].asBool());
  ASSERT_EQ(host.ask("VR-A", "startMotionAction", controller, answer, params), 0U);
  EXPECT_TRUE(answer["result"].asBool());
  EXPECT_NE(host.ask("VR-C", "queryMotionState", "test", answer, {}, "robotServer", 300), 0U);
}

TEST(RobotProgram, bothServersShareOneArbiterAndReasonsTravel) {
  Program robot({"--device-id", "VR-A"});
  ASSERT_TRUE(robot.prints("ready"));
  Host host;
  Json::Value answer;
  ASSERT_EQ(host.ask("VR-A", "takeMotionControl", "test", answer), 0U);
  const std::string controller = answer["params"]["controller"].asString();
  ASSERT_EQ(host.ask("VR-A", "takeMotionControl", "test", answer, {}, "cerebellumServer"), 0U);
  EXPECT_FALSE(answer["result"].asBool());
  EXPECT_EQ(Pexal::PBase::getLastErrno(), static_cast<std::uint32_t>(Reason::kHeldByAnother));
  ASSERT_EQ(host.ask("VR-A", "renewMotionControl", controller, answer, {}, "cerebellumServer"), 0U);
  EXPECT_TRUE(answer["result"].asBool());
}

TEST(RobotProgram, answersDiscoveryAndTellsOfControlEvenAtItsEnd) {
  Program robot({"--device-id", "VR-A"});
  ASSERT_TRUE(robot.prints("ready"));
  Host host;
  const auto found = std::make_shared<Listener>();
  const auto control = std::make_shared<Listener>();
  ASSERT_TRUE(found->listen(host.factory(), "robotServer.discoverDevice.response"));
  ASSERT_TRUE(control->listen(host.factory(), "robotServer.control.status"));
  ASSERT_TRUE(host.factory()
                  .eventBus("robotServer")
                  ->publish("robotServer.discoverDevice.request", Json::Value(), kSoonMs));
  EXPECT_TRUE(found->hears([](const Json::Value& payload) {
    return payload["deviceNo"] == "VR-A" && payload["detail"]["model"].isString();
  }));
  Json::Value answer;
  ASSERT_EQ(host.ask("VR-A", "takeMotionControl", "test", answer), 0U);
  const Json::Value controller = answer["params"]["controller"];
  EXPECT_TRUE(control->hears([&](const Json::Value& payload) {
    return payload["controlled"] == true && payload["controller"] == controller &&
           payload["deviceNo"] == "VR-A";
  }));
  robot.signal(SIGTERM);
  EXPECT_TRUE(
      control->hears([](const Json::Value& payload) { return payload["controlled"] == false; }));
  EXPECT_EQ(robot.exitStatus(), 0);
}

TEST(RobotProgram, publishesWhatCanBeSeenAndAnInProcessRobotDoesTheSame) {
  RobotSettings settings;
  settings.deviceId = "VR-P";
  VirtualRobot robot(settings);
  std::string error;
  ASSERT_TRUE(robot.start(error)) << error;
  Host host;

  Pexal::PBase::CSemaphore motionSeen(0);
  Pexal::PBase::CSemaphore sensorSeen(0);
  const auto motion = host.factory().subscriber("host", "motion/observed");
  const auto sensor = host.factory().subscriber("host", "sensor/observed");
  ASSERT_TRUE(motion && sensor);
  const auto motionReader =
      std::make_shared<Pexal::PDBus::MSGDDSReader<orvane::msg::dds_::MotionObserved_>>(
          motion, dds::sub::qos::DataReaderQos(),
          [&](const orvane::msg::dds_::MotionObserved_& sample) {
            if (sample.motorNum == 12 && sample.motor[11].header.limbsNo == 3) motionSeen.post();
          });
  const auto sensorReader =
      std::make_shared<Pexal::PDBus::MSGDDSReader<orvane::msg::dds_::SensorObserved_>>(
          sensor, dds::sub::qos::DataReaderQos(),
          [&](const orvane::msg::dds_::SensorObserved_& sample) {
            if (sample.odom.valid == 1) sensorSeen.post();
          });
  EXPECT_TRUE(motionSeen.wait(kSoonMs));
  EXPECT_TRUE(sensorSeen.wait(kSoonMs));
  sensorSeen.clear();
  const std::uint64_t begunMs = CTime::getCurrentMilliSecond();
  for (int sample = 0; sample < 50; ++sample) ASSERT_TRUE(sensorSeen.wait(kSoonMs));
  const std::uint64_t tookMs = CTime::getCurrentMilliSecond() - begunMs;
  EXPECT_GT(tookMs, 900U) << "50 sensor samples are a second";
  std::uint32_t motionSamples = 0;
  while (motionSeen.wait(0)) ++motionSamples;
  EXPECT_GT(motionSamples, 100U);
  motion->removeReader(motionReader);
  sensor->removeReader(sensorReader);
  robot.stop();
  robot.stop();
  EXPECT_FALSE(robot.start(error)) << "a robot is started once";
}

TEST(RobotProgram, refusesWhatItCannotServeWithAReason) {
  struct Case {
    std::vector<std::string> arguments;
    const char* reason;
  };
  const Case kCases[] = {
      {{"--device-id", "VR*"}, "device id"},
      {{"--interface", "nope0"}, "no network interface \"nope0\""},
      {{"--domain", "900"}, "--domain"},
      {{"--nonsense"}, "nonsense"},
  };
  for (const Case& row : kCases) {
    SCOPED_TRACE(row.reason);
    Program robot(row.arguments);
    EXPECT_GT(robot.exitStatus(), 0);
    EXPECT_NE(robot.errors().find(row.reason), std::string::npos) << robot.errors();
    EXPECT_EQ(robot.output().find("ready"), std::string::npos);
  }
}

TEST(RobotProgram, saysWhenNoParticipantSlotIsLeft) {
  ASSERT_EQ(std::system("ip link set lo multicast off"), 0);
  std::vector<std::unique_ptr<Program>> robots;
  for (int i = 0; i < 9; ++i) {
    robots.push_back(std::make_unique<Program>(
        std::vector<std::string>{"--device-id", "VR-" + std::to_string(i)}));
    ASSERT_TRUE(robots.back()->prints("ready")) << "robot " << i;
  }
  Program tenth({"--device-id", "VR-9"});
  EXPECT_GT(tenth.exitStatus(), 0);
  EXPECT_NE(tenth.errors().find("no participant slot left on lo"), std::string::npos)
      << tenth.errors();
  EXPECT_EQ(std::system("ip link set lo multicast on"), 0);
}

}  // namespace
}  // namespace orvane::robot

int main(int argc, char** argv) {
  ::testing::InitGoogleTest(&argc, argv);
  if (argc < 2) {
    std::fprintf(stderr, "usage: robot_program_test VIRTUAL-ROBOT\n");
    return 2;
  }
  orvane::robot::programPath = argv[1];
  return RUN_ALL_TESTS();
}
