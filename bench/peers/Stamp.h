#pragma once

#include <array>
#include <cstddef>
#include <cstdint>

namespace bench {

/// A time that travels in four floats which the library copies as they are (the observed records
/// have no field for the time of writing): 16 bits in each, which a float holds exactly.
[[nodiscard]] inline std::array<float, 4> stampFrom(std::int64_t ns) {
  const auto part = [bits = static_cast<std::uint64_t>(ns)](int shift) {
    return static_cast<float>((bits >> shift) & 0xffff);
  };
  return {part(0), part(16), part(32), part(48)};
}

[[nodiscard]] inline std::int64_t stampOf(const std::array<float, 4>& parts) {
  std::uint64_t bits = 0;
  for (int i = 3; i >= 0; --i)
    bits = bits << 16 | static_cast<std::uint64_t>(parts[static_cast<std::size_t>(i)]);
  return static_cast<std::int64_t>(bits);
}

/// Puts the time into a motion sample.
template <class Sample>
void stampMotion(Sample& sample, std::int64_t ns) {
  const auto parts = stampFrom(ns);
  auto& quaternion = sample.imu.quaternion;
  quaternion.w = parts[0];
  quaternion.x = parts[1];
  quaternion.y = parts[2];
  quaternion.z = parts[3];
}
/// The time in a motion sample, or in the record that the library makes of it.
template <class Motion>
[[nodiscard]] std::int64_t motionStampOf(const Motion& motion) {
  const auto& parts = motion.imu.quaternion;
  return stampOf({parts.w, parts.x, parts.y, parts.z});
}

}  // namespace bench
