// Real processes: how applications end, and what becomes of the robot when one dies or stands
// still.

#include <gtest/gtest.h>

#include <algorithm>
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

/// A hundred clients of one robot in this process. Whoever gets control sees whether it has it, and
/// gives it back.
class Crowd {
 public:
  /// A grant that was obeyed, and when its client still had it.
  struct Turn {
    Grant grant;
    std::uint64_t heldMs;
  };
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
  [[nodiscard]] std::vector<Turn> turns() const {
    const std::lock_guard lock(mutex_);
    return turns_;
  }

 private:
  void serve(IMotionHighLevelClient& winner) {
    // The robot obeys its controller alone: who is obeyed between two looks that show the same
    // grant is the one that has it.
    const auto before = robot_.access().arbiter().current();
    const bool obeyed = winner.setMotionActionParams(R"({"bodyHeight":0.3})", kRequestMs);
    {
      auto access = robot_.access();
      const auto& after = access.arbiter().current();
      if (obeyed && before && after && before->controller == after->controller) {
        const std::lock_guard lock(mutex_);
        turns_.push_back({*after, access.nowMs()});
      }
    }
    winner.releaseMotionControl();
  }

  const LocalRobot& robot_;
  std::vector<std::shared_ptr<IMotionHighLevelClient>> clients_;
  mutable std::mutex mutex_;  // guards turns_; innermost
  std::vector<Turn> turns_;
};

TEST(AnApplicationKilledWhileItWalks, LeavesAStandingRobotToAHundredOthersOneAfterTheOther) {
  constexpr std::uint32_t kLeaseMs = 2000;
  const LocalRobot robot("dog");
  const Sdk sdk;
  ASSERT_TRUE(sdk.initialised());
  Process application({SDK_CLIENT, "walk", "dog", std::to_string(kLeaseMs)});
  ASSERT_TRUE(application.says("walking", kLimitMs)) << application.output();
  const std::string walker = robot.status().controller;
  Crowd crowd(robot);
  ASSERT_TRUE(crowd.linesUp());
  ASSERT_EQ(robot.status().controller, walker);
  ASSERT_TRUE(robot.reaches(Posture::kWalking));

  application.signal(SIGKILL);
  const std::uint64_t killedMs = nowMs();
  std::uint64_t lookedMs = killedMs;
  std::uint64_t stallMs = 0;  // the longest between two looks: the machine's doing, not the robot's
  const auto look = [&] {
    const std::uint64_t now = nowMs();
    stallMs = std::max(stallMs, now - lookedMs);
    lookedMs = now;
  };
  std::uint64_t leaseEndMs = 0;  // all by the robot's clock, which is the machine's
  std::uint64_t movingUntilMs = 0;
  ASSERT_TRUE(waitUntil([&] {
    look();
    auto access = robot.access();
    const auto& grant = access.arbiter().current();
    if (grant && grant->controller == walker) leaseEndMs = grant->untilMs;
    const bool moves = access.body().velocity.x != 0;
    if (moves) movingUntilMs = access.nowMs();
    return !moves && !(grant && grant->controller == walker);
  }));
  ASSERT_GT(movingUntilMs, 0U);
  EXPECT_LT(movingUntilMs, killedMs + 1000 + stallMs);
  RecordProperty("stoodAfterMs", std::to_string(movingUntilMs - killedMs));
  ASSERT_TRUE(waitUntil([&] {
    look();
    return !crowd.turns().empty();
  }));
  const Grant next = crowd.turns().front().grant;
  EXPECT_GE(next.sinceMs, leaseEndMs);
  EXPECT_LE(next.sinceMs, leaseEndMs + kLeaseMs / 5 + stallMs);
  RecordProperty("grantedAfterLeaseMs", std::to_string(next.sinceMs - leaseEndMs));
  RecordProperty("stallMs", std::to_string(stallMs));

  ASSERT_TRUE(waitUntil([&] { return crowd.turns().size() >= Crowd::kSize; }, 2 * kLimitMs))
      << crowd.turns().size();
  auto turns = crowd.turns();
  std::sort(turns.begin(), turns.end(), [](const Crowd::Turn& a, const Crowd::Turn& b) {
    return a.grant.sinceMs < b.grant.sinceMs;
  });
  std::set<std::string> ids{walker};
  std::uint64_t heldMs = leaseEndMs;
  for (const Crowd::Turn& turn : turns) {
    EXPECT_TRUE(ids.insert(turn.grant.controller).second);
    EXPECT_GE(turn.grant.sinceMs, heldMs);
    heldMs = turn.heldMs;
  }
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
    if (&it != &cases[0]) {
      ASSERT_TRUE(waitUntil([&] { return it.robot.status().controller != it.controller; }));
    }
    const auto before = it.robot.status();
    const std::uint64_t continuedMs = nowMs();
    it.application.signal(SIGCONT);
    if (&it == &cases[0]) continue;  // its lease outlives the pause
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
