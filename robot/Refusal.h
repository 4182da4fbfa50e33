#pragma once

#include <cstdint>
#include <string>

namespace orvane::robot {

/// Why a request was refused, as the number that travels beside the answer. The values follow errno
/// where it has a fitting one; clients depend on kRevoked.
enum class Reason : std::uint32_t {
  kNotController = 1,   ///< the caller doesn't hold control and never did under that id
  kNoFile = 2,          ///< there is no audio file of that name
  kNoSession = 9,       ///< not the number of the present low-level session (any more)
  kNotNow = 11,         ///< not possible in the present posture, or nothing is played
  kHeldByAnother = 16,  ///< somebody else holds control
  kExists = 17,         ///< there is one of that name already
  kInvalid = 22,        ///< the document can't be read
  kNoRoom = 28,         ///< the robot can keep no more of it
  kRevoked = 29,        ///< the grant was taken away (revoked or preempted)
  kOutOfRange = 34,     ///< a value lies outside its range
  kNotAvailable = 38,   ///< this robot has no such thing
  kExpired = 62,        ///< the grant ended with its lease
};

/// A refusal and its reason in words, for people.
struct Refusal {
  Reason reason;
  std::string text;
};

}  // namespace orvane::robot
