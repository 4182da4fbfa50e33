#pragma once

#include <iosfwd>
#include <string>

namespace walk_square {

struct Options {
  std::string interface;         ///< network interface; empty: DDS chooses
  std::string device;            ///< device id; empty: the first robot that answers
  bool board = false;            ///< this program runs on the robot's own board
  bool master = false;           ///< on the board: commands go to the brain, not the motion board
  unsigned timeoutSeconds = 20;  ///< for finding the robot, and again for getting control of it
  bool verbose = false;          ///< show the library's whole log
  bool help = false;
};

void printHelp(std::ostream& out);

/// Throws std::invalid_argument with a text for the user.
Options parseOptions(int argc, char** argv);

}  // namespace walk_square
