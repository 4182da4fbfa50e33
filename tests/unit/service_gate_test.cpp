// The service's gate: who waits, who is refused.

#include "service/ServiceGate.h"

#include <gtest/gtest.h>

#include <atomic>
#include <future>
#include <optional>

#include "service/CallbackScope.h"

namespace orvane::RobotSdk::service {
namespace {

constexpr auto kDeadline = std::chrono::seconds(30);

bool entersFromCallback(ServiceGate& gate) {
  const CallbackScope scope;
  return static_cast<bool>(gate.enter());
}

TEST(ServiceGate, IsRefusedToTheThreadThatHoldsIt) {
  ServiceGate gate;
  const auto entry = gate.enter();
  ASSERT_TRUE(entry);
  EXPECT_FALSE(gate.enter());
}

TEST(ServiceGate, LetsTheNextThreadInWhenTheHolderLeaves) {
  ServiceGate gate;
  std::optional<ServiceGate::Entry> entry(gate.enter());
  std::promise<void> entering;
  auto next = std::async(std::launch::async, [&] {
    entering.set_value();
    return entersFromCallback(gate);  // a callback waits too, as long as nobody waits for callbacks
  });
  entering.get_future().wait();
  entry.reset();
  ASSERT_EQ(next.wait_for(kDeadline), std::future_status::ready);
  EXPECT_TRUE(next.get());
}

TEST(ServiceGate, RefusesACallbackThatItsHolderWaitsFor) {
  ServiceGate gate;
  const auto entry = gate.enter();
  std::promise<void> entering;
  auto callback = std::async(std::launch::async, [&] {
    entering.set_value();
    return entersFromCallback(gate);
  });
  entering.get_future().wait();
  const ServiceGate::Draining draining(gate);
  ASSERT_EQ(callback.wait_for(kDeadline), std::future_status::ready);
  EXPECT_FALSE(callback.get());
}

TEST(ServiceGate, KeepsOtherThreadsWaitingMeanwhile) {
  ServiceGate gate;
  std::optional<ServiceGate::Entry> entry(gate.enter());
  std::atomic<bool> left{false};
  std::optional<ServiceGate::Draining> draining(gate);
  auto application = std::async(std::launch::async, [&] {
    const auto mine = gate.enter();
    return mine && left;
  });
  draining.reset();
  left = true;
  entry.reset();
  ASSERT_EQ(application.wait_for(kDeadline), std::future_status::ready);
  EXPECT_TRUE(application.get());
}

TEST(ServiceGate, GivesUpAfterTheLimit) {
  ServiceGate gate;
  const auto entry = gate.enter();
  auto other = std::async(std::launch::async, [&] { return static_cast<bool>(gate.enter(20)); });
  ASSERT_EQ(other.wait_for(kDeadline), std::future_status::ready);
  EXPECT_FALSE(other.get());
}

}  // namespace
}  // namespace orvane::RobotSdk::service
