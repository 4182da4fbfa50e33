#include "Verdict.h"

#include <algorithm>
#include <cmath>
#include <cstdio>

namespace low_level_stand {
namespace {

constexpr std::size_t kEnough = 100;   // records
constexpr double kLargestOff = 0.1;    // rad
constexpr double kLargestTilt = 0.15;  // rad
constexpr double kGravity = 9.81;      // m/s^2
constexpr double kGravityOff = 1.5;
constexpr double kWeightOff = 0.3;  // share of the weight

}  // namespace

void Verdict::add(const Readings& readings) {
  ++count_;
  for (std::size_t i = 0; i < kJoints; ++i) {
    position_[i] += readings.position[i];
    torque_[i] += readings.torque[i];
  }
  accelZ_ += readings.accelZ;
  off_ = std::max(off_, furthest(readings.position, target_));
  roll_ = std::max(roll_, std::abs(readings.roll));
  pitch_ = std::max(pitch_, std::abs(readings.pitch));
  imuTrusted_ = imuTrusted_ && readings.imuTrusted;
}

double Verdict::mean(double sum) const {
  return count_ == 0 ? 0 : sum / static_cast<double>(count_);
}

double Verdict::pressure() const {
  double sum = 0;
  for (std::size_t leg = 0; leg < kLegs; ++leg) {
    Leg angles = legOf(position_, leg);
    Leg torques = legOf(torque_, leg);
    for (double& angle : angles) angle = mean(angle);
    for (double& torque : torques) torque = mean(torque);
    sum += pressureOf(angles, torques);
  }
  return sum;
}

void Verdict::print() const {
  std::printf("joint      target  measured   torque\n");
  for (std::size_t i = 0; i < kJoints; ++i) {
    std::printf("%-8s %8.3f  %8.3f %8.2f\n", nameOf(i), target_[i], mean(position_[i]),
                mean(torque_[i]));
  }
  std::printf("               rad       rad      N m\n");
  std::printf("Tilt at most %.3f rad (roll) and %.3f rad (pitch), accelerometer %.2f m/s2.\n",
              roll_, pitch_, mean(accelZ_));
  std::printf("The legs press on the ground with %.0f N; the robot weighs %.0f N.\n", pressure(),
              kWeight);
}

const char* Verdict::fault() const {
  if (count_ < kEnough) return "too few records came to tell";
  if (!(off_ < kLargestOff)) return "a joint isn't where it is to be";
  if (!imuTrusted_) return "the inertial unit calls its own figures wrong";
  if (!(roll_ < kLargestTilt && pitch_ < kLargestTilt)) return "the body is tilted";
  if (!(std::abs(mean(accelZ_) - kGravity) < kGravityOff)) return "the body isn't at rest upright";
  if (!(std::abs(pressure() / kWeight - 1) < kWeightOff)) return "the legs don't carry its weight";
  return nullptr;
}

}  // namespace low_level_stand
