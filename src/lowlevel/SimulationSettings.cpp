#include "lowlevel/SimulationSettings.h"

#include <algorithm>
#include <cstdlib>

#include "pbase/System.h"

namespace orvane::RobotSdk::lowlevel {
namespace {

using Pexal::PBase::getEnvVariable;

long numberIn(const char* variable, const char* fallback) {
  constexpr int kDecimal = 10;
  return std::strtol(getEnvVariable(variable, fallback).c_str(), nullptr, kDecimal);
}

}  // namespace

SimulationSettings SimulationSettings::fromEnvironment() {
  SimulationSettings settings;
  settings.domain = numberIn("ORVANE_MOTION_DDS_DOMAIN", "42");
  settings.controlTopic = getEnvVariable("ORVANE_MOTION_CONTROL_TOPIC", "motion/control");
  settings.observedTopic = getEnvVariable("ORVANE_MOTION_OBSERVED_TOPIC", "motion/observed");
  settings.trcTopic = getEnvVariable("ORVANE_MOTION_TRC_TOPIC", "motion/trc");
  settings.depth = static_cast<std::int32_t>(
      std::clamp<long>(numberIn("ORVANE_MOTION_DDS_DEPTH", "1"), 1, INT32_MAX));
  settings.staleMs =
      static_cast<std::uint64_t>(std::max(numberIn("ORVANE_MOTION_TRC_STALE_MS", "200"), 1L));
  return settings;
}

dds::core::policy::Reliability reliabilityIn(const char* variable) {
  using dds::core::Duration;
  using dds::core::policy::Reliability;
  const std::string word = getEnvVariable(variable);
  if (word == "RELIABLE" || word == "reliable") return Reliability::Reliable(Duration::zero());
  return Reliability::BestEffort(Duration::from_millisecs(100));
}

}  // namespace orvane::RobotSdk::lowlevel
