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

/// The application: what it leaves behind is destroyed by exit(), in the order it likes least.
class Application {
 public:
  Application() {
    ::alarm(60);  // a hang ends the process with a signal
    if (!service()->initial(nullptr, "probe", 0) || profilesLeft() != 1) std::_Exit(3);
  }
  static IMotionSdkService* service() { return IMotionSdkService::instance(); }
  static std::shared_ptr<IMotionHighLevelClient> connectedClient() {
    auto client = IMotionHighLevelClient::create("robot");
    if (client == nullptr || !client->connect(0)) std::_Exit(4);
    return client;
  }

 private:
  scripted::Bus bus_;
};

class ServiceAtExit : public testing::Test {
 protected:
  ServiceAtExit() { GTEST_FLAG_SET(death_test_style, "threadsafe"); }
  ~ServiceAtExit() override { EXPECT_EQ(profilesLeft(), 0U); }
};

TEST_F(ServiceAtExit, EndsWithoutShutdown) {
  EXPECT_EXIT(
      {
        const Application application;
        std::exit(0);
      },
      testing::ExitedWithCode(0), "");
}

TEST_F(ServiceAtExit, EndsWithAClientInAnOlderStatic) {
  EXPECT_EXIT(
      {
        static std::shared_ptr<IMotionHighLevelClient>
            client;  // destroyed behind the service's exit
        const Application application;
        client = Application::connectedClient();
        std::exit(0);
      },
      testing::ExitedWithCode(0), "");
}

TEST_F(ServiceAtExit, EndsWithAClientInAYoungerStatic) {
  EXPECT_EXIT(
      {
        const Application application;
        static const auto client = Application::connectedClient();  // destroyed before it
        std::exit(0);
      },
      testing::ExitedWithCode(0), "");
}

TEST_F(ServiceAtExit, EndsAfterShutdownWithAConnectedClient) {
  EXPECT_EXIT(
      {
        const Application application;
        static const auto client = Application::connectedClient();
        Application::service()->shutdown();
        std::exit(0);
      },
      testing::ExitedWithCode(0), "");
}

TEST_F(ServiceAtExit, EndsInsideACallback) {
  EXPECT_EXIT(
      {
        Application::service()->attachRobotDiscoverCallback(
            [](const std::string&, const std::string&) { std::exit(0); });
        ::alarm(60);
        scripted::Bus bus;
        if (!Application::service()->initial(nullptr, "probe", 0)) std::_Exit(3);
        if (!Application::service()->discoverRobotDevice(1000)) std::_Exit(4);
        bus.inject("robotServer", "robotServer.discoverDevice.response",
                   json(R"({"deviceNo": "x"})"));
        std::_Exit(5);
      },
      testing::ExitedWithCode(0), "");
}

TEST_F(ServiceAtExit, AForkedChildLeavesItsParentsFilesAlone) {
  scripted::Bus bus;
  auto* const service = Application::service();
  ASSERT_TRUE(service->initial(nullptr, "probe", 0));
  GTEST_FLAG_SET(death_test_style, "fast");  // a plain fork
  EXPECT_EXIT(std::exit(0), testing::ExitedWithCode(0), "");
  EXPECT_EQ(profilesLeft(), 1U);
  service->shutdown();
}

}  // namespace
}  // namespace service_test
