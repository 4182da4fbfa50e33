#pragma once

#include <array>
#include <cstdint>
#include <string_view>

#include "msg/MotionTypes.h"

namespace orvane::robot {

/// What a game pad's buttons, sticks and triggers are at: the message itself, whose `controller`
/// and `timestamp` belong to whoever sends it. Sticks: -1 to 1, right and up (away from the user)
/// positive; triggers: 0 to 1; buttons: 0 or 1. All zero: nobody touches it.
using PadState = msg::dds_::RemoteControl_;

struct PadButton {
  std::string_view name;
  std::uint8_t PadState::*member;
};
inline constexpr std::array<PadButton, 16> kPadButtons{{{"back", &PadState::back},
                                                        {"start", &PadState::start},
                                                        {"lb", &PadState::lb},
                                                        {"rb", &PadState::rb},
                                                        {"f1", &PadState::f1},
                                                        {"f2", &PadState::f2},
                                                        {"a", &PadState::a},
                                                        {"b", &PadState::b},
                                                        {"x", &PadState::x},
                                                        {"y", &PadState::y},
                                                        {"up", &PadState::up},
                                                        {"down", &PadState::down},
                                                        {"left", &PadState::left},
                                                        {"right", &PadState::right},
                                                        {"ls", &PadState::ls},
                                                        {"rs", &PadState::rs}}};

struct PadAxis {
  std::string_view name;
  float PadState::*member;
  float lower;  ///< its upper end is 1
};
inline constexpr std::array<PadAxis, 6> kPadAxes{{{"stickLX", &PadState::stickLX, -1},
                                                  {"stickLY", &PadState::stickLY, -1},
                                                  {"stickRX", &PadState::stickRX, -1},
                                                  {"stickRY", &PadState::stickRY, -1},
                                                  {"triggerL", &PadState::triggerL, 0},
                                                  {"triggerR", &PadState::triggerR, 0}}};

}  // namespace orvane::robot
