// Who may move the robot: every state of the arbiter against every event, on a clock of plain
// numbers.

#include <gtest/gtest.h>

#include <functional>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "arbiter/Arbiter.h"

namespace orvane::robot {
namespace {

constexpr std::uint64_t kStart = 1'000'000;
constexpr std::uint32_t kLease = 2000;

/// An arbiter whose grants are called g1, g2, ... A is the client that took g1.
struct Scene {
  int grants = 0;
  Arbiter arbiter{[this] { return "g" + std::to_string(++grants); }};
  std::uint64_t now = kStart;
};

/// "" for success, else the reason's number.
std::string text(const std::optional<Refusal>& refusal) {
  return refusal ? std::to_string(static_cast<int>(refusal->reason)) : "";
}
std::string text(const std::variant<Grant, Refusal>& taken) {
  const auto* refusal = std::get_if<Refusal>(&taken);
  return refusal ? text(std::optional<Refusal>(*refusal)) : std::get<Grant>(taken).controller;
}
std::string text(bool done) {
  return done ? "yes" : "no";
}
std::string takeG1(Scene& s) {
  return text(s.arbiter.take("A", kLease, s.now));
}

struct Named {
  const char* name;
  std::function<std::string(Scene&)> step;
};

// clang-format off
const std::vector<Named> kStates{
    {"free", [](Scene&) { return ""; }},
    {"held by g1", takeG1},
    {"g1 released", [](Scene& s) { takeG1(s); return text(s.arbiter.release("g1", s.now)); }},
    {"g1 ran out", [](Scene& s) { s.now += kLease; return text(s.arbiter.take("A", kLease, s.now - kLease)); }},
    {"g1 expired", [](Scene& s) { takeG1(s); return text(s.arbiter.expire(s.now)); }},
    {"g1 revoked", [](Scene& s) { takeG1(s); return text(s.arbiter.revoke(s.now)); }},
    {"g1 preempted by g2", [](Scene& s) { takeG1(s); return s.arbiter.preempt("remote", 60000, s.now).controller; }},
};

const std::vector<Named> kEvents{
    {"take by B", [](Scene& s) { return text(s.arbiter.take("B", kLease, s.now)); }},
    {"take under g1", [](Scene& s) { return text(s.arbiter.take("g1", kLease, s.now)); }},
    {"renew g1", [](Scene& s) { return text(s.arbiter.renew("g1", s.now)); }},
    {"renew unknown", [](Scene& s) { return text(s.arbiter.renew("A", s.now)); }},
    {"release g1", [](Scene& s) { return text(s.arbiter.release("g1", s.now)); }},
    {"release unknown", [](Scene& s) { return text(s.arbiter.release("A", s.now)); }},
    {"command by g1", [](Scene& s) { return text(s.arbiter.check("g1", s.now)); }},
    {"preempt", [](Scene& s) { return s.arbiter.preempt("remote", kLease, s.now).controller; }},
    {"restore", [](Scene& s) { return text(s.arbiter.restore(s.now)); }},
    {"revoke", [](Scene& s) { return text(s.arbiter.revoke(s.now)); }},
    {"expire", [](Scene& s) { return text(s.arbiter.expire(s.now)); }},
    {"lease passes", [](Scene& s) { s.now += kLease; return ""; }},
};

// The answer and, behind the slash, who holds control then. 1 not controller, 16 held by another,
// 29 revoked, 62 expired.
const char* const kOutcomes[7][12] = {
    // take B, take g1, renew g1, renew ?, release g1, release ?, command, preempt, restore, revoke, expire, lease
    {"g1/g1", "g1/g1", "1/-", "1/-", "1/-", "1/-", "1/-", "g1/g1", "no/-", "no/-", "no/-", "/-"},
    {"16/g1", "g2/g2", "/g1", "1/g1", "/-", "1/g1", "/g1", "g2/g2", "no/g1", "yes/-", "yes/-", "/-"},
    {"g2/g2", "g2/g2", "1/-", "1/-", "1/-", "1/-", "1/-", "g2/g2", "no/-", "no/-", "no/-", "/-"},
    {"g2/g2", "g2/g2", "62/-", "1/-", "62/-", "1/-", "62/-", "g2/g2", "no/-", "no/-", "no/-", "/-"},
    {"g2/g2", "g2/g2", "62/-", "1/-", "62/-", "1/-", "62/-", "g2/g2", "no/-", "no/-", "no/-", "/-"},
    {"g2/g2", "g2/g2", "29/-", "1/-", "29/-", "1/-", "29/-", "g2/g2", "no/-", "no/-", "no/-", "/-"},
    {"16/g2", "16/g2", "29/g2", "1/g2", "/g2", "1/g2", "29/g2", "g3/g3", "yes/g1", "yes/-", "yes/g1", "/g2"},
};
// clang-format on

TEST(Arbiter, answersEveryEventInEveryState) {
  for (std::size_t state = 0; state < kStates.size(); ++state) {
    for (std::size_t event = 0; event < kEvents.size(); ++event) {
      SCOPED_TRACE(std::string(kStates[state].name) + " / " + kEvents[event].name);
      Scene scene;
      kStates[state].step(scene);
      const std::string answer = kEvents[event].step(scene);
      scene.arbiter.judge(scene.now);
      const auto& holds = scene.arbiter.current();
      EXPECT_EQ(answer + '/' + (holds ? holds->controller : "-"), kOutcomes[state][event]);
    }
  }
}

TEST(Arbiter, leaseEndsExactlyWhenItRunsOutAndRenewalStartsItAnew) {
  Scene scene;
  static_cast<void>(scene.arbiter.take("A", kLease, kStart));
  EXPECT_FALSE(scene.arbiter.check("g1", kStart + kLease - 1));
  EXPECT_FALSE(scene.arbiter.renew("g1", kStart + kLease - 1));
  EXPECT_FALSE(scene.arbiter.check("g1", kStart + 2 * kLease - 2));
  EXPECT_EQ(text(scene.arbiter.renew("g1", kStart + 2 * kLease - 1)), "62");
  EXPECT_EQ(text(scene.arbiter.take("B", kLease, kStart + 2 * kLease - 1)), "g2");
}

TEST(Arbiter, preemptedGrantComesBackWithAFullLeaseWhenItsRivalLapses) {
  Scene scene;
  static_cast<void>(scene.arbiter.take("A", kLease, kStart));
  scene.arbiter.preempt("remote", 10 * kLease, kStart + 100);
  EXPECT_EQ(text(scene.arbiter.renew("g1", kStart + 5 * kLease)), "29");
  const std::uint64_t lapsed = kStart + 100 + 10 * kLease;
  EXPECT_FALSE(scene.arbiter.check("g1", lapsed));
  EXPECT_EQ(scene.arbiter.current()->untilMs, lapsed + kLease);
  EXPECT_EQ(text(scene.arbiter.check("g2", lapsed)), "62");
}

TEST(Arbiter, bringsLeasesWithinTheLimits) {
  const std::pair<std::optional<std::uint32_t>, std::uint32_t> cases[] = {
      {std::nullopt, Arbiter::kDefaultLeaseMs},
      {0, Arbiter::kMinLeaseMs},
      {1200, 1200},
      {0xFFFFFFFF, Arbiter::kMaxLeaseMs}};
  for (const auto& [asked, granted] : cases) {
    Scene scene;
    EXPECT_EQ(std::get<Grant>(scene.arbiter.take("A", asked, kStart)).leaseMs, granted);
  }
}

TEST(Arbiter, givesEveryGrantANewIdAndCountsEveryChange) {
  Arbiter arbiter;
  std::set<std::string> ids;
  for (int round = 0; round < 300; ++round) {
    const auto grant = std::get<Grant>(arbiter.take("same client", kLease, kStart));
    EXPECT_TRUE(ids.insert(grant.controller).second);
    EXPECT_FALSE(arbiter.release(grant.controller, kStart));
  }
  EXPECT_EQ(arbiter.revision(), 600U);
}

}  // namespace
}  // namespace orvane::robot
