#pragma once

#include <json/json.h>

#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "core/Signals.h"
#include "doctor/Machine.h"
#include "pdbus/IDDSFactory.h"

namespace robotctl::doctor {

/// What a robot said of itself.
struct RobotAnswer {
  std::string deviceNo;
  Json::Value detail;  ///< an object, or null
};

/// The lines of warnings and errors that the platform logs while this lives; none reaches the
/// console. Any thread logs.
class LogCapture {
 public:
  /// `forward`: everything goes to standard error as well.
  explicit LogCapture(bool forward);
  ~LogCapture();
  LogCapture(const LogCapture&) = delete;
  LogCapture& operator=(const LogCapture&) = delete;

  /// Those since the last call, without line ends.
  [[nodiscard]] std::vector<std::string> take();

 private:
  struct Lines;
  std::shared_ptr<Lines> lines_;
  std::uint64_t sink_;
};

/// Joins this machine's domains as the library would, and asks for robots there. Takes no control
/// and sends nothing that could move a robot: a discovery on a host, a question for its status on a
/// board.
///
/// Threading: one thread uses it. Answers come on the bus's threads, mutex_ guards them.
class RobotSearch {
 public:
  RobotSearch(const Machine& machine, const Interrupts& interrupts);
  ~RobotSearch();
  RobotSearch(const RobotSearch&) = delete;
  RobotSearch& operator=(const RobotSearch&) = delete;

  /// False: DDS can't start; the log says why.
  [[nodiscard]] bool start();
  /// Who answers within `windowMs`; ends soon after the first answer, or with the one named
  /// `wanted`. Throws Interrupted.
  [[nodiscard]] std::vector<RobotAnswer> robots(std::uint32_t windowMs, const std::string& wanted);

 private:
  class Answers;

  [[nodiscard]] Json::Value document() const;
  [[nodiscard]] std::vector<RobotAnswer> askBoard(std::uint32_t windowMs);

  const Machine machine_;
  const Interrupts& interrupts_;
  const std::shared_ptr<Pexal::PDBus::IDDSFactory> factory_;
  const std::shared_ptr<Answers> answers_;
};

}  // namespace robotctl::doctor
