#include "lowlevel/LowLevelFactory.h"

#include <utility>

#include "lowlevel/LocalLowLevelClientImpl.h"

namespace orvane::RobotSdk {

std::shared_ptr<IMotionLowLevelClient> makeLocalLowLevelClient() {
  auto client = std::make_shared<LocalLowLevelClientImpl>();
  auto* const face = client.get();
  return {face, [held = std::move(client)](IMotionLowLevelClient*) mutable {
            static_cast<void>(held->disconnect());
            held.reset();
          }};
}

}  // namespace orvane::RobotSdk
