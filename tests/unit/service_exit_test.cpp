// The process ends while the service still runs: no crash, no hang, no file left.

#include <glob.h>

#include <cstdlib>

#include "scripted/ScriptedBus.h"
#include "service_support.h"

namespace service_test {
namespace {

using namespace orvane::RobotSdk;

std::size_t profilesLeft() {
  glob_t found{};
  const int result = ::glob("/tmp/motion_sdk_host_*.xml", 0, nullptr, &found);
  const std::size_t count = result == 0 ? found.gl_pathc : 0;
  ::globfree(&found);
  return count;
}

IMotionSdkService* startedService() {
  ::alarm(60);  // a hang ends the process with a signal
  auto* const service = IMotionSdkService::instance();
  const std::size_t strangers = profilesLeft();  // of applications that were killed
  if (!service->initial(nullptr, "probe", 0) || profilesLeft() != strangers + 1) std::_Exit(3);
  return service;
}

// The applications: what they leave behind is destroyed by exit(), in the order it likes least.

void endsWithoutShutdown() {
  startedService();
}

void endsWithAClientThatIsDestroyedBeforeIt() {
  startedService();
  static const auto younger = IMotionHighLevelClient::create("robot");
  if (younger == nullptr || !younger->connect(0)) std::_Exit(4);
}

void endsInsideACallback(scripted::Bus& bus) {
  IMotionSdkService::instance()->attachRobotDiscoverCallback(
      [](const std::string&, const std::string&) { std::exit(0); });
  if (!startedService()->discoverRobotDevice(1000)) std::_Exit(5);
  bus.inject("robotServer", "robotServer.discoverDevice.response", json(R"({"deviceNo": "x"})"));
  std::_Exit(6);
}

TEST(ServiceAtExit, EndsWhateverIsLeftAndLeavesNoFile) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  const std::size_t strangers = profilesLeft();
  const auto exitsAfter = [](void (*application)()) {
    const scripted::Bus bus;
    application();
    std::exit(0);
  };
  const auto succeeds = testing::ExitedWithCode(0);
  EXPECT_EXIT(exitsAfter(endsWithoutShutdown), succeeds, "");
  EXPECT_EXIT(exitsAfter(endsWithAClientThatIsDestroyedBeforeIt), succeeds, "");
  EXPECT_EXIT(
      {
        scripted::Bus bus;
        endsInsideACallback(bus);
      },
      succeeds, "");
  EXPECT_EQ(profilesLeft(), strangers);
}

TEST(ServiceAtExit, AForkedChildLeavesItsParentsFilesAlone) {
  const scripted::Bus bus;
  const std::size_t strangers = profilesLeft();
  auto* const service = IMotionSdkService::instance();
  ASSERT_TRUE(service->initial(nullptr, "probe", 0));
  GTEST_FLAG_SET(death_test_style, "fast");  // a plain fork
  EXPECT_EXIT(std::exit(0), testing::ExitedWithCode(0), "");
  EXPECT_EQ(profilesLeft(), strangers + 1);
  service->shutdown();
}

}  // namespace
}  // namespace service_test
