// What adds up: many rounds in one process, many processes on one network.

#include <gtest/gtest.h>

#include <algorithm>
#include <csignal>
#include <memory>
#include <sstream>
#include <string>
#include <vector>

#include "sdk_process.h"
#include "sdk_robot.h"
#include "sdk_support.h"

namespace sdk_test {
namespace {

constexpr std::uint32_t kRoundsMs = 200000;

/// What a process held at the end of a round.
struct Round {
  long threads = 0;
  long descriptors = 0;
  long kilobytes = 0;  // of heap
};

std::vector<Round> roundsIn(const std::string& output) {
  std::vector<Round> rounds;
  std::istringstream lines(output);
  for (std::string line; std::getline(lines, line);) {
    std::istringstream words(line);
    std::string word;
    Round round;
    if (words >> word >> round.threads >> round.descriptors >> round.kilobytes && word == "round") {
      rounds.push_back(round);
    }
  }
  return rounds;
}

struct Repetition {
  const char* scenario;
  std::size_t warmUp;  // rounds that don't count
  std::size_t rounds;
  long bytes;  // of the heap that a round may keep: the DDS library keeps 840 of each reader
};

class Repeating : public testing::TestWithParam<Repetition> {};

TEST_P(Repeating, LeavesNothingBehind) {
  const Repetition& repetition = GetParam();
  const LocalRobot robot("dog");
  Process application({SDK_CLIENT, repetition.scenario, "dog",
                       std::to_string(repetition.warmUp + repetition.rounds)});
  EXPECT_EQ(application.finish(kRoundsMs), 0) << application.output();
  const std::vector<Round> rounds = roundsIn(application.output());
  ASSERT_EQ(rounds.size(), repetition.warmUp + repetition.rounds);
  const auto begin = rounds.begin() + static_cast<std::ptrdiff_t>(repetition.warmUp);
  const auto middle = begin + static_cast<std::ptrdiff_t>(repetition.rounds / 2);
  const auto growth = [&](long Round::*what) {
    const auto less = [=](const Round& a, const Round& b) { return a.*what < b.*what; };
    return (*std::max_element(middle, rounds.end(), less)).*what -
           (*std::max_element(begin, middle, less)).*what;
  };
  EXPECT_LE(growth(&Round::threads), 0) << application.output();
  EXPECT_LE(growth(&Round::descriptors), 0) << application.output();
  const long mostKept = static_cast<long>(repetition.rounds / 2) * repetition.bytes / 1024;
  if (!kSanitized) {  // a sanitizer keeps what was freed
    EXPECT_LT(growth(&Round::kilobytes), mostKept) << application.output();
  }
}

INSTANTIATE_TEST_SUITE_P(Rounds, Repeating,
                         testing::Values(Repetition{"clients", 20, 400, 2400},
                                         Repetition{"services", 20, kSanitized ? 20U : 200U, 1000}),
                         [](const auto& row) { return std::string(row.param.scenario); });

TEST(ThirtyTwoApplications, ObserveOneRobotAtOnceAndEndCleanly) {
  const LocalRobot robot("dog");
  std::vector<std::unique_ptr<Process>> applications;
  for (int i = 0; i < 32; ++i) {
    applications.push_back(
        std::make_unique<Process>(std::vector<std::string>{SDK_CLIENT, "observe", "dog"}));
  }
  for (const auto& application : applications) {
    EXPECT_TRUE(application->says("observing", 2 * kLimitMs)) << application->output();
  }
  for (const auto& application : applications) application->signal(SIGTERM);
  for (const auto& application : applications) {
    EXPECT_EQ(application->finish(kLimitMs), 0) << application->output();
  }
}

}  // namespace
}  // namespace sdk_test
