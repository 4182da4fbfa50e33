#pragma once

#include <optional>
#include <span>
#include <string>
#include <vector>

#include "harness/Case.h"

namespace bench {

/// The cases of the shared memory on the robot's board.
[[nodiscard]] std::span<const Case> shmCases();

std::vector<Row> measureChannel(const Plan& plan);
std::vector<Row> measureCost(const Plan& plan);
std::vector<Row> measureBuffer(const Plan& plan);
std::vector<Row> measureTorn(const Plan& plan);

/// The two ends of a channel, each in a process of its own.
struct Ends {
  Child reader;
  Child writer;
};
/// `environment` is the writer's.
[[nodiscard]] Ends startOwn(const std::string& channel, const Child::Environment& environment = {});
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
