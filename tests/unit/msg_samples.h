#pragma once

#include <cstddef>
#include <cstring>
#include <type_traits>

namespace samples {

/// A T whose every byte, padding included, is set: no two neighbours are equal, none is zero and
/// none makes a NaN.
template <class T>
T patterned(unsigned seed = 0) {
  static_assert(std::is_trivially_copyable_v<T>);
  T sample;
  auto* const bytes = reinterpret_cast<unsigned char*>(&sample);
  for (std::size_t i = 0; i < sizeof(T); ++i) {
    bytes[i] = static_cast<unsigned char>(1 + (i * 7 + seed) % 101);
  }
  return sample;
}

/// The number of type V at `offset` of some bytes.
template <class V>
V at(const void* bytes, std::size_t offset) {
  V value;
  std::memcpy(&value, static_cast<const unsigned char*>(bytes) + offset, sizeof(V));
  return value;
}

}  // namespace samples
