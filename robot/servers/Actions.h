#pragma once

#include <array>

#include "motion/MotionController.h"

namespace orvane::robot {

/// The actions of "startMotionAction".
struct ActionName {
  const char* name;
  Action action;
};
inline constexpr std::array<ActionName, 5> kActionNames{{
    {"standing", Action::kStanding},
    {"laying", Action::kLaying},
    {"recoveryStand", Action::kRecoveryStand},
    {"disableAction", Action::kDisable},
    {"walking", Action::kWalking},
}};

}  // namespace orvane::robot
