#pragma once

#include <memory>

#include "RobotSettings.h"
#include "body/Body.h"
#include "body/Film.h"

namespace orvane::robot {

/// The body that the settings ask for, and where `film` isn't null the pictures of it that they ask
/// for (null for none). Throws std::runtime_error with a sentence for people when this program
/// can't make them.
[[nodiscard]] std::unique_ptr<Body> makeBody(const RobotSettings& settings,
                                             std::shared_ptr<Film>* film = nullptr);

}  // namespace orvane::robot
