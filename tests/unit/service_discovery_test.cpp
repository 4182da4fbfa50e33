// Discovery on the virtual clock, against a scripted event bus.

#include <stdexcept>

#include "pbase/CTime.h"
#include "pbase/VirtualClock.h"
#include "scripted/ScriptedBus.h"
#include "service_support.h"

namespace service_test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

constexpr char kServer[] = "robotServer";

class Discovery : public ServiceTest {
 protected:
  void SetUp() override { startWith(collect); }
  void TearDown() override { stop(); }  // while the bus lives

  void startWith(const orvane::RobotSdk::RobotDiscoverCallback& callback) {
    stop();
    service->attachRobotDiscoverCallback(callback);
    ASSERT_TRUE(start());
    log->take();
  }
  void respond(const std::string& payload) {
    bus.inject(kServer, "robotServer.discoverDevice.response", json(payload));
  }
  void respondAs(const std::string& deviceNo) { respond(R"({"deviceNo": ")" + deviceNo + "\"}"); }
  [[nodiscard]] std::vector<std::uint32_t> publishedWindows() const {
    std::vector<std::uint32_t> windows;
    for (const auto& event : bus.seen().published) {
      EXPECT_EQ(event.server, kServer);
      EXPECT_EQ(event.topic, "robotServer.discoverDevice.request");
      EXPECT_TRUE(event.payload.isNull());
      windows.push_back(event.openMs);
    }
    return windows;
  }
  static LogLine windowLine(const std::string& begin, std::uint32_t ms) {
    return {1, begin + std::to_string(ms) + "ms (overAt=" +
                   std::to_string(Pexal::PBase::CTime::getCurrentMilliSecond() + ms) + ")\n"};
  }
  static LogLine started(std::uint32_t ms) { return windowLine("start new discover window: ", ms); }
  static LogLine extended(std::uint32_t ms) { return windowLine("extend discover window by ", ms); }

  Pexal::PBase::VirtualClock clock;
  scripted::Bus bus;
  std::vector<std::string> found;  // "deviceNo detail"
  const orvane::RobotSdk::RobotDiscoverCallback collect = [this](const std::string& deviceNo,
                                                                 const std::string& detail) {
    found.push_back(deviceNo + ' ' + detail);
  };
};

TEST_F(Discovery, AWindowOpensExtendsForwardOnlyAndIsPublishedWithWhatIsLeftOfIt) {
  EXPECT_TRUE(service->discoverRobotDevice(1000));
  EXPECT_THAT(log->take(), ElementsAre(started(1000)));
  clock.advance(400);
  EXPECT_TRUE(service->discoverRobotDevice(200));
  EXPECT_TRUE(service->discoverRobotDevice(600)) << "the same end";
  EXPECT_THAT(log->take(), IsEmpty());
  EXPECT_TRUE(service->discoverRobotDevice(900));
  EXPECT_THAT(log->take(), ElementsAre(extended(900)));
  clock.advance(900);
  EXPECT_TRUE(service->discoverRobotDevice(50)) << "over at its end moment: a new window";
  EXPECT_THAT(log->take(), ElementsAre(started(50)));
  EXPECT_TRUE(service->discoverRobotDevice(0xffffffffU)) << "the widest";
  EXPECT_THAT(publishedWindows(), ElementsAre(1000, 600, 600, 900, 50, 0xffffffffU));
}

TEST_F(Discovery, ResponsesCountUpToTheEndMomentOfTheWindow) {
  respondAs("early");
  ASSERT_TRUE(service->discoverRobotDevice(300));
  clock.advance(300);
  respondAs("last");
  respondAs("last");
  clock.advance(1);
  respondAs("late");
  ASSERT_TRUE(service->discoverRobotDevice(0xffffffffU));
  clock.advance(3'600'000);
  respondAs("patient");
  EXPECT_THAT(found, ElementsAre("last ", "last ", "patient "));
}

