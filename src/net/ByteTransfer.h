#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <type_traits>

namespace orvane::RobotSdk {

/// A function object by reference, so that handing one over allocates nothing: it takes (pointer,
/// length in bytes) and returns a count. It must live until the call that it is handed to returns.
/// Not set when made of nullptr, of a null function pointer or of an empty std::function.
template <class Pointer>
class ByteTransfer {
 public:
  ByteTransfer(std::nullptr_t) noexcept {}

  template <class Function>
  requires(!std::is_same_v<std::remove_cvref_t<Function>, ByteTransfer> &&
           std::is_object_v<std::remove_reference_t<Function>> &&
           std::is_invocable_r_v<std::int32_t, Function&, Pointer, std::int32_t>)
      ByteTransfer(Function&& function)
  noexcept {
    using Object = std::remove_reference_t<Function>;
    if constexpr (std::is_constructible_v<bool, Object&>) {
      if (!static_cast<bool>(function)) return;
    }
    object_ = const_cast<void*>(static_cast<const void*>(std::addressof(function)));
    call_ = [](void* object, Pointer bytes, std::int32_t length) -> std::int32_t {
      return (*static_cast<Object*>(object))(bytes, length);
    };
  }

  explicit operator bool() const noexcept { return call_ != nullptr; }
  std::int32_t operator()(Pointer bytes, std::int32_t length) const {
    return call_(object_, bytes, length);
  }

 private:
  void* object_ = nullptr;
  std::int32_t (*call_)(void*, Pointer, std::int32_t) = nullptr;
};

/// Takes up to `length` bytes and returns how many it took.
using ByteSink = ByteTransfer<const std::uint8_t*>;
/// Stores up to `length` bytes and returns how many it stored.
using ByteSource = ByteTransfer<std::uint8_t*>;

}  // namespace orvane::RobotSdk
