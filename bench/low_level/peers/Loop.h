#pragma once

#include <cstdint>
#include <vector>

#include "harness/Role.h"

namespace bench {

/// A loop that begins a pass at regular times. Commands:
///  - "loop", with "count", "intervalUs": {"cpuNs" of the looping thread, "wallNs"};
///  - "periods", with "from", "count": {"ns": [...]}, the times between the beginnings of passes.
class LoopRole : public Role {
 public:
  Json::Value handle(const Json::Value& command) override;

 protected:
  virtual void pass() noexcept = 0;

 private:
  Json::Value loop(std::uint32_t count, std::int64_t intervalNs);
  [[nodiscard]] Json::Value periods(std::size_t from, std::size_t count) const;

  std::vector<std::int64_t> periodsNs_;
};

/// Only sleeps.
class BareLoop final : public LoopRole {
 public:
  explicit BareLoop(const Json::Value&) {}

 private:
  void pass() noexcept override {}
};

}  // namespace bench
