#pragma once

#include <chrono>
#include <cstddef>
#include <vector>

namespace joint_loop {

/// How regularly a loop ran. Nothing is allocated between construction and print.
class LoopStatistics {
 public:
  using Clock = std::chrono::steady_clock;

  explicit LoopStatistics(std::size_t passes) { periodsUs_.reserve(passes); }

  /// A pass begins.
  void begin();
  void countLost() { ++lost_; }
  void countRefused() { ++refused_; }
  [[nodiscard]] std::size_t lost() const { return lost_; }
  [[nodiscard]] std::size_t refused() const { return refused_; }
  void print();

 private:
  Clock::time_point former_{};
  std::vector<double> periodsUs_;
  std::size_t lost_ = 0;
  std::size_t refused_ = 0;
};

}  // namespace joint_loop
