// A robot that dies, stands still or loses packets, and strangers on its topics, as a client meets
// them.

#include <gtest/gtest.h>

#include <csignal>
#include <dds/dds.hpp>
#include <future>
#include <memory>
#include <string>

#include "Network.h"
#include "msg/MotionTypes.h"
#include "pbase/Utils.h"
#include "pdbus/IDDSFactory.h"
#include "pdbus/IEventBus.h"
#include "sdk_robot.h"
#include "sdk_support.h"

namespace sdk_test {
namespace {

class FaultyRobot : public testing::Test {
 protected:
  void SetUp() override { ASSERT_TRUE(sdk_.initialised()); }

  static bool answers(const Client& client, const std::string& device) {
    return waitUntil([&] { return stateText(client, ".deviceNo") == device; });
  }
  /// The client has lost control, by its own renewal or by the robot's word, and can win it back.
  static void expectLossAndReturn(const Client& client) {
    EXPECT_TRUE(waitUntil([&] {
      return client.seen->reported({1, 4}) || client.seen->reported({1, 5});
    }));
    EXPECT_FALSE(client->standing(kRequestMs));
    EXPECT_EQ(client->getLastError(), 7U);
    EXPECT_TRUE(takeControl(client));
    EXPECT_TRUE(client->standing(kRequestMs)) << client->getLastError();
  }

  const Sdk sdk_;
};

TEST_F(FaultyRobot, KilledDuringARequestEndsItByItsTimeOutAndMayComeBack) {
  auto robot = std::make_unique<RobotProcess>("dog");
  const Client client = connectTo("dog", 2000);
  ASSERT_TRUE(client.handle && answers(client, "dog") && takeControl(client));
  ASSERT_EQ(robot->tell("delay queryMotionState 60000 1"), "delay queryMotionState 60000 1\n");
  constexpr std::uint32_t kTimeOutMs = 10000;
  const std::uint64_t begun = nowMs();
  auto request = std::async(std::launch::async, [&] {
    std::string state;
    return client->queryMotionState(&state, kTimeOutMs);
  });
  // The one request that is delayed has arrived when no further one would be.
  ASSERT_TRUE(waitUntil([&] { return robot->tell("list") == "no faults\n"; }))
      << robot->tell("list");
  robot->signal(SIGKILL);
  EXPECT_LT(nowMs(), begun + kTimeOutMs);
  EXPECT_FALSE(request.get());
  EXPECT_LT(nowMs(), begun + kTimeOutMs + 1000);
  EXPECT_EQ(client->getLastError(), 3U);

  robot = std::make_unique<RobotProcess>("dog");
  const Client another = connectTo("dog");
  EXPECT_TRUE(answers(another, "dog"));
  EXPECT_TRUE(answers(client, "dog"));
  expectLossAndReturn(client);
  // Nothing that follows waits for the dead.
  robot->signal(SIGKILL);
  const std::uint64_t letGo = nowMs();
  EXPECT_TRUE(client->disconnect() && another->disconnect());
  EXPECT_LT(nowMs(), letGo + 3000);
}

TEST_F(FaultyRobot, StoppedAndContinuedIsTheSameRobotWithoutAController) {
  const RobotProcess robots[] = {RobotProcess("short"), RobotProcess("long")};
  const Client clients[] = {connectTo("short", 2000), connectTo("long", 2000)};
  for (const Client& client : clients) ASSERT_TRUE(client.handle && client->takeMotionControl(0));
  for (const Client& client : clients) {
    ASSERT_TRUE(waitUntil([&] { return client->getState() == kInControl; }));
  }
  for (const RobotProcess& robot : robots) robot.signal(SIGSTOP);
  const std::uint64_t begun = nowMs();
  std::string state;
  EXPECT_FALSE(clients[0]->queryMotionState(&state, 500));
  EXPECT_EQ(clients[0]->getLastError(), 3U);
  // Longer than the lease; and so long that DDS has forgotten the robot.
  for (const std::uint32_t i : {0U, 1U}) {
    static_cast<void>(waitUntil([&] { return nowMs() >= begun + (i == 0 ? 2500 : 12000); }));
    robots[i].signal(SIGCONT);
    EXPECT_TRUE(answers(clients[i], i == 0 ? "short" : "long"));
    expectLossAndReturn(clients[i]);
    robots[i].signal(SIGTERM);  // its last word
    EXPECT_TRUE(waitUntil([&] { return clients[i].seen->reported({1, 5}); }));
  }
}

TEST_F(FaultyRobot, LosingPacketsCarriesOutEveryRequestOnce) {
  EXPECT_NE(RobotProcess("mute", {"--loss", "100"}).tell("list").find("no virtual robot"),
            std::string::npos);
  constexpr int kRequests = 200;
  const RobotProcess robot("dog", {"--loss", "5", "--fault", "delay setMotionActionParams 1 1000"});
  const Client client = connectTo("dog");
  ASSERT_TRUE(client.handle && takeControl(client));
  for (int i = 0; i < kRequests; ++i) {
    const double height = 0.22 + i * 0.0005;
    const std::string params = R"({"bodyHeight":)" + std::to_string(height) + "}";
    ASSERT_TRUE(client->setMotionActionParams(params, kRequestMs)) << i << client->getLastError();
    if (i % 10 == 0) {
      EXPECT_NEAR(stateNumber(client, ".actionParams.bodyHeight"), height, 1e-6);
    }
  }
  // The robot counts down with each request that it carries out.
  EXPECT_EQ(robot.tell("list"), "delay setMotionActionParams 1 800\n");
  EXPECT_EQ(client.seen->states().size(), 1U);
}

/// A peer that speaks DDS in the robot's place, without sense.
class Stranger {
 public:
  Stranger() {
    Json::Value document = orvane::robot::ddsDocument("lo", 42);
    document["eventBus"][0]["server"] = "robotServer";
    document["eventBus"][0]["domain"] = orvane::robot::kHostDomain;
    document["eventBus"][0]["role"] = "server";
    if (!factory_->initial(document)) throw std::runtime_error("no DDS");
    const auto participant = factory_->participant(orvane::robot::kHostDomain);
    writer_ = std::make_unique<Writer>(
        dds::pub::Publisher(participant),
        dds::topic::Topic<orvane::msg::dds_::SensorObserved_>(participant, "motion/observed"));
  }
  ~Stranger() {
    writer_.reset();
    factory_->shutdown();
  }
  Stranger(const Stranger&) = delete;
  Stranger& operator=(const Stranger&) = delete;

