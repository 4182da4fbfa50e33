#pragma once

#include <cstdint>
#include <string>
#include <variant>

namespace orvane::robot {

/// What can be asked of a robot that is to misbehave.
enum class Fault {
  kRefuse,
  kDelay,
  kDrop,
  kWithhold,
  kPreempt,
  kRestore,
  kRevoke,
  kExpire,
  kEndSession,
  kSilent,
  kSpeak,
  kNonsense,
  kSense,
  kDie,
  kClear,
  kList,
};

/// One line of a fault script, read.
struct FaultCommand {
  Fault fault = Fault::kList;
  std::string name;               ///< a method, "any", or who preempts
  std::uint32_t ms = 0;           ///< how long; 0: until told otherwise
  std::uint32_t times = 0;        ///< how many requests; 0: until cleared
  std::uint32_t errorNumber = 0;  ///< of a refusal
  std::uint32_t afterMs = 0;      ///< 0: now
};

inline constexpr const char* kAnyMethod = "any";
/// Why a fault isn't taken any more.
inline constexpr const char* kRobotEnds = "the robot ends";

/// A command, or what is wrong with the text, the allowed form included.
using ParsedFault = std::variant<FaultCommand, std::string>;

/// Reads one line, e.g. "refuse startMotionAction 3 errno 11" or "after 2000 revoke". `isMethod`
/// says which methods there are.
[[nodiscard]] ParsedFault parseFault(const std::string& text,
                                     bool (*isMethod)(const std::string& name));

/// The line that reads as `command`, without its "after".
[[nodiscard]] std::string textOf(const FaultCommand& command);

/// All forms, one per line, for people.
[[nodiscard]] std::string faultForms();

}  // namespace orvane::robot
