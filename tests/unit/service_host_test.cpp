// The service on an external host: start and stop, configuration, profile, setters, factories.

#include <gmock/gmock.h>
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
using testing::HasSubstr;
using testing::IsEmpty;
using Lines = std::vector<LogLine>;

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
  scripted::Bus bus;
};

// --- start and stop ---

TEST_F(ServiceOnHost, StartsWithProfileAndDocumentAndLeavesNothingBehind) {
  ASSERT_TRUE(start());
  EXPECT_EQ(log->take(), (Lines{kDetected, profileLine("(auto)"), initializedLine()}));
  EXPECT_EQ(contentOf(hostProfilePath()), profileText(""));
  EXPECT_THAT(bus.factoryDocuments(), ElementsAre(json(R"({
      "domain": [{"name": "host", "domain": 42, "url": ")" +
                                                       hostProfilePath() + R"("}],
      "client": [{"server": "cerebellumServer", "domain": "host"},
                 {"server": "robotServer", "domain": "host"}],
      "eventBus": [{"topics": 16, "withService": true, "withClient": true,
                    "workers": {"count": 2, "task": 16},
                    "server": "robotServer", "domain": "host"}]})")));
  EXPECT_TRUE(service->isMultiDevice());
  EXPECT_EQ(bus.factoryShutdowns(), 0U);

  service->shutdown();
  EXPECT_EQ(bus.factoryShutdowns(), 1U);
  EXPECT_FALSE(exists(hostProfilePath()));
  EXPECT_THAT(log->take(), IsEmpty()) << "the sink is gone before the last line";
  service->shutdown();
  EXPECT_EQ(bus.factoryShutdowns(), 1U);
}

TEST_F(ServiceOnHost, WritesToTheConsoleOnlyWithoutALoggerCallback) {
  StandardOutput silent;
  ASSERT_TRUE(start());
  EXPECT_EQ(silent.text(), "");
  service->shutdown();  // takes the callback with it

  StandardOutput console;
  ASSERT_TRUE(start());
  service->shutdown();
  const std::string text = console.text();
  EXPECT_THAT(text, HasSubstr("motion sdk platform detected: 1 brain domain=-1,cere domain=42\n"));
  EXPECT_THAT(text, HasSubstr("clientId=probe"));
  EXPECT_THAT(text, HasSubstr("motion sdk service shutdown\n"));
}

TEST_F(ServiceOnHost, ASecondInitialChangesNothing) {
  ASSERT_TRUE(start());
  log->take();
  EXPECT_TRUE(service->initial("/tmp/no such file", "other", 7));
  EXPECT_THAT(log->take(), IsEmpty());
  EXPECT_EQ(bus.factoryDocuments().size(), 1U);
  EXPECT_EQ(service::clientId(), "probe");
}

TEST_F(ServiceOnHost, TheNameIsMotionSdkWhenNoneIsGiven) {
  ASSERT_TRUE(service->initial(nullptr, nullptr, 0));
  EXPECT_EQ(service::clientId(), "motionSdk");
}

TEST_F(ServiceOnHost, AMissingDdsLayerDoesNotFailInitial) {
  bus.setFactoryResult(false);
  bus.setEventBusAvailable(false);
  ASSERT_TRUE(start());
  EXPECT_EQ(log->take(), (Lines{kDetected,
                                profileLine("(auto)"),
                                {5, "discover robot device is null\n"},
                                initializedLine()}));
}

// --- configuration ---

TEST_F(ServiceOnHost, SomePathsMeanNoConfigurationFile) {
  for (const char* path : {static_cast<const char*>(nullptr), "", "0", "-"}) {
    ASSERT_TRUE(service->initial(path, "probe", 0));
    EXPECT_TRUE(service::section(nullptr).isNull());
    service->shutdown();
  }
}

TEST_F(ServiceOnHost, AFailedLoadFailsInitialAndTheNextOneRegistersTheSinkOnce) {
  const auto bad = writeFile("/tmp/bad.json", "{\"lowLevel\": ");
  for (const auto& path : {bad, std::string("/tmp/missing.json"), std::string("/tmp")}) {
    EXPECT_FALSE(service->initial(path.c_str(), "probe", 0));
    EXPECT_EQ(log->take(),
              (Lines{kDetected, {4, "motion sdk: load config(" + path + ") failed\n"}}));
    EXPECT_EQ(service::deployment(), service::kNotInitial);
  }
  EXPECT_THAT(bus.factoryDocuments(), IsEmpty());
  EXPECT_FALSE(exists(hostProfilePath()));

  ASSERT_TRUE(start());
  EXPECT_EQ(log->take(), (Lines{kDetected, profileLine("(auto)"), initializedLine()}));
}

TEST_F(ServiceOnHost, ACallbackReplacedAfterAFailureGetsTheLines) {
  EXPECT_FALSE(service->initial("/tmp/missing.json", "probe", 0));
  log->take();
  const auto second = std::make_shared<LogLines>();
  service->attachLoggerCallback(second->callback(second));
  ASSERT_TRUE(start());
  EXPECT_THAT(log->take(), IsEmpty());
  EXPECT_EQ(second->take().size(), 3U);
}

TEST_F(ServiceOnHost, SectionsAreSelectedByPath) {
  const std::string text = R"({"lowLevel": {"leaseTimeout": 5, "list": [10, 20]}, "a": "b"})";
  const auto path = writeFile("/tmp/config.json", text);
  ASSERT_TRUE(service->initial(path.c_str(), "probe", 0));
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
}

TEST_F(ServiceOnHost, ASectionOfADocumentThatIsNoObjectIsNull) {
  ASSERT_TRUE(service->initial(writeFile("/tmp/list.json", "[1, 2]").c_str(), "probe", 0));
  EXPECT_TRUE(service::section("lowLevel").isNull());
  EXPECT_EQ(service::section("[1]"), 2);
}

// --- host profile ---

TEST_F(ServiceOnHost, TheInterfaceGoesIntoTheProfileAsItIs) {
  service->setNetworkInterface("eth0");
  service->setNetworkInterface("wlan\"<0>");
  ASSERT_TRUE(start());
  EXPECT_EQ(log->take().at(1), profileLine("wlan\"<0>"));
  EXPECT_EQ(contentOf(hostProfilePath()),
            profileText("      <Interfaces>\n"
                        "        <NetworkInterface name=\"wlan\"<0>\" priority=\"3\" "
                        "multicast=\"default\" presence_required=\"true\" />\n"
                        "      </Interfaces>\n"));
}

TEST_F(ServiceOnHost, AnOwnLeftOverProfileIsReplaced) {
  writeFile(hostProfilePath(), std::string(100'000, 'x'));
  ASSERT_TRUE(start());
  EXPECT_EQ(contentOf(hostProfilePath()), profileText(""));
}

struct Planted {
  const char* what;
  int (*plant)(const char* path);
  const char* reason;
};

constexpr char kVictim[] = "/tmp/victim";

class ServiceWithPlantedProfile : public ServiceOnHost,
                                  public testing::WithParamInterface<Planted> {};

TEST_P(ServiceWithPlantedProfile, IsNeverWrittenThrough) {
  writeFile(kVictim, "precious");
  ASSERT_EQ(GetParam().plant(hostProfilePath().c_str()), 0);
  EXPECT_TRUE(start()) << "only the DDS layer goes without";
  EXPECT_EQ(log->take(), (Lines{kDetected,
                                {4, "create host dds profile(" + hostProfilePath() +
                                        ") failed: " + GetParam().reason + "\n"},
                                {4, "render host dds profile failed, abort dds init\n"},
                                initializedLine()}));
  EXPECT_THAT(bus.factoryDocuments(), ElementsAre(Json::Value()));
  EXPECT_EQ(contentOf(kVictim), "precious");
  service->shutdown();
  struct stat status {};
  EXPECT_EQ(::lstat(hostProfilePath().c_str(), &status), 0) << "not ours to remove";
  ASSERT_EQ(std::remove(hostProfilePath().c_str()), 0);
  ASSERT_EQ(std::remove(kVictim), 0);
}

INSTANTIATE_TEST_SUITE_P(
    ByKind, ServiceWithPlantedProfile,
    testing::Values(Planted{"link", [](const char* path) { return ::symlink(kVictim, path); },
                            "Too many levels of symbolic links"},
                    Planted{"danglingLink",
                            [](const char* path) { return ::symlink("/tmp/nothing", path); },
                            "Too many levels of symbolic links"},
                    Planted{"secondName", [](const char* path) { return ::link(kVictim, path); },
                            "Too many links"},
                    Planted{"fifo", [](const char* path) { return ::mkfifo(path, 0666); },
                            "No such device or address"},
                    Planted{"directory", [](const char* path) { return ::mkdir(path, 0777); },
                            "Is a directory"}),
    [](const auto& planted) { return planted.param.what; });

TEST_F(ServiceOnHost, AFileOfAnotherUserIsNotEmptied) {
  if (::geteuid() != 0) GTEST_SKIP() << "only root can plant it";
  writeFile(hostProfilePath(), "precious");
  ASSERT_EQ(::chown(hostProfilePath().c_str(), 65534, 65534), 0);
  EXPECT_TRUE(start());
  EXPECT_THAT(bus.factoryDocuments(), ElementsAre(Json::Value()));
  EXPECT_EQ(contentOf(hostProfilePath()), "precious");
  ASSERT_EQ(std::remove(hostProfilePath().c_str()), 0);
}

// --- setters ---

TEST_F(ServiceOnHost, SettersAreRefusedOnceInitialed) {
  service->setNetworkInterface("lo");
  ASSERT_TRUE(start());
  log->take();
  StandardOutput output;
  service->setNetworkInterface("eth9");
  service->attachLoggerCallback([](std::uint32_t, const char*, int) { ADD_FAILURE(); });
  service->attachRobotDiscoverCallback([](const std::string&, const std::string&) {});
  EXPECT_EQ(output.text(),
            "setNetworkInterface must be called before initial\n"
            "attach logger callback before initial\n"
            "attach robot discover callback before initial\n");
  EXPECT_FALSE(service->discoverRobotDevice(10));
  EXPECT_THAT(log->take(),
              ElementsAre(LogLine{4, "discover robot device,discover callback must valid\n"}));

  service->shutdown();
  service->attachLoggerCallback(log->callback(log));
  ASSERT_TRUE(start());
  EXPECT_EQ(log->take().at(1), profileLine("lo")) << "the interface outlives shutdown, unchanged";
}

// --- accessors, factories ---

TEST_F(ServiceOnHost, EndpointsExistOnlyWhileInitialed) {
  EXPECT_EQ(service::rpcClient("robotServer"), nullptr);
  EXPECT_EQ(service::eventBus("robotServer"), nullptr);
  ASSERT_TRUE(start());
  EXPECT_EQ(service::deployment(), service::kExternalHost);
  EXPECT_NE(service::rpcClient("robotServer"), nullptr);
  EXPECT_NE(service::eventBus("robotServer"), nullptr);
  EXPECT_EQ(service::rpcClient(""), nullptr);
  EXPECT_EQ(service::applicationServiceName(true), "robotAppService");
  EXPECT_EQ(service::applicationServiceName(false), "robotAppService");
  service->shutdown();
  EXPECT_EQ(service::rpcClient("robotServer"), nullptr);
  EXPECT_EQ(bus.rpcClientsAsked("robotServer"), 1U);
}

TEST_F(ServiceOnHost, ClientsAreMadePerDeviceId) {
  StandardOutput before;
  EXPECT_EQ(IMotionHighLevelClient::create(true), nullptr);
  EXPECT_EQ(IMotionHighLevelClient::create("robot"), nullptr);
  EXPECT_EQ(before.text(), "motion sdk service not initial\nmotion sdk service not initial\n");

  ASSERT_TRUE(start());
  StandardOutput output;
  EXPECT_EQ(IMotionHighLevelClient::create(false), nullptr);
  EXPECT_EQ(IMotionHighLevelClient::create(""), nullptr);
  EXPECT_EQ(IMotionHighLevelClient::create(static_cast<const char*>(nullptr)), nullptr);
  const auto first = IMotionHighLevelClient::create("robot");
  const auto second = IMotionHighLevelClient::create(std::string("robot"));
  EXPECT_EQ(output.text(),
            "high level create(asMaster) only for local board, external please use "
            "create(deviceId)\n"
            "high level sdk must have deviceId,please use discover scan device info\n"
            "high level sdk must have deviceId,please use discover scan device info\n");
  EXPECT_NE(first, nullptr);
  EXPECT_NE(second, nullptr);
  EXPECT_NE(first, second);
}

TEST_F(ServiceOnHost, DisabledFactoriesSaySo) {
  ASSERT_TRUE(start());
  log->take();
  EXPECT_EQ(IMotionLowLevelClient::create(), nullptr);
  EXPECT_EQ(service::createMediaBusClient(), nullptr);
  EXPECT_THAT(
      log->take(),
      ElementsAre(LogLine{4, "native low level control only supported on local board deployment\n"},
                  LogLine{4, "media bus client is not enabled in this SDK build\n"}));
}

TEST(ServiceVersion, IsFixed) {
  EXPECT_STREQ(IMotionSdkService::version(), "1.0.0 (commit a66e0f52)");
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
  StandardOutput output;
  service->attachLoggerCallback([&](std::uint32_t, const char*, int) {
    ++calls;
    EXPECT_FALSE(service->initial(nullptr, "inner", 0));
    EXPECT_FALSE(service->discoverRobotDevice(1));
    EXPECT_EQ(IMotionLowLevelClient::create(), nullptr);
    service->shutdown();
    throw std::runtime_error("from the application");
  });
  EXPECT_TRUE(start());
  EXPECT_EQ(calls, 3);
  EXPECT_EQ(service::clientId(), "probe");
}

TEST_F(ServiceOnHost, OperationsOfManyThreadsDoNotMixUp) {
  service->attachRobotDiscoverCallback([](const std::string&, const std::string&) {});
  std::vector<std::thread> threads;
  for (int i = 0; i < 4; ++i) {
    threads.emplace_back([this, i] {
      for (int round = 0; round < 50; ++round) {
        if (i == 0) {
          EXPECT_TRUE(service->initial(nullptr, "probe", 0));
        } else if (i == 1) {
          service->shutdown();
        } else {
          static_cast<void>(service->discoverRobotDevice(1));
          static_cast<void>(service::rpcClient("robotServer"));
          bus.inject("robotServer", "robotServer.discoverDevice.response",
                     json(R"({"deviceNo":"x"})"));
        }
      }
    });
  }
  for (auto& thread : threads) thread.join();
  service->shutdown();
  EXPECT_FALSE(exists(hostProfilePath()));
  EXPECT_EQ(bus.factoryDocuments().size(), bus.factoryShutdowns());
}

}  // namespace
}  // namespace service_test
