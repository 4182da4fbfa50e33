#pragma once

#include <optional>
#include <string>
#include <utility>

namespace NFramework {

/// Why an operation failed.
struct Error {
  int code = 0;                  ///< a value of errno, never 0 in a result
  const char* attempted = "";    ///< what "can't" goes before; a literal
  const char* reason = nullptr;  ///< more than the code says, or null; never freed

  /// "can't join a multicast group: No such device (19)"
  [[nodiscard]] std::string text() const;
};

/// A value, or the error that there is instead. What is used of it goes by the names of
/// std::expected: test it first, then take the value with * or ->, or error().
template <class Value = void>
class [[nodiscard]] Result {
 public:
  Result(Value value) : value_(std::move(value)) {}
  Result(const Error& error) : error_(error) {}

  explicit operator bool() const noexcept { return value_.has_value(); }
  Value& operator*() & noexcept { return *value_; }
  const Value& operator*() const& noexcept { return *value_; }
  Value&& operator*() && noexcept { return *std::move(value_); }
  Value* operator->() noexcept { return &*value_; }
  const Value* operator->() const noexcept { return &*value_; }
  [[nodiscard]] const Error& error() const noexcept { return error_; }

 private:
  std::optional<Value> value_;
  Error error_;
};

template <>
class [[nodiscard]] Result<void> {
 public:
  Result() = default;
  Result(const Error& error) : error_(error) {}

  explicit operator bool() const noexcept { return error_.code == 0; }
  [[nodiscard]] const Error& error() const noexcept { return error_; }

 private:
  Error error_;
};

/// The error of the system call that just failed.
[[nodiscard]] Error systemError(const char* attempted) noexcept;

}  // namespace NFramework