  void babble() {
    writer_->write({});
    for (const char* topic : {"robotServer.host.event", "robotServer.control.status"}) {
      for (const char* text : {"null", "[]", "7", "\"text\"", R"([{"controlled":false}])",
                               R"({"deviceNo":"cat","controlled":{}})", R"({"deviceNo":"cat"})"}) {
        Json::Value payload;
        ASSERT_TRUE(Pexal::Utils::stringToJson(text, payload)) << text;
        EXPECT_TRUE(factory_->eventBus("robotServer")->publish(topic, payload));
      }
    }
  }

 private:
  using Writer = dds::pub::DataWriter<orvane::msg::dds_::SensorObserved_>;
  const std::shared_ptr<Pexal::PDBus::IDDSFactory> factory_ = Pexal::PDBus::IDDSFactory::create();
  std::unique_ptr<Writer> writer_;
};

TEST_F(FaultyRobot, TalkingNonsenseAmongStrangersHarmsNobody) {
  const LocalRobot robot("dog");
  const Client client = connectTo("dog");
  ASSERT_TRUE(client.handle && takeControl(client) && enableStreams(client));
  Stranger stranger;
  ASSERT_TRUE(robot.suffers("nonsense"));
  for (int i = 0; i < 20; ++i) {
    stranger.babble();
    robot.stir();
    std::string state;
    static_cast<void>(client->queryMotionState(&state, 500));
    orvane::RobotSdk::MotorLayout layout{};
    static_cast<void>(client->getMotorLayout(&layout, 500));
    EXPECT_LE(layout.motorNum, 16U);
  }
  ASSERT_TRUE(robot.suffers("sense"));
  EXPECT_TRUE(answers(client, "dog"));
  const auto motion = client.seen->motion().size();
  const auto sensor = client.seen->sensor().size();
  const auto events = client.seen->events().size();
  robot.stir();
  EXPECT_TRUE(waitUntil([&] {
    return client.seen->motion().size() > motion + 50 &&
           client.seen->sensor().size() > sensor + 5 && client.seen->events().size() > events;
  }));
}

}  // namespace
}  // namespace sdk_test
