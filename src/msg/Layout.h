#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <string_view>
#include <type_traits>

/// How a message structure lies in memory, as a table: what the encoder walks. Both encodings
/// follow from the same table, since they differ in nothing but the alignment of 8-byte members.
namespace orvane::msg::detail {

struct Structure;

struct Member {
  std::string_view name;
  std::uint32_t offset;     ///< in memory, within its structure
  std::uint32_t width;      ///< bytes of one element in memory
  std::uint32_t count;      ///< elements: 1, or the bound of an array
  const Structure* nested;  ///< null for a number of `width` bytes
};

struct Structure {
  std::span<const Member> members;
};

/// Specialised for every structure with `static constexpr Member members[]`.
template <class T>
struct Layout;

template <class T>
inline constexpr Structure structureOf{Layout<T>::members};

template <class T>
constexpr Member describe(std::string_view name, std::size_t offset) {
  using Element = std::remove_all_extents_t<T>;
  static_assert(std::rank_v<T> <= 1);
  constexpr auto kCount = static_cast<std::uint32_t>(sizeof(T) / sizeof(Element));
  const auto at = static_cast<std::uint32_t>(offset);
  if constexpr (std::is_arithmetic_v<Element>) {
    return {name, at, sizeof(Element), kCount, nullptr};
  } else {
    return {name, at, sizeof(Element), kCount, &structureOf<Element>};
  }
}

}  // namespace orvane::msg::detail
