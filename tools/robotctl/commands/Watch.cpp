// watch: a robot's state, live: a whole screen on a terminal, lines elsewhere.

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "commands/Commands.h"
#include "core/Failure.h"
#include "core/Robot.h"
#include "terminal/Clock.h"
#include "terminal/LiveScreen.h"
#include "terminal/RobotFeed.h"
#include "terminal/WatchLines.h"
#include "terminal/WatchView.h"

namespace robotctl {
namespace {

constexpr double kScreenRate = 10;
constexpr double kLineRate = 1;
// A rate needs two looks (RateMeter), and something to have come between them.
constexpr std::uint64_t kFirstLineMs = 100;

struct Options {
  double rate = 0;          // 0: the default
  std::uint64_t count = 0;  // 0: endless
  bool lines = false;

  [[nodiscard]] std::uint64_t periodMs(double otherwise) const {
    return static_cast<std::uint64_t>(std::lround(1000 / (rate > 0 ? rate : otherwise)));
  }
};

void watchOnScreen(Context& context, RobotFeed& feed, const Options& options) {
  LiveScreen screen(context.interrupts);
  const std::uint64_t period = options.periodMs(kScreenRate);
  for (std::uint64_t shown = 0; options.count == 0 || shown < options.count; ++shown) {
    for (const std::string& line : screen.takeMessages()) feed.note("log", line);
    const RobotModel model = feed.snapshot();
    const auto draw = [&](Size size) { return drawWatch(model, size); };
    screen.show(draw);
    const std::uint64_t next = monotonicMs() + period;
    while (monotonicMs() < next) {
      const std::vector<Key> keys = screen.wait(next);
      const bool ends = std::any_of(keys.begin(), keys.end(), [](Key key) {
        return key == U'q' || key == U'Q' || key == kKeyEndOfInput;
      });
      if (ends) return;
      screen.show(draw);  // a new size isn't kept waiting
      for (const std::string& line : screen.takeMessages()) feed.note("log", line);
    }
  }
}

/// Throws kNoAnswer when the robot was silent at the end.
void watchInLines(Context& context, RobotFeed& feed, const Options& options) {
  const std::uint64_t period = options.periodMs(kLineRate);
  std::uint64_t told = 0;
  bool silent = feed.snapshot().silent();  // the first look
  for (std::uint64_t written = 0; options.count == 0 || written < options.count; ++written) {
    const std::uint64_t waits = written == 0 ? std::max(period, kFirstLineMs) : period;
    context.interrupts.sleep(static_cast<std::uint32_t>(waits));
    const RobotModel model = feed.snapshot();
    if (context.options.json) {
      context.output.jsonLine(watchDocument(model, told));
    } else {
      for (const Happening& one : model.happenings) {
        if (one.number <= told) continue;
        context.output.line(one.clock + "  " + one.topic + ": " + one.text);
      }
      context.output.line(watchLine(model));
    }
    if (!model.happenings.empty()) told = model.happenings.back().number;
    silent = model.silent();
  }
  if (silent) {
    throw Failure(ExitCode::kNoAnswer, "the robot has fallen silent",
                  "robotctl status asks it again");
  }
}

ExitCode watch(Context& context, const Options& options) {
  Robot robot(context);
  RobotFeed feed;
  robot.connect(feed.callbacks());
  feed.start(robot);
  const bool lines = options.lines || context.options.json || !Terminal::usable(false);
  if (lines) {
    watchInLines(context, feed, options);
  } else {
    watchOnScreen(context, feed, options);
  }
  return ExitCode::kDone;
}

}  // namespace

void addWatch(CLI::App& app, Context& context) {
  auto options = std::make_shared<Options>();
  CLI::App& command = *app.add_subcommand(
      "watch",
      "Shows a robot's state live: a whole screen on a terminal (q quits), else a line a second");
  command
      .add_option("--rate", options->rate,
                  "Updates a second (default: 10 on a screen, 1 in lines), 0.1 to 60")
      ->check(CLI::Range(0.1, 60.0))
      ->type_name("HZ");
  command.add_option("--count", options->count, "Ends after so many updates (default: goes on)")
      ->check(CLI::PositiveNumber)
      ->type_name("N");
  command.add_flag("--lines", options->lines, "Lines also on a terminal");
  context.onSelected(command, [options, &context] { return watch(context, *options); });
}

}  // namespace robotctl
