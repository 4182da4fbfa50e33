#include "lowlevel/LowLevelFactory.h"

#include <utility>

#include "lowlevel/LocalLowLevelClientImpl.h"
#include "lowlevel/SimulationLowLevelClientImpl.h"

namespace orvane::RobotSdk {

std::shared_ptr<IMotionLowLevelClient> makeLocalLowLevelClient() {
  auto client = std::make_shared<LocalLowLevelClientImpl>();
  auto* const face = client.get();
  return {face, [held = std::move(client)](IMotionLowLevelClient*) mutable {
            static_cast<void>(held->disconnect());
            held.reset();
          }};
}

std::shared_ptr<IMotionLowLevelClient> makeSimulationLowLevelClient() {
  return std::make_shared<SimulationLowLevelClientImpl>();
}

}  // namespace orvane::RobotSdk
