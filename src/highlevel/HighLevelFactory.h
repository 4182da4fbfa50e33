#pragma once

#include <memory>
#include <string>

#include "orvane/RobotSdk/IMotionHighLevelClient.h"

namespace orvane::RobotSdk {

/// Makes a high-level client and the handle through which the application holds it: the release of
/// the last reference disconnects the client; the client itself lives on until its own threads have
/// let go of it.
[[nodiscard]] std::shared_ptr<IMotionHighLevelClient> makeBoardHighLevelClient(bool asMaster);
[[nodiscard]] std::shared_ptr<IMotionHighLevelClient> makeRemoteHighLevelClient(
    std::string deviceId);

}  // namespace orvane::RobotSdk
