#include "body/Battery.h"

#include <algorithm>

#include "body/Upkeep.h"

namespace orvane::robot {
namespace {

constexpr double kCapacityWattHours = 350;
constexpr double kEmptyVolts = 21.6;
constexpr double kFullVolts = 25.2;
constexpr double kResistanceOhms = 0.04;
constexpr double kHeatPerWatt = 0.02;  // degrees above ambient per watt drawn, after a long time
constexpr double kHeatSeconds = 900;

double openVolts(double percent) {
  return kEmptyVolts + (kFullVolts - kEmptyVolts) * percent / 100;
}

}  // namespace

Battery::Battery(double chargePercent) {
  state_.chargePercent = std::clamp(chargePercent, 0.0, 100.0);
  state_.temperature = kAmbient;
  state_.voltage = openVolts(state_.chargePercent);
}

void Battery::draw(double watts, double seconds) {
  const double wattHours = watts * seconds / 3600;
  state_.chargePercent = std::max(0.0, state_.chargePercent - 100 * wattHours / kCapacityWattHours);
  state_.current = -watts / state_.voltage;
  state_.voltage = openVolts(state_.chargePercent) + state_.current * kResistanceOhms;
  const double target = kAmbient + kHeatPerWatt * watts;
  state_.temperature += (target - state_.temperature) * seconds / kHeatSeconds;
}

}  // namespace orvane::robot
