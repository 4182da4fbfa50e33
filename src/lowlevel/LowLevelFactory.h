#pragma once

#include <memory>

#include "orvane/RobotSdk/IMotionLowLevelClient.h"

namespace orvane::RobotSdk {

/// Makes a low-level client of the robot's board and the handle through which the application holds
/// it: the release of the last reference disconnects the client; the client itself lives on until
/// its own thread has let go of it.
[[nodiscard]] std::shared_ptr<IMotionLowLevelClient> makeLocalLowLevelClient();

/// Makes a low-level client of an external host, which reads its environment variables now.
[[nodiscard]] std::shared_ptr<IMotionLowLevelClient> makeSimulationLowLevelClient();

}  // namespace orvane::RobotSdk
