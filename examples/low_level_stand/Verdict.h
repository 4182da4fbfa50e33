#pragma once

#include <cstddef>

#include "Leg.h"
#include "Pilot.h"

namespace low_level_stand {

/// Whether the robot really stands, by what it showed over some time.
class Verdict {
 public:
  /// `target`: where the joints are to be.
  explicit Verdict(const Joints& target) : target_(target) {}

  void add(const Readings& readings);
  /// Each joint's target and what was measured, and what else speaks for or against it.
  void print() const;
  /// Null when it stands, else what is wrong.
  [[nodiscard]] const char* fault() const;

 private:
  [[nodiscard]] double mean(double sum) const;
  /// The force with which all legs press on the ground, N.
  [[nodiscard]] double pressure() const;

  Joints target_;
  std::size_t count_ = 0;
  // Sums.
  Joints position_{};
  Joints torque_{};
  double accelZ_ = 0;
  // The worst.
  double off_ = 0;
  double roll_ = 0;
  double pitch_ = 0;
  bool imuTrusted_ = true;
};

}  // namespace low_level_stand
