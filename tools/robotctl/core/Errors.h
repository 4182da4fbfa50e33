#pragma once

#include <cstdint>
#include <string>

namespace robotctl {

/// getLastError() of a high-level client as people read it: "error 5 (control was revoked or taken
/// by another controller)".
[[nodiscard]] std::string errorText(std::uint32_t code);

/// The number of a robot's refusal: "errno 11 (not possible now)".
[[nodiscard]] std::string reasonText(std::uint32_t number);

}  // namespace robotctl
