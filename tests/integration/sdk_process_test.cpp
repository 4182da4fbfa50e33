// Real processes: how applications end, and what becomes of the robot when one dies or stands
// still.

#include <gtest/gtest.h>

#include <atomic>
#include <csignal>
#include <memory>
#include <mutex>
#include <set>
#include <string>
#include <vector>

#include "sdk_process.h"
#include "sdk_robot.h"
#include "sdk_support.h"

namespace sdk_test {
namespace {

using orvane::robot::Grant;

constexpr std::uint32_t kExitMs = 15000;

class AnApplication : public testing::TestWithParam<const char*> {};

TEST_P(AnApplication, InControlEndsCleanly) {
  const LocalRobot robot("dog");
  Process application({SDK_CLIENT, GetParam(), "dog"});
  ASSERT_TRUE(application.says("in control", kLimitMs)) << application.output();
  const auto status = application.finish(kExitMs);
  ASSERT_TRUE(status.has_value()) << "hangs; said:\n" << application.output();
  EXPECT_EQ(*status, 0) << application.output();
  if (std::string("release") == GetParam()) {
    EXPECT_TRUE(waitUntil([&] { return robot.status().controller.empty(); }, 2000));
  }
}

INSTANTIATE_TEST_SUITE_P(Ends, AnApplication,
                         testing::Values("return", "exit", "shutdown", "release"),
                         [](const auto& scenario) { return std::string(scenario.param); });

/// A hundred clients of one robot in this process. Whoever gets control checks that nobody else has
/// it, and gives it back.
class Crowd {
 public:
  static constexpr std::uint32_t kSize = 100;

  explicit Crowd(const LocalRobot& robot) : robot_(robot) {}
  ~Crowd() {
    for (const auto& client : clients_) client->disconnect();
  }
  Crowd(const Crowd&) = delete;
  Crowd& operator=(const Crowd&) = delete;

  /// They line up over four seconds, which is how long a refused client takes to its next attempt:
  /// from then on there is an attempt every forty milliseconds.
  [[nodiscard]] bool linesUp() {
    const std::uint64_t begun = nowMs();
    for (std::uint32_t i = 0; i < kSize; ++i) {
      static_cast<void>(waitUntil([&] { return nowMs() >= begun + i * 40; }));
      auto client = IMotionHighLevelClient::create("dog");
      client->setConnectCallback([this, weak = std::weak_ptr(client)](std::uint32_t state, auto) {
        if (const auto winner = weak.lock(); winner && state == kInControl) serve(*winner);
      });
      if (!client->connect(10000) || !client->takeMotionControl(120000)) return false;
      clients_.push_back(std::move(client));
    }
    return true;
  }
  [[nodiscard]] std::vector<Grant> grants() const {
    const std::lock_guard lock(mutex_);
    return grants_;
  }
  [[nodiscard]] bool everOverlapped() const { return overlapped_; }

 private:
  void serve(IMotionHighLevelClient& winner) {
    if (holders_.fetch_add(1) != 0) overlapped_ = true;
    const bool obeyed = winner.setMotionActionParams(R"({"bodyHeight":0.3})", kRequestMs);
    {
      const std::lock_guard lock(mutex_);
      const auto grant = robot_.access().arbiter().current();
      if (obeyed && grant) grants_.push_back(*grant);
    }
    holders_.fetch_sub(1);
    winner.releaseMotionControl();
  }

