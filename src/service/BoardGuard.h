#pragma once

#include <cstdint>

/// What the robot board asks of an SDK process before it may start.
namespace orvane::RobotSdk::service {

/// Waits for the shared-memory daemon's readiness marker, looking every 100 ms for at most
/// `waitSeconds` (0 fails without a look). Logs a failure.
[[nodiscard]] bool waitForRoudi(std::uint32_t waitSeconds);

/// Takes the lock that one SDK process per board holds. Returns the descriptor that keeps it, or -1
/// after logging the reason. Never waits.
[[nodiscard]] int takeBoardLock();

}  // namespace orvane::RobotSdk::service
