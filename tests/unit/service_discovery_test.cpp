// Discovery on the virtual clock, against a scripted event bus.

#include <gmock/gmock.h>

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
constexpr char kRequest[] = "robotServer.discoverDevice.request";
constexpr char kResponse[] = "robotServer.discoverDevice.response";
const LogLine kPublishFailed{4, "publish request discover robot device failed,please retry\n"};

std::string now(std::uint64_t plus = 0) {
  return std::to_string(Pexal::PBase::CTime::getCurrentMilliSecond() + plus);
}

LogLine started(std::uint32_t windowMs) {
  return {1, "start new discover window: " + std::to_string(windowMs) +
                 "ms (overAt=" + now(windowMs) + ")\n"};
}

LogLine extended(std::uint32_t windowMs) {
  return {1, "extend discover window by " + std::to_string(windowMs) +
                 "ms (overAt=" + now(windowMs) + ")\n"};
}

class Discovery : public ServiceTest {
 protected:
  using Found = std::vector<std::pair<std::string, std::string>>;

  void SetUp() override {
    attach();
    ASSERT_TRUE(start());
    log->take();
  }
  void TearDown() override { service->shutdown(); }  // while the bus lives

  void attach() {
    service->attachLoggerCallback(log->callback(log));
    service->attachRobotDiscoverCallback(
        [this](const std::string& deviceNo, const std::string& detail) {
          found.emplace_back(deviceNo, detail);
        });
  }
  void respond(const std::string& payload) { bus.inject(kServer, kResponse, json(payload)); }
  [[nodiscard]] std::vector<std::uint32_t> publishedWindows() const {
    std::vector<std::uint32_t> windows;
    for (const auto& event : bus.published()) {
      EXPECT_EQ(event.server, kServer);
      EXPECT_EQ(event.topic, kRequest);
      EXPECT_TRUE(event.payload.isNull());
      windows.push_back(event.openMs);
    }
    return windows;
  }

  Pexal::PBase::VirtualClock clock;
  scripted::Bus bus;
  Found found;
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
  EXPECT_THAT(publishedWindows(), ElementsAre(1000, 600, 600, 900, 50));
}

TEST_F(Discovery, ResponsesCountUpToTheEndMomentOfTheWindow) {
  respond(R"({"deviceNo": "early"})");
  ASSERT_TRUE(service->discoverRobotDevice(300));
  clock.advance(300);
  respond(R"({"deviceNo": "last"})");
  respond(R"({"deviceNo": "last"})");
  clock.advance(1);
  respond(R"({"deviceNo": "late"})");
  EXPECT_EQ(found, (Found{{"last", ""}, {"last", ""}}));
}

TEST_F(Discovery, TheWidestWindowDoesNotWrap) {
  ASSERT_TRUE(service->discoverRobotDevice(0xffffffffU));
  EXPECT_THAT(publishedWindows(), ElementsAre(0xffffffffU));
  clock.advance(3'600'000);
  respond(R"({"deviceNo": "patient"})");
  EXPECT_EQ(found.size(), 1U);
}

TEST_F(Discovery, ResponsesWithoutAUsableDeviceNumberAreDropped) {
  ASSERT_TRUE(service->discoverRobotDevice(100));
  for (const char* payload :
       {"null", "[]", "[{\"deviceNo\": \"x\"}]", "7", "\"deviceNo\"", "true", "{}",
        R"({"deviceNo": ""})", R"({"deviceNo": 7})", R"({"deviceNo": null})",
        R"({"deviceNo": ["x"]})", R"({"deviceNo": {"deviceNo": "x"}})", R"({"DeviceNo": "x"})"}) {
    respond(payload);
  }
  EXPECT_THAT(found, IsEmpty());
}

TEST_F(Discovery, DetailsArePrintedCompactAndEmptyOnesAsNothing) {
  ASSERT_TRUE(service->discoverRobotDevice(100));
  const std::vector<std::pair<std::string, std::string>> cases{
      {"null", ""},
      {"{}", ""},
      {"[]", ""},
      {R"({"b": [1, 2]})", R"({"b":[1,2]})"},
      {R"("text")", R"("text")"},
      {"5", "5"},
      {"false", "false"}};
  Found expected;
  for (const auto& [detail, text] : cases) {
    respond(R"({"deviceNo": "x", "detail": )" + detail + "}");
    expected.emplace_back("x", text);
  }
  EXPECT_EQ(found, expected);
}

