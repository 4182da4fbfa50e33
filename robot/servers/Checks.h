#pragma once

#include <json/value.h>

#include <cstdint>
#include <initializer_list>
#include <optional>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

#include "Refusal.h"
#include "motion/MotionLimits.h"

namespace orvane::robot {

/// A checked value, or why there is none.
template <class T>
using Checked = std::variant<T, Refusal>;

/// Reads the members of one JSON object whose text came from outside. The first failure is kept and
/// everything after it gives initial values: read all members, then look at failure(). Never throws
/// on wrong types. Used on one thread, while `object` lives.
class ObjectReader {
 public:
  /// `object` may be null (no members). `name` stands in refusals.
  ObjectReader(const Json::Value& object, std::string name);

  /// A finite number within the range. Refused when absent, unless `fallback` is given.
  double number(const char* key, const Range& range, std::optional<double> fallback = {});
  std::optional<double> optionalNumber(const char* key, const Range& range);
  std::optional<bool> optionalBool(const char* key);
  std::optional<std::uint32_t> optionalUnsigned(const char* key);
  /// A whole number from 0 to 2^64 - 1. Refused when absent.
  std::uint64_t unsigned64(const char* key);
  /// A text of 1 to `longest` bytes.
  std::string text(const char* key, std::size_t longest);
  std::optional<std::string> optionalText(const char* key, std::size_t longest);
  /// An array of at most `most` such texts.
  std::optional<std::vector<std::string>> optionalTexts(const char* key, std::size_t most,
                                                        std::size_t longest);
  /// An object or null; null when absent.
  const Json::Value& object(const char* key);
  /// Refuses members of any other name, for a misspelt one would silently do nothing.
  void onlyKeys(std::initializer_list<std::string_view> keys);

  [[nodiscard]] const std::optional<Refusal>& failure() const { return failure_; }

 private:
  const Json::Value* find(const char* key);
  void fail(Reason reason, const std::string& text);

  const Json::Value& object_;
  const std::string name_;
  std::optional<Refusal> failure_;
};

}  // namespace orvane::robot