TEST_F(Discovery, ResponsesAreTakenByTheirDeviceNumberAndTheirDetailPrintedCompact) {
  ASSERT_TRUE(service->discoverRobotDevice(100));
  for (const char* payload :
       {"null", "[]", "[{\"deviceNo\": \"x\"}]", "7", "\"deviceNo\"", "true", "{}",
        R"({"deviceNo": ""})", R"({"deviceNo": 7})", R"({"deviceNo": null})",
        R"({"deviceNo": ["x"]})", R"({"deviceNo": {"deviceNo": "x"}})", R"({"DeviceNo": "x"})"}) {
    respond(payload);
    EXPECT_THAT(std::exchange(found, {}), IsEmpty()) << payload;
  }
  for (const auto& [detail, text] : {std::pair("null", "x "),
                                     {"{}", "x "},
                                     {"[]", "x "},
                                     {R"({"b": [1, 2]})", R"(x {"b":[1,2]})"},
                                     {R"("text")", R"(x "text")"},
                                     {"false", "x false"}}) {
    respond(R"({"deviceNo": "x", "detail": )" + std::string(detail) + "}");
    EXPECT_THAT(std::exchange(found, {}), ElementsAre(text));
  }
}

TEST_F(Discovery, AFailedPublishPutsTheWindowBack) {
  bus.behave({.publish = false});
  EXPECT_FALSE(service->discoverRobotDevice(500));
  EXPECT_THAT(
      log->take(),
      ElementsAre(started(500),
                  LogLine{4, "publish request discover robot device failed,please retry\n"}));
  respondAs("in no window");

  bus.behave({});
  ASSERT_TRUE(service->discoverRobotDevice(100));
  bus.behave({.publish = false});
  EXPECT_FALSE(service->discoverRobotDevice(500)) << "not extended";
  clock.advance(101);
  respondAs("late");
  EXPECT_THAT(found, IsEmpty());
}

TEST_F(Discovery, IsRefusedWhenNotInitialedWithoutBusOrWithoutCallback) {
  const auto refusedWith = [this](const char* line) {
    log->take();
    EXPECT_FALSE(service->discoverRobotDevice(100));
    EXPECT_THAT(log->take(), ElementsAre(LogLine{4, line}));
  };
  stop();
  // A failed attempt leaves the logger callback in place, so that the refusal can be seen.
  ASSERT_FALSE(start("/tmp/missing.json"));
  refusedWith("motion sdk service not initial ,not support discover\n");
  bus.behave({.eventBus = false});
  startWith(collect);
  refusedWith("motion sdk service initialed ,not support discover\n");
  bus.behave({});
  startWith({});
  refusedWith("discover robot device,discover callback must valid\n");
  EXPECT_THAT(publishedWindows(), IsEmpty());
}

TEST_F(Discovery, AWindowEndsWithShutdownAndAfterANewStartEachResponseArrivesOnce) {
  ASSERT_TRUE(service->discoverRobotDevice(1000));
  service->shutdown();
  respondAs("late");
  startWith(collect);
  respondAs("unasked");
  ASSERT_TRUE(service->discoverRobotDevice(1000));
  respondAs("once");
  EXPECT_THAT(found, ElementsAre("once "));
}

TEST_F(Discovery, ACallbackKeepsItsOwnStateAndMayThrowAndCallTheService) {
  startWith([this, calls = 0](const std::string& deviceNo, const std::string&) mutable {
    found.push_back(deviceNo + std::to_string(++calls));
    EXPECT_TRUE(service->discoverRobotDevice(2000));
    service->shutdown();  // refused: it would wait for this callback
    throw std::runtime_error("no");
  });
  const auto output = captureOutput();
  ASSERT_TRUE(service->discoverRobotDevice(1000));
  respondAs("a");
  clock.advance(1500);
  respondAs("b");
  EXPECT_THAT(found, ElementsAre("a1", "b2")) << "extended from inside";
  const std::string refusal = "shutdown must not be called from inside an sdk callback\n";
  EXPECT_EQ(output(), refusal + refusal);
  EXPECT_EQ(log->texts(3, "RobotDiscovery").at(0), " discover callback threw: no\n");
}

}  // namespace
}  // namespace service_test