TEST_F(Discovery, AFailedPublishPutsTheWindowBack) {
  bus.setPublishResult(false);
  const auto opened = started(500);
  EXPECT_FALSE(service->discoverRobotDevice(500));
  EXPECT_THAT(log->take(), ElementsAre(opened, kPublishFailed));
  respond(R"({"deviceNo": "x"})");
  EXPECT_THAT(found, IsEmpty()) << "no window";

  bus.setPublishResult(true);
  ASSERT_TRUE(service->discoverRobotDevice(100));
  bus.setPublishResult(false);
  EXPECT_FALSE(service->discoverRobotDevice(500));
  clock.advance(101);
  respond(R"({"deviceNo": "x"})");
  EXPECT_THAT(found, IsEmpty()) << "the window was not extended";
}

TEST_F(Discovery, IsRefusedWhenNotInitialedWithoutBusOrWithoutCallback) {
  service->shutdown();
  attach();
  const auto refusalOf = [this] {
    log->take();
    EXPECT_FALSE(service->discoverRobotDevice(100));
    auto lines = log->take();
    return lines.empty() ? LogLine{0, "silent"} : lines.back();
  };
  // A failed attempt leaves the logger callback in place, so that the refusal can be seen.
  ASSERT_FALSE(service->initial("/tmp/missing.json", "probe", 0));
  EXPECT_EQ(refusalOf(), (LogLine{4, "motion sdk service not initial ,not support discover\n"}));

  bus.setEventBusAvailable(false);
  ASSERT_TRUE(start());
  EXPECT_EQ(refusalOf(), (LogLine{4, "motion sdk service initialed ,not support discover\n"}));

  service->shutdown();
  bus.setEventBusAvailable(true);
  service->attachLoggerCallback(log->callback(log));
  ASSERT_TRUE(start());
  EXPECT_EQ(refusalOf(), (LogLine{4, "discover robot device,discover callback must valid\n"}));
  EXPECT_THAT(publishedWindows(), IsEmpty());
}

TEST_F(Discovery, NothingIsHeardWithoutACallback) {
  service->shutdown();
  const auto before = bus.subscriptions().size();
  ASSERT_TRUE(start());
  EXPECT_EQ(bus.subscriptions().size(), before);
}

TEST_F(Discovery, AfterShutdownResponsesAreDroppedAndAfterANewStartEachArrivesOnce) {
  ASSERT_TRUE(service->discoverRobotDevice(1000));
  service->shutdown();
  respond(R"({"deviceNo": "late"})");
  EXPECT_THAT(found, IsEmpty());

  attach();
  ASSERT_TRUE(start());
  respond(R"({"deviceNo": "unasked"})");
  EXPECT_THAT(found, IsEmpty()) << "the former window ended with shutdown";
  ASSERT_TRUE(service->discoverRobotDevice(1000));
  respond(R"({"deviceNo": "once"})");
  EXPECT_EQ(found, (Found{{"once", ""}}));
}

TEST_F(Discovery, ACallbackMayThrowAndCallTheService) {
  service->shutdown();
  service->attachLoggerCallback(log->callback(log));
  service->attachRobotDiscoverCallback([this](const std::string& deviceNo, const std::string&) {
    found.emplace_back(deviceNo, service->isMultiDevice() ? "multi" : "single");
    EXPECT_TRUE(service->discoverRobotDevice(2000));
    service->shutdown();  // refused: it would wait for this callback
    throw std::runtime_error("no");
  });
  StandardOutput output;
  ASSERT_TRUE(start());
  ASSERT_TRUE(service->discoverRobotDevice(1000));
  respond(R"({"deviceNo": "a"})");
  clock.advance(1500);
  respond(R"({"deviceNo": "b"})");
  EXPECT_EQ(found, (Found{{"a", "multi"}, {"b", "multi"}})) << "extended from inside";
  EXPECT_EQ(bus.factoryShutdowns(), 1U);
}

TEST_F(Discovery, ACallbackKeepsItsOwnState) {
  service->shutdown();
  std::vector<int> counts;
  service->attachRobotDiscoverCallback(
      [&counts, count = 0](const std::string&, const std::string&) mutable {
        counts.push_back(++count);
      });
  ASSERT_TRUE(start());
  ASSERT_TRUE(service->discoverRobotDevice(1000));
  for (int i = 0; i < 3; ++i) respond(R"({"deviceNo": "a"})");
  EXPECT_THAT(counts, ElementsAre(1, 2, 3));
}

}  // namespace
}  // namespace service_test
