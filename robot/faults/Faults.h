#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "RobotCore.h"
#include "faults/FaultCommand.h"
#include "faults/RequestFaults.h"
#include "faults/Voice.h"
#include "pbase/CMutex.h"
#include "pbase/CThread.h"

namespace orvane::robot {

/// The faults that a script asks of the robot: now, or at a time.
///
/// Threading contract: start and stop on the owner's thread; apply on any. The thread
/// "robot:faults" carries out what has a time. mutex_ guards the timetable and is a leaf; a command
/// is carried out without it, through the robot mutex where it concerns control.
class Faults {
 public:
  /// How a list of commands went.
  struct Outcome {
    bool done = false;
    std::vector<std::string> answers;  ///< of the commands that were carried out, in order
    std::string error;                 ///< why the next one wasn't; empty when done
  };

  Faults(std::shared_ptr<RobotCore> core, std::shared_ptr<RequestServer> server);
  ~Faults() { stop(); }

  /// Carries out `texts` in order (see parseFault). None of them when one can't be read; those
  /// behind one that fails are left out. Blocks for the robot mutex only.
  Outcome applyAll(const std::vector<std::string>& texts);
  Outcome apply(const std::string& text) { return applyAll({text}); }

  /// What "die" does: ends the process without a word. Set it before start; without it "die" is
  /// refused, for a robot inside another program must not take that with it.
  void onDie(std::function<void()> end) { end_ = std::move(end); }

  /// False: no thread could be had.
  [[nodiscard]] bool start() { return thread_.createThread(); }
  /// Ends delays, rules and the timetable; what comes now is answered as it should be, though a
  /// silent robot stays silent.
  void stop();

  /// The robot's requests go through this.
  [[nodiscard]] RequestFaults& requests() { return requests_; }
  [[nodiscard]] const std::shared_ptr<Voice>& voice() const { return voice_; }

 private:
  static constexpr std::size_t kMostTimed = 64;
  /// Long enough for DDS to repeat an answer that was lost.
  static constexpr std::uint32_t kLastWordsMs = 300;

  struct Timed {
    std::uint64_t dueUs;
    FaultCommand command;
  };
  /// What a command answers.
  struct Answer {
    bool done;
    std::string text;
  };

  void run();
  [[nodiscard]] std::uint64_t earliestUs() const;
  [[nodiscard]] std::optional<FaultCommand> takeDue();
  [[nodiscard]] Answer schedule(const FaultCommand& command);
  [[nodiscard]] Answer carryOut(const FaultCommand& command);
  [[nodiscard]] Answer changeControl(const FaultCommand& command);
  [[nodiscard]] Answer die();
  void clear();
  [[nodiscard]] std::string list();

  const std::shared_ptr<RobotCore> core_;
  const std::shared_ptr<Voice> voice_;
  RequestFaults requests_;
  std::function<void()> end_;
  Pexal::PBase::CMutex mutex_;  // guards what follows
  Pexal::PBase::CCondition changed_;
  std::vector<Timed> timed_;  // earliest first
  std::optional<std::uint64_t> deathUs_;
  bool stopping_ = false;
  Pexal::PBase::CThreadLite thread_;
};

}  // namespace orvane::robot
