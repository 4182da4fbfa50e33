#include "Options.h"

#include <ostream>
#include <stdexcept>

namespace walk_square {
namespace {

unsigned parseSeconds(const std::string& text) {
  const bool digits = !text.empty() && text.size() <= 4 &&
                      text.find_first_not_of("0123456789") == std::string::npos;
  const unsigned long value = digits ? std::stoul(text) : 0;
  if (value < 1 || value > 3600) {
    throw std::invalid_argument("--timeout takes a number of seconds from 1 to 3600, not '" + text +
                                "'");
  }
  return static_cast<unsigned>(value);
}

}  // namespace

void printHelp(std::ostream& out) {
  out << "Finds a robot, takes control of it, walks it through a square and lies it down again.\n"
         "\n"
         "usage: walk_square [option...]\n"
         "  --interface NAME   network interface to find the robot on (default: DDS chooses)\n"
         "  --device ID        the robot's device id (default: the first robot that answers)\n"
         "  --board            run on the robot's own board, or as if on it (tools/board-sandbox)\n"
         "  --master           on the board: be the master, whose commands go to the brain board,\n"
         "                     not to the motion board\n"
         "  --timeout SECONDS  how long to look for the robot, and how long to wait for control\n"
         "                     of it (1 to 3600, default 20)\n"
         "  --verbose          show the library's whole log, not only its warnings\n"
         "  --help             this text\n"
         "\n"
         "Ctrl-C stops the robot and gives control back. The exit status is 0 when the robot has\n"
         "walked the square, 130 after Ctrl-C, 2 for a wrong option and 1 for every other "
         "failure.\n";
}

Options parseOptions(int argc, char** argv) {
  Options options;
  for (int i = 1; i < argc; ++i) {
    const std::string name = argv[i];
    const auto value = [&]() -> std::string {
      if (i + 1 >= argc || argv[i + 1][0] == '\0') {
        throw std::invalid_argument(name + " needs a value");
      }
      return argv[++i];
    };
    if (name == "--interface") {
      options.interface = value();
    } else if (name == "--device") {
      options.device = value();
    } else if (name == "--timeout") {
      options.timeoutSeconds = parseSeconds(value());
    } else if (name == "--board") {
      options.board = true;
    } else if (name == "--master") {
      options.master = true;
    } else if (name == "--verbose") {
      options.verbose = true;
    } else if (name == "--help" || name == "-h") {
      options.help = true;
    } else {
      throw std::invalid_argument("unknown option '" + name + "'; --help lists the options");
    }
  }
  if (options.board && !(options.interface.empty() && options.device.empty())) {
    throw std::invalid_argument("--board has one robot; --interface and --device don't go with it");
  }
  if (options.master && !options.board) {
    throw std::invalid_argument("--master goes with --board only");
  }
  return options;
}

}  // namespace walk_square
