#pragma once

#include <span>

#include "harness/Case.h"
#include "harness/Role.h"

namespace bench {

/// A program that conducts cases, and plays their roles in child processes.
struct Program {
  const char* name;
  const char* title;        ///< above its table
  const char* description;  ///< for --help
  std::span<const Case> cases;
  std::span<const RoleEntry> roles;
};

/// Its main: reads the command line, measures, prints the table and writes the JSON. 0 when nothing
/// failed; a wanted figure that is missed is no failure.
int runProgram(const Program& program, int argc, char** argv);

}  // namespace bench
