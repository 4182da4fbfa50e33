#include "core/Errors.h"

#include <array>
#include <utility>

namespace robotctl {
namespace {

using Named = std::pair<std::uint32_t, const char*>;

constexpr std::array<Named, 11> kErrors{{
    {0, "no error"},
    {1, "the library isn't started or its messaging layer didn't start"},
    {2, "control wasn't acquired"},
    {3, "no answer from the robot"},
    {4, "the lease expired"},
    {5, "control was revoked or taken by another controller"},
    {6, "not connected"},
    {7, "not in control"},
    {8, "no fresh observed data"},
    {9, "refused by the robot"},
    {10, "no JSON text"},
}};

constexpr std::array<Named, 12> kReasons{{
    {1, "the caller isn't in control"},
    {2, "no such file"},
    {9, "not the present session"},
    {11, "not possible now"},
    {16, "somebody else has control"},
    {17, "exists already"},
    {22, "the request can't be read"},
    {28, "no room"},
    {29, "control was revoked or preempted"},
    {34, "out of range"},
    {38, "the robot has no such thing"},
    {62, "the lease expired"},
}};

template <std::size_t size>
std::string named(const char* kind, std::uint32_t number, const std::array<Named, size>& names) {
  const std::string text = kind + std::to_string(number);
  for (const auto& [known, name] : names) {
    if (known == number) return text + " (" + name + ")";
  }
  return text;
}

}  // namespace

std::string errorText(std::uint32_t code) {
  return named("error ", code, kErrors);
}

std::string reasonText(std::uint32_t number) {
  return named("errno ", number, kReasons);
}

}  // namespace robotctl
