#pragma once

#include <cstdint>
#include <deque>
#include <functional>
#include <optional>
#include <string>
#include <variant>

#include "Refusal.h"

namespace orvane::robot {

/// One controller's right to move the robot.
struct Grant {
  std::string controller;  ///< the id that its holder speaks under; every grant has a new one
  std::string holder;      ///< under which id it was taken
  std::uint32_t leaseMs = 0;
  std::uint64_t sinceMs = 0;
  std::uint64_t untilMs = 0;  ///< ends when the clock reaches this
};

/// Judges who controls the robot, alone and on the robot's clock. At most one grant holds at a
/// time; a preempted one waits, without its lease running, until it is restored.
///
/// A client id says nothing about who holds control (several programs may use the same); only the
/// controller id of a grant does.
///
/// Not thread-safe: the robot mutex guards it. Times are milliseconds of the platform's clock.
/// Every operation first ends what has run out by `nowMs`.
class Arbiter {
 public:
  using MakeId = std::function<std::string()>;

  static constexpr std::uint32_t kMinLeaseMs = 1000;
  static constexpr std::uint32_t kMaxLeaseMs = 600000;
  static constexpr std::uint32_t kDefaultLeaseMs = 60000;

  /// `makeId` gives a new controller id per grant (default: random UUIDs).
  explicit Arbiter(MakeId makeId = {});

  /// Grants control to `clientId` when nobody holds it, or anew when `clientId` is the controller
  /// id that holds it. A lease outside the limits is brought within them.
  [[nodiscard]] std::variant<Grant, Refusal> take(const std::string& clientId,
                                                  std::optional<std::uint32_t> leaseMs,
                                                  std::uint64_t nowMs);
  /// Lets the lease begin anew.
  [[nodiscard]] std::optional<Refusal> renew(const std::string& controller, std::uint64_t nowMs);
  /// Gives control back. The holder of a preempted grant may give that back too.
  [[nodiscard]] std::optional<Refusal> release(const std::string& controller, std::uint64_t nowMs);
  /// Nothing when `controller` holds control; else why it doesn't.
  [[nodiscard]] std::optional<Refusal> check(const std::string& controller, std::uint64_t nowMs);
  /// Ends what has run out.
  void judge(std::uint64_t nowMs);

  /// Gives control to `holder` over the head of the present controller, whose grant waits.
  const Grant& preempt(const std::string& holder, std::uint32_t leaseMs, std::uint64_t nowMs);
  /// Ends the preempting grant and hands control back to the waiting one, with a fresh lease.
  /// False: none waits.
  bool restore(std::uint64_t nowMs);
  /// Takes control away from everybody. False: nobody holds it.
  bool revoke(std::uint64_t nowMs);
  /// Lets the present controller's lease run out now. False: nobody holds control.
  bool expire(std::uint64_t nowMs);

  /// The grant that holds; none: nobody controls the robot.
  [[nodiscard]] const std::optional<Grant>& current() const { return current_; }
  /// Rises whenever another grant, or none, holds control.
  [[nodiscard]] std::uint64_t revision() const { return revision_; }

 private:
  enum class End { kReleased, kExpired, kRevoked, kReplaced };
  struct Ended {
    std::string controller;
    End how;
  };

  Grant makeGrant(const std::string& holder, std::uint32_t leaseMs, std::uint64_t nowMs) const;
  void remember(const Grant& grant, End how);
  void endCurrent(End how, std::uint64_t nowMs);
  [[nodiscard]] Refusal refusalFor(const std::string& controller) const;

  MakeId makeId_;
  std::optional<Grant> current_;
  std::optional<Grant> waiting_;  // preempted
  std::deque<Ended> ended_;       // the latest ones, newest last
  std::uint64_t revision_ = 0;
};

}  // namespace orvane::robot
