#pragma once

#include <array>
#include <cstdint>
#include <initializer_list>
#include <span>
#include <string>
#include <utility>
#include <vector>

#include "harness/Child.h"
#include "harness/Report.h"

namespace bench {

/// How much to measure.
struct Plan {
  enum class Length { kQuick, kNormal, kLong };
  Length length = Length::kNormal;
  std::uint32_t soakSeconds = 600;

  /// The amount for this length.
  template <class T>
  [[nodiscard]] T of(T quick, T normal, T atLength) const {
    return std::array{quick, normal, atLength}[static_cast<std::size_t>(length)];
  }
};

/// One file each. A case starts the processes that it measures, and ends them. Throws
/// std::runtime_error when something can't be measured.
struct Case {
  const char* name;
  std::vector<Row> (*run)(const Plan& plan);
  bool onlyLong;                     ///< runs when asked for by name, or in a long run
  std::span<const char* const> ids;  ///< the rows that it gives, whatever the plan
};

/// A role of this program in a process of its own.
[[nodiscard]] Child startRole(const std::string& name, const Json::Value& arguments,
                              const Child::Environment& environment = {});
/// {"key": value, ...} from pairs.
[[nodiscard]] Json::Value object(
    std::initializer_list<std::pair<const char*, Json::Value>> members);

/// One side of an interleaved measurement.
struct Contender {
  Child& child;
  std::vector<double> ns;
};
/// Has the contenders carry out `command` in turn, `rounds` times, each round beginning with
/// another one, after one round that isn't counted.
void interleave(std::span<Contender> contenders, const Json::Value& command, std::uint32_t rounds);

[[nodiscard]] std::vector<double> scaled(const std::vector<double>& values, double scale);

}  // namespace bench
