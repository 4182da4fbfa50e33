// The service on an external host: start and stop, configuration, profile, setters, factories.

#include <sys/stat.h>

#include <future>
#include <thread>

#include "scripted/ScriptedBus.h"
#include "service/ServiceAccess.h"
#include "service_support.h"

namespace service_test {
namespace {

using namespace orvane::RobotSdk;
using testing::ElementsAre;
using testing::EndsWith;
using testing::IsEmpty;
using testing::StartsWith;

const LogLine kDetected{1, "motion sdk platform detected: 1 brain domain=-1,cere domain=42\n"};

LogLine profileLine(const std::string& interface) {
  return {1, "dds inited with host xml=" + hostProfilePath() + ", iface=" + interface + "\n"};
}

LogLine initializedLine(const std::string& config = {}) {
  return {1, "motion sdk initialized, clientId=probe, multiDevice=1, config=" + config + "\n"};
}

std::string profileText(const std::string& interfaces) {
  return R"(<?xml version="1.0" encoding="utf-8"?>
<CycloneDDS
  xmlns="https://cdds.io/config"
  xmlns:xsi="http://www.w3.org/2001/XMLSchema-instance"
  xsi:schemaLocation="https://cdds.io/config )"
         "https://raw.githubusercontent.com/eclipse-cyclonedds/cyclonedds/master/etc/cyclonedds.xsd"
         R"("
>
  <Domain Id="42">
    <General>
)" + interfaces +
         R"(      <AllowMulticast>true</AllowMulticast>
      <MaxMessageSize>65500B</MaxMessageSize>
    </General>
    <Tracing>
      <Verbosity>none</Verbosity>
    </Tracing>
  </Domain>
</CycloneDDS>
)";
}

class ServiceOnHost : public ServiceTest {
 protected:
  void TearDown() override { stop(); }
  scripted::Bus bus;
};

// --- start and stop ---

