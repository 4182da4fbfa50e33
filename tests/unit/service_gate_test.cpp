// The service's gate: who waits, who is refused.

#include "service/ServiceGate.h"

#include <gtest/gtest.h>

#include <atomic>
#include <optional>
#include <string>

#include "pbase/CThread.h"
#include "pbase/VirtualClock.h"
#include "service/CallbackScope.h"

namespace orvane::RobotSdk::service {
namespace {

/// Another thread that tries to enter.
class Entrant {
 public:
  Entrant(ServiceGate& gate, bool insideCallback, std::uint64_t limitMs = ServiceGate::kNoLimit)
      : thread_("entrant", 0, 0, 0, [this, &gate, insideCallback, limitMs] {
          std::optional<CallbackScope> scope;
          if (insideCallback) scope.emplace();
          outcome = gate.enter(limitMs) ? "entered" : "refused";
        }) {
    EXPECT_TRUE(thread_.createThread());
  }
  std::atomic<const char*> outcome{"waits"};

 private:
  Pexal::PBase::CThreadLite thread_;
};

TEST(ServiceGate, IsRefusedToTheThreadThatHoldsItAndAfterTheLimit) {
  Pexal::PBase::VirtualClock clock;
  ServiceGate gate;
  const auto entry = gate.enter();
  ASSERT_TRUE(entry);
  EXPECT_FALSE(gate.enter());
  const Entrant other(gate, false, 20);
  clock.advance(19);
  EXPECT_STREQ(other.outcome, "waits");
  clock.advance(1);
  EXPECT_STREQ(other.outcome, "refused");
}

TEST(ServiceGate, LetsTheNextThreadInWhenTheHolderLeavesButACallbackThatItWaitsFor) {
  for (const bool insideCallback : {false, true}) {
    for (const bool holderDrains : {false, true}) {
      Pexal::PBase::VirtualClock clock;
      ServiceGate gate;
      std::optional<ServiceGate::Entry> entry(gate.enter());
      const Entrant next(gate, insideCallback);
      clock.advance(0);
      EXPECT_STREQ(next.outcome, "waits");
      std::optional<ServiceGate::Draining> draining;
      if (holderDrains) draining.emplace(gate);
      clock.advance(0);
      const bool refused = insideCallback && holderDrains;
      EXPECT_STREQ(next.outcome, refused ? "refused" : "waits");
      draining.reset();
      entry.reset();
      clock.advance(0);
      EXPECT_STREQ(next.outcome, refused ? "refused" : "entered");
    }
  }
}

}  // namespace
}  // namespace orvane::RobotSdk::service
