#pragma once

#include <string>

#include "media/AudioFiles.h"
#include "media/CameraLight.h"
#include "media/Player.h"

namespace orvane::robot {

/// What the robot plays and shows besides moving. Not thread-safe: the robot mutex guards it.
struct MediaRoom {
  AudioFiles files;
  Player player;
  CameraLight light;

  /// Deletes the file, and takes it out of what is played. Refused: there is none of that name.
  [[nodiscard]] std::optional<Refusal> remove(const std::string& name) {
    if (auto refusal = files.remove(name)) return refusal;
    player.remove(name);
    return std::nullopt;
  }
};

}  // namespace orvane::robot