TEST_F(ServiceOnHost, StartsOnceWithProfileAndDocumentAndLeavesNothingBehind) {
  EXPECT_EQ(service::deployment(), service::kNotInitial);
  EXPECT_EQ(service::rpcClient("robotServer"), nullptr);
  ASSERT_TRUE(start());
  EXPECT_EQ(log->take(), (Lines{kDetected, profileLine("(auto)"), initializedLine()}));
  EXPECT_EQ(contentOf(hostProfilePath()), profileText(""));
  EXPECT_THAT(bus.seen().factoryDocuments, ElementsAre(json(R"({
      "domain": [{"name": "host", "domain": 42, "url": ")" + hostProfilePath() +
                                                            R"("}],
      "client": [{"server": "cerebellumServer", "domain": "host"},
                 {"server": "robotServer", "domain": "host"}],
      "eventBus": [{"topics": 16, "withService": true, "withClient": true,
                    "workers": {"count": 2, "task": 16},
                    "server": "robotServer", "domain": "host"}]})")));
  EXPECT_THAT(bus.subscribedTopics(), IsEmpty()) << "nobody wants to discover";
  EXPECT_TRUE(service->isMultiDevice());
  EXPECT_EQ(service::deployment(), service::kExternalHost);
  EXPECT_EQ(service::applicationServiceName(true), "robotAppService");
  EXPECT_EQ(service::applicationServiceName(false), "robotAppService");
  EXPECT_NE(service::rpcClient("robotServer"), nullptr);
  EXPECT_NE(service::eventBus("robotServer"), nullptr);
  EXPECT_EQ(service::rpcClient(""), nullptr);

  EXPECT_TRUE(service->initial("/tmp/no such file", "other", 7)) << "changes nothing";
  EXPECT_EQ(service::clientId(), "probe");
  EXPECT_EQ(bus.seen().factoryDocuments.size(), 1U);

  service->shutdown();
  service->shutdown();
  EXPECT_EQ(bus.seen().factoryShutdowns, 1U);
  EXPECT_FALSE(exists(hostProfilePath()));
  EXPECT_THAT(log->take(), IsEmpty()) << "the sink is gone before the last line";
  EXPECT_EQ(service::rpcClient("robotServer"), nullptr);
  EXPECT_EQ(service::eventBus("robotServer"), nullptr);
  ASSERT_TRUE(service->initial(nullptr, nullptr, 0));
  EXPECT_EQ(service::clientId(), "motionSdk") << "when none is given";
}

TEST_F(ServiceOnHost, WritesToTheConsoleOnlyWithoutALoggerCallback) {
  const auto silent = captureOutput();
  ASSERT_TRUE(start());
  EXPECT_EQ(silent(), "");
  service->shutdown();  // takes the callback with it

  const auto console = captureOutput();
  ASSERT_TRUE(start());
  service->shutdown();
  EXPECT_THAT(console(), EndsWith("motion sdk service shutdown\n"));
}

TEST_F(ServiceOnHost, AMissingDdsLayerDoesNotFailInitial) {
  bus.behave({.eventBus = false, .factory = false});
  ASSERT_TRUE(start());
  EXPECT_EQ(log->take(), (Lines{kDetected,
                                profileLine("(auto)"),
                                {5, "discover robot device is null\n"},
                                initializedLine()}));
}

// --- configuration ---

TEST_F(ServiceOnHost, AFailedLoadFailsInitialAndTheNextOneLogsEachLineOnce) {
  const auto bad = writeFile("/tmp/bad.json", "{\"lowLevel\": ");
  for (const auto& path : {bad, std::string("/tmp/missing.json"), std::string("/tmp")}) {
    EXPECT_FALSE(start(path.c_str()));
    EXPECT_EQ(log->take(),
              (Lines{kDetected, {4, "motion sdk: load config(" + path + ") failed\n"}}));
    EXPECT_EQ(service::deployment(), service::kNotInitial);
  }
  EXPECT_THAT(bus.seen().factoryDocuments, IsEmpty());
  EXPECT_FALSE(exists(hostProfilePath()));

  const auto second = std::make_shared<LogLines>();
  service->attachLoggerCallback(
      [second](std::uint32_t level, const char* text, int) { second->add(level, text); });
  ASSERT_TRUE(start());
  EXPECT_THAT(log->take(), IsEmpty()) << "its callback was replaced after the failure";
  EXPECT_EQ(second->take(), (Lines{kDetected, profileLine("(auto)"), initializedLine()}));
}

TEST_F(ServiceOnHost, SectionsAreSelectedByPath) {
  const std::string text = R"({"lowLevel": {"leaseTimeout": 5, "list": [10, 20]}, "a": "b"})";
  const auto path = writeFile("/tmp/config.json", text);
  ASSERT_TRUE(start(path.c_str()));
  EXPECT_EQ(log->take().back(), initializedLine(path));
  EXPECT_EQ(service::section(nullptr), json(text));
  EXPECT_EQ(service::section(""), json(text));
  EXPECT_EQ(service::section("lowLevel.leaseTimeout"), 5);
  EXPECT_EQ(service::section("lowLevel.list[1]"), 20);
  for (const char* missing :
       {"x", "lowLevel.x", "a.b", "lowLevel.list[7]", "[0]", "a[0]", "a..b"}) {
    EXPECT_TRUE(service::section(missing).isNull()) << missing;
  }
  for (const char* malformed : {"%", "[%]", "[", "]", "a[", "[99999999999999999999]"}) {
    EXPECT_NO_THROW(static_cast<void>(service::section(malformed))) << malformed;
  }
  service->shutdown();
  EXPECT_TRUE(service::section("lowLevel").isNull());

  ASSERT_TRUE(start(writeFile("/tmp/list.json", "[1, 2]").c_str()));
  EXPECT_TRUE(service::section("lowLevel").isNull());
  for (const char* noFile : {static_cast<const char*>(nullptr), "", "0", "-"}) {
    service->shutdown();
    ASSERT_TRUE(start(noFile));
    EXPECT_TRUE(service::section(nullptr).isNull());
  }
}

// --- host profile ---

TEST_F(ServiceOnHost, TheInterfaceGoesIntoTheProfileAsItIsAndOutlivesShutdown) {
  writeFile(hostProfilePath(), std::string(100'000, 'x'));  // left over; replaced
  service->setNetworkInterface("eth0");
  service->setNetworkInterface("wlan\"<0>");
  for (int run = 0; run < 2; ++run) {
    ASSERT_TRUE(start());
    EXPECT_EQ(contentOf(hostProfilePath()),
              profileText("      <Interfaces>\n"
                          "        <NetworkInterface name=\"wlan\"<0>\" priority=\"3\" "
                          "multicast=\"default\" presence_required=\"true\" />\n"
                          "      </Interfaces>\n"));
    const auto refusal = captureOutput();
    service->setNetworkInterface("eth9");
    EXPECT_EQ(refusal(), "setNetworkInterface must be called before initial\n");
    service->shutdown();
  }
  EXPECT_EQ(log->take().at(1), profileLine("wlan\"<0>"));
}

TEST_F(ServiceOnHost, APlantedProfileIsNeverWrittenThrough) {
  const char* const victim = "/tmp/victim";
  const std::string ours = hostProfilePath();
  const char* const path = ours.c_str();
  writeFile(victim, "precious");
  const auto refusedFor = [&](int planted, const std::string& reason) {
    ASSERT_EQ(planted, 0);
    EXPECT_TRUE(start()) << "only the DDS layer goes without";
    EXPECT_EQ(log->take(),
              (Lines{kDetected,
                     {4, "create host dds profile(" + ours + ") failed: " + reason + "\n"},
                     {4, "render host dds profile failed, abort dds init\n"},
                     initializedLine()}));
    EXPECT_EQ(bus.seen().factoryDocuments.back(), Json::Value());
    stop();
    EXPECT_EQ(std::remove(path), 0) << "not the service's to remove";
  };
  refusedFor(::symlink(victim, path), "Too many levels of symbolic links");
  refusedFor(::symlink("/tmp/nothing", path), "Too many levels of symbolic links");
  refusedFor(::link(victim, path), "Too many links");
  refusedFor(::mkfifo(path, 0666), "No such device or address");
  refusedFor(::mkdir(path, 0777), "Is a directory");
  EXPECT_EQ(contentOf(victim), "precious");

  if (::geteuid() != 0) GTEST_SKIP() << "only root can plant a file of another user";
  writeFile(ours, "precious");
  ASSERT_EQ(::chown(path, 65534, 65534), 0);
  EXPECT_TRUE(start());
  EXPECT_EQ(contentOf(ours), "precious");
  EXPECT_EQ(std::remove(path), 0);
}

// --- setters, factories ---

TEST_F(ServiceOnHost, CallbacksAreRefusedOnceInitialed) {
  ASSERT_TRUE(start());
  log->take();
  const auto output = captureOutput();
  service->attachLoggerCallback([](std::uint32_t, const char*, int) { ADD_FAILURE(); });
  service->attachRobotDiscoverCallback([](const std::string&, const std::string&) {});
  EXPECT_EQ(
      output(),
      "attach logger callback before initial\nattach robot discover callback before initial\n");
  EXPECT_FALSE(service->discoverRobotDevice(10));
  EXPECT_EQ(log->take(), (Lines{{4, "discover robot device,discover callback must valid\n"}}));
}

TEST_F(ServiceOnHost, ClientsAreMadePerDeviceId) {
  const auto before = captureOutput();
  EXPECT_EQ(IMotionHighLevelClient::create(true), nullptr);
  EXPECT_EQ(IMotionHighLevelClient::create("robot"), nullptr);
  EXPECT_EQ(before(), "motion sdk service not initial\nmotion sdk service not initial\n");

  ASSERT_TRUE(start());
  log->take();
  const auto output = captureOutput();
  EXPECT_EQ(IMotionHighLevelClient::create(false), nullptr);
  EXPECT_EQ(IMotionHighLevelClient::create(""), nullptr);
  EXPECT_EQ(IMotionHighLevelClient::create(static_cast<const char*>(nullptr)), nullptr);
  const auto first = IMotionHighLevelClient::create("robot");
  const auto second = IMotionHighLevelClient::create(std::string("robot"));
  EXPECT_EQ(output(),
            "high level create(asMaster) only for local board, external please use "
            "create(deviceId)\n"
            "high level sdk must have deviceId,please use discover scan device info\n"
            "high level sdk must have deviceId,please use discover scan device info\n");
  EXPECT_TRUE(first != nullptr && second != nullptr && first != second);
}

TEST_F(ServiceOnHost, LowLevelClientsAreMadeAsManyAsAskedFor) {
  scripted::CapturedLog before;
  EXPECT_EQ(IMotionLowLevelClient::create(), nullptr);
  EXPECT_EQ(before.take(),
            (Lines{{4, "native low level control only supported on local board deployment\n"}}));

  ASSERT_TRUE(start());
  log->take();
  const auto first = IMotionLowLevelClient::create();
  const auto second = IMotionLowLevelClient::create();
  EXPECT_TRUE(first != nullptr && second != nullptr && first != second);
  EXPECT_EQ(log->take(), Lines{});
}

// --- threads and callbacks ---

TEST_F(ServiceOnHost, AccessorsAnswerWhileInitialRuns) {
  std::future<std::string> answers;
  service->attachLoggerCallback([&](std::uint32_t, const char*, int) {
    if (answers.valid()) return;
    // initial() waits in this callback, so an accessor that waited for it would never answer.
    answers = std::async(std::launch::async, [this] {
      static_cast<void>(service::section("x"));
      return std::to_string(service::deployment()) + service::applicationServiceName(true) +
             (service->isMultiDevice() ? " multi " : " single ") +
             (service::rpcClient("robotServer") == nullptr ? "none" : "some");
    });
    EXPECT_EQ(answers.wait_for(std::chrono::seconds(30)), std::future_status::ready);
  });
  ASSERT_TRUE(start());
  EXPECT_EQ(answers.get(), "-1robotAppService multi none");
}

TEST_F(ServiceOnHost, ALoggerCallbackThatCallsTheSdkOrThrowsHarmsNothing) {
  int calls = 0;
  const auto output = captureOutput();
  service->attachLoggerCallback([&](std::uint32_t, const char*, int) {
    ++calls;
    EXPECT_FALSE(service->initial(nullptr, "inner", 0));
    EXPECT_FALSE(service->discoverRobotDevice(1));
    static_cast<void>(IMotionLowLevelClient::create());
    service->shutdown();
    throw std::runtime_error("from the application");
  });
  EXPECT_TRUE(start());
  EXPECT_EQ(calls, 3);
  EXPECT_EQ(service::clientId(), "probe");
  EXPECT_THAT(output(), StartsWith("shutdown must not be called from inside an sdk callback\n"));
}

TEST_F(ServiceOnHost, OperationsOfManyThreadsDoNotMixUp) {
  service->attachRobotDiscoverCallback([](const std::string&, const std::string&) {});
  const std::function<void()> operations[] = {
      [this] { EXPECT_TRUE(start()); }, [this] { service->shutdown(); },
      [this] { service->discoverRobotDevice(1); },
      [this] { static_cast<void>(service::rpcClient("robotServer")); },
      [this] {
        bus.inject("robotServer", "robotServer.discoverDevice.response",
                   json(R"({"deviceNo":"x"})"));
      }};
  std::vector<std::thread> threads;
  for (const auto& operation : operations) {
    threads.emplace_back([&operation] {
      for (int round = 0; round < 50; ++round) operation();
    });
  }
  for (auto& thread : threads) thread.join();
  service->shutdown();
  EXPECT_FALSE(exists(hostProfilePath()));
  EXPECT_EQ(bus.seen().factoryDocuments.size(), bus.seen().factoryShutdowns);
}

}  // namespace
}  // namespace service_test
