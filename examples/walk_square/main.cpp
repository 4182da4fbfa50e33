// Finds a robot, takes control of it and walks it through a square, watching what it reports.

#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <iostream>
#include <memory>

#include "Console.h"
#include "Options.h"
#include "Robot.h"
#include "SquareWalk.h"

namespace {

volatile std::sig_atomic_t interruptRequested = 0;

void requestInterrupt(int) {
  interruptRequested = 1;
}

constexpr double kSideMetres = 1.2;
constexpr double kMostMissMetres = 0.2;
constexpr int kExitInterrupted = 130;
constexpr int kExitUsage = 2;

void walk(const walk_square::Options& options,
          const std::shared_ptr<walk_square::Console>& console) {
  walk_square::Robot robot(options, console, [] { return interruptRequested != 0; });
  robot.find();
  robot.connect();
  robot.takeControl();
  robot.stand();
  console->line("Walking a square of 1.2 m ...");
  const double miss = walk_square::SquareWalk(robot, kSideMetres).run();
  char text[80];
  std::snprintf(text, sizeof text, "Back at the start, %.2f m beside it by odometry.", miss);
  if (miss > kMostMissMetres) throw walk_square::Failure(std::string(text) + " That's no square.");
  console->line(text);
  robot.lieDown();
  robot.release();
  robot.printTable();
}

}  // namespace

int main(int argc, char** argv) {
  walk_square::Options options;
  try {
    options = walk_square::parseOptions(argc, argv);
  } catch (const std::exception& error) {
    std::cerr << "walk_square: " << error.what() << '\n';
    return kExitUsage;
  }
  if (options.help) {
    walk_square::printHelp(std::cout);
    return EXIT_SUCCESS;
  }

  std::signal(SIGINT, requestInterrupt);
  std::signal(SIGTERM, requestInterrupt);
  const auto console = std::make_shared<walk_square::Console>();
  try {
    walk(options, console);
    return EXIT_SUCCESS;
  } catch (const walk_square::Interrupted&) {
    console->warning("walk_square: interrupted; the robot was stopped and control given back");
    return kExitInterrupted;
  } catch (const std::exception& error) {
    console->warning(std::string("walk_square: ") + error.what());
    return EXIT_FAILURE;
  }
}
