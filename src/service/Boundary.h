#pragma once

#include <exception>
#include <utility>

#include "log/Log.h"

namespace orvane::RobotSdk {

/// Runs the body of a public operation. Nothing that it throws passes the library's boundary: it is
/// logged with the operation's name, and the operation gives `fallback`.
template <class Body, class Result>
[[nodiscard]] Result guarded(const char* operation, Body&& body, Result fallback) noexcept {
  try {
    return std::forward<Body>(body)();
  } catch (const std::exception& error) {
    MOTION_LOG("Boundary", level::kError, "%s failed: %s", operation, error.what());
  } catch (...) {
    MOTION_LOG("Boundary", level::kError, "%s failed: unknown exception", operation);
  }
  return fallback;
}

template <class Body>
void guarded(const char* operation, Body&& body) noexcept {
  const auto counted = [&] {
    std::forward<Body>(body)();
    return true;
  };
  static_cast<void>(guarded(operation, counted, false));
}

}  // namespace orvane::RobotSdk
