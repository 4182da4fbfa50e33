#pragma once

#include <CLI/CLI.hpp>
#include <vector>

#include "core/Context.h"

namespace robotctl {

/// Reads the command line, carries out what it asks for and returns the exit status. Every failure
/// ends here.
[[nodiscard]] int runProgram(int argc, char** argv,
                             const std::vector<void (*)(CLI::App&, Context&)>& commands);

}  // namespace robotctl