  const LocalRobot& robot_;
  std::vector<std::shared_ptr<IMotionHighLevelClient>> clients_;
  std::atomic<int> holders_{0};
  std::atomic<bool> overlapped_{false};
  mutable std::mutex mutex_;  // guards grants_
  std::vector<Grant> grants_;
};

TEST(AnApplicationKilledWhileItWalks, LeavesAStandingRobotToAHundredOthersOneAfterTheOther) {
  constexpr std::uint32_t kLeaseMs = 2000;
  constexpr std::uint32_t kSlowness = kSanitized ? 3 : 1;  // the machine's, not the robot's
  const LocalRobot robot("dog");
  const Sdk sdk;
  ASSERT_TRUE(sdk.initialised());
  Process application({SDK_CLIENT, "walk", "dog", std::to_string(kLeaseMs)});
  ASSERT_TRUE(application.says("walking", kLimitMs)) << application.output();
  const std::string walker = robot.status().controller;
  Crowd crowd(robot);
  ASSERT_TRUE(crowd.linesUp());
  ASSERT_EQ(robot.status().controller, walker);
  ASSERT_EQ(robot.status().posture, Posture::kWalking);

  application.signal(SIGKILL);
  const std::uint64_t killedMs = nowMs();
  std::uint64_t leaseEndMs = 0;  // all by the robot's clock, which is the machine's
  std::uint64_t movingUntilMs = 0;
  ASSERT_TRUE(waitUntil([&] {
    auto access = robot.access();
    const auto& grant = access.arbiter().current();
    if (grant && grant->controller == walker) leaseEndMs = grant->untilMs;
    const bool moves = access.body().velocity.x != 0;
    if (moves) movingUntilMs = access.nowMs();
    return !moves && !(grant && grant->controller == walker);
  }));
  EXPECT_LT(movingUntilMs, killedMs + 1000 * kSlowness);
  RecordProperty("stoodAfterMs", std::to_string(movingUntilMs - killedMs));
  ASSERT_TRUE(waitUntil([&] { return !crowd.grants().empty(); }));
  const Grant next = crowd.grants().front();
  EXPECT_GE(next.sinceMs, leaseEndMs);
  EXPECT_LE(next.sinceMs, leaseEndMs + kLeaseMs / 5 * kSlowness);
  RecordProperty("grantedAfterLeaseMs", std::to_string(next.sinceMs - leaseEndMs));

  ASSERT_TRUE(waitUntil([&] { return crowd.grants().size() >= Crowd::kSize; }, 2 * kLimitMs))
      << crowd.grants().size();
  std::set<std::string> ids{walker};
  for (const Grant& grant : crowd.grants()) ids.insert(grant.controller);
  EXPECT_EQ(ids.size(), Crowd::kSize + 1);
  EXPECT_FALSE(crowd.everOverlapped());
  EXPECT_TRUE(waitUntil([&] { return robot.status().controller.empty(); }));
}

/// An application that walks its robot and is stopped for a while.
struct Stopped {
  Stopped(const char* device, std::uint32_t ms)
      : stopMs(ms), robot(device), application({SDK_CLIENT, "walk", device, "2000"}) {}

  const std::uint32_t stopMs;
  LocalRobot robot;
  Process application;
  std::string controller;
};

TEST(AnApplicationThatStandsStill, CommandsNothingOnceItsLeaseHasRunOut) {
  Stopped cases[] = {{"a", 500}, {"b", 2000}, {"c", 10000}};
  for (auto& it : cases) {
    ASSERT_TRUE(it.application.says("walking", kLimitMs)) << it.application.output();
    it.controller = it.robot.status().controller;
  }
  const std::uint64_t begun = nowMs();
  for (const auto& it : cases) it.application.signal(SIGSTOP);
  const Sdk sdk;
  const Client heir = connectTo("c");
  ASSERT_TRUE(heir.handle && heir->takeMotionControl(20000));

  for (auto& it : cases) {
    SCOPED_TRACE(it.stopMs);
    static_cast<void>(waitUntil([&] { return nowMs() >= begun + it.stopMs; }));
    if (&it == &cases[2]) {
      ASSERT_TRUE(waitUntil([&] { return heir->getState() == kInControl; }));
    }
    const auto before = it.robot.status();
    const std::uint64_t continuedMs = nowMs();
    it.application.signal(SIGCONT);
    if (before.controller == it.controller) continue;  // its lease outlived the pause
    EXPECT_NE(before.posture, Posture::kWalking);
    // It learns of the loss by the event or by its next renewal, whichever comes first, and its
    // commands are refused, by the robot or by its own library.
    EXPECT_TRUE(it.application.says("error ", kLimitMs)) << it.application.output();
    EXPECT_TRUE(it.application.says("error 7", kLimitMs)) << it.application.output();
    const auto after = it.robot.status();
    EXPECT_EQ(after.posture, Posture::kStanding);
    EXPECT_NEAR(after.position[0], before.position[0], 1e-3);
    EXPECT_NE(after.controller, it.controller);
    if (after.lastRefusal.clientId == it.controller && after.lastRefusal.atMs >= continuedMs) {
      EXPECT_EQ(after.lastRefusal.refusal.reason, orvane::robot::Reason::kExpired);
    }
    const std::string said = it.application.output();
    EXPECT_TRUE(said.find("state 1 4") != std::string::npos ||
                said.find("state 1 5") != std::string::npos)
        << said;
  }
  EXPECT_EQ(cases[0].robot.status().controller, cases[0].controller);
  EXPECT_TRUE(cases[0].robot.reaches(Posture::kWalking));
  EXPECT_TRUE(heir->velocityMove(0, 0.1F, 0, kRequestMs)) << heir->getLastError();
  for (auto& it : cases) {
    it.application.signal(SIGTERM);
    EXPECT_EQ(it.application.finish(kExitMs), 0) << it.application.output();
  }
}

}  // namespace
}  // namespace sdk_test
