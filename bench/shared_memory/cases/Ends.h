#pragma once

#include <optional>
#include <string>
#include <utility>

#include "harness/Case.h"

namespace bench {

/// The two ends of a channel, each in a process of its own.
struct Ends {
  Child reader;
  Child writer;
};
/// A shared page and a futex; the roles futex-reader and futex-writer of this program.
[[nodiscard]] Ends startFutex();

/// iceoryx with its daemon, for as long as this lives.
class Iceoryx {
 public:
  /// Nothing where it isn't installed. Throws std::runtime_error when it is and doesn't start.
  [[nodiscard]] static std::optional<Iceoryx> start();
  [[nodiscard]] Ends ends(const std::string& channel,
                          const Child::Environment& environment = {}) const;
  /// A writer that nobody listens to.
  [[nodiscard]] Child lonelyWriter(const std::string& channel,
                                   const Child::Environment& environment = {}) const;

 private:
  explicit Iceoryx(Child daemon) : daemon_(std::move(daemon)) {}

  Child daemon_;
};
/// The note of a row whose baseline is missing.
inline constexpr const char* kNoIceoryx =
    "iceoryx isn't installed (tools/install-dependencies bench): not compared";

}  // namespace bench
