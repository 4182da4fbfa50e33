#pragma once

#include <compare>
#include <string>
#include <string_view>

#include "net/Result.h"

namespace NFramework {

/// An interface of this machine, by the index that the system gave it. Whether the interface is
/// still there is found out where it is used.
class NetworkInterface {
 public:
  /// Index 0 is any().
  constexpr explicit NetworkInterface(unsigned index) noexcept : index_(index) {}
  /// The one that the system chooses, by its routes.
  static constexpr NetworkInterface any() { return NetworkInterface(0); }
  /// ENODEV when there is none of that name. Never blocks.
  static Result<NetworkInterface> byName(std::string_view name);

  [[nodiscard]] constexpr unsigned index() const noexcept { return index_; }
  /// ENODEV when it is gone, or any(). Never blocks.
  [[nodiscard]] Result<std::string> name() const;

  friend constexpr auto operator<=>(const NetworkInterface&, const NetworkInterface&) = default;

 private:
  unsigned index_ = 0;
};

}  // namespace NFramework
