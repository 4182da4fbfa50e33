#include "body/Gait.h"

#include <algorithm>
#include <cmath>

#include "body/Ease.h"

namespace orvane::robot {
namespace {

constexpr double kStanceShare = 0.5;
constexpr double kBlendSeconds = 0.2;

}  // namespace

void Gait::step(bool wanted, double seconds) {
  const double change = seconds / kBlendSeconds;
  activity_ = std::clamp(activity_ + (wanted ? change : -change), 0.0, 1.0);
  phase_ = activity_ > 0 ? std::fmod(phase_ + kFrequency * seconds, 1.0) : 0.0;
}

double Gait::footPhase(std::size_t leg) const {
  const bool firstDiagonal = leg == 0 || leg == 3;
  return std::fmod(phase_ + (firstDiagonal ? 0.0 : 0.5), 1.0);
}

double Gait::load(std::size_t leg) const {
  return footPhase(leg) < kStanceShare ? 1.0 : 1.0 - activity_;
}

Vector3 Gait::footOffset(std::size_t leg, double x, double y, double stepHeight) const {
  const double phase = footPhase(leg);
  // From +0.5 to -0.5 of the stride while the foot stands, and back on a curve that leaves and
  // meets the ground with the ground's own speed.
  double along = 0;
  double lift = 0;
  if (phase < kStanceShare) {
    along = 0.5 - phase / kStanceShare;
  } else {
    const double s = (phase - kStanceShare) / (1 - kStanceShare);
    along = -0.5 - s + 2 * smoothStep(s);
    lift = std::sin(M_PI * s);
  }
  const double stride = activity_ * kStanceShare / kFrequency;
  return {stride * x * along, stride * y * along, activity_ * stepHeight * lift * lift};
}

}  // namespace orvane::robot
