#pragma once

namespace robotctl {

/// What robotctl's exit status means, for scripts. Numbers are part of the interface
/// (docs/robotctl.md): a new one may come, none changes.
enum class ExitCode : int {
  kDone = 0,
  kRefused = 1,         ///< the robot refused, or a request failed
  kUsage = 2,           ///< the command line can't be carried out as it stands
  kNoRobot = 3,         ///< no robot found, or several and none was named
  kNoControl = 4,       ///< control of the robot wasn't obtained, or was lost
  kNoAnswer = 5,        ///< the robot didn't answer (any more) in time
  kSetup = 6,           ///< this machine: the library can't start, a file can't be written, ...
  kSignalBase = 128,    ///< 128 + N: ended by signal N (129 SIGHUP, 130 SIGINT, 143 SIGTERM)
  kOutputClosed = 141,  ///< nobody reads standard output any more; quiet
};

}  // namespace robotctl
