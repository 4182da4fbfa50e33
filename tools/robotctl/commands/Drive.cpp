// drive: a robot driven by keys, as long as they are held.

#include <algorithm>
#include <memory>
#include <string>
#include <vector>

#include "commands/Commands.h"
#include "core/Documents.h"
#include "core/Failure.h"
#include "core/Robot.h"
#include "terminal/Clock.h"
#include "terminal/DriveSession.h"
#include "terminal/LiveScreen.h"
#include "terminal/RobotFeed.h"

namespace robotctl {
namespace {

constexpr std::uint64_t kPictureMs = 100;
// Keys that have waited for a request for so long don't say any more what is wanted.
constexpr std::uint64_t kLateMs = 200;
constexpr const char* kUnconfirmed =
    "the robot didn't answer the last stop; a walk that isn't refreshed is braked within a second "
    "by itself";

SpeedLimits limitsOf(Robot& robot) {
  try {
    return limitsFrom(robot.capabilities());
  } catch (const Failure& failure) {
    robot.context().output.warning(std::string(failure.what()) + "; driving slowly");
    return {};
  }
}

/// Until the driver ends it.
void follow(LiveScreen& screen, Robot& robot, RobotFeed& feed, DriveSession& session) {
  bool late = false;
  while (true) {
    const std::vector<Key> keys =
        screen.wait(std::min(session.deadlineMs(), monotonicMs() + kPictureMs), robot.changedFd());
    robot.drainChanged();
    const std::uint64_t begun = monotonicMs();
    for (const Key key : keys) {
      if (key == kKeyEndOfInput) return;
      session.press(key, late);
    }
    for (const std::string& line : screen.takeMessages()) feed.note("log", line);
    session.tick(feed.snapshot());
    late = monotonicMs() > begun + kLateMs;
    const RobotModel model = feed.snapshot();
    screen.show([&](Size size) { return drawDrive(model, session.status(), size); });
  }
}

/// Throws what ended it, if that wasn't the driver. The robot was told to stop then, too, before
/// anything else.
void driveOnScreen(Context& context, Robot& robot, RobotFeed& feed, DriveSession& session) {
  bool stopped = true;
  try {
    LiveScreen screen(context.interrupts);
    try {
      follow(screen, robot, feed, session);
      stopped = session.stop();
    } catch (...) {
      stopped = session.stop();
      throw;
    }
  } catch (...) {
    if (!stopped) context.output.warning(kUnconfirmed);
    throw;
  }
  if (!stopped) context.output.warning(kUnconfirmed);
}

ExitCode drive(Context& context) {
  if (!Terminal::usable(true)) {
    throw Failure(ExitCode::kUsage, "driving needs a terminal for its keys and its picture",
                  "robotctl walk VX VY WZ --for SECONDS walks without one");
  }
  Robot robot(context);
  RobotFeed feed(RobotFeed::Refusals::kLeftOut);
  robot.connect(feed.callbacks());
  const SpeedLimits limits = limitsOf(robot);
  robot.take();
  feed.start(robot);
  DriveSession session(robot, feed, limits);
  const auto sayWhatStays = [&] {
    if (!feed.snapshot().emergencyStopped()) return;
    context.output.note(robot.name() + ": emergency stop latched; robotctl recover lifts it");
  };
  try {
    driveOnScreen(context, robot, feed, session);
  } catch (...) {
    sayWhatStays();
    throw;
  }
  sayWhatStays();
  switch (session.hold()) {
    case Hold::kDriving:
      robot.release();
      return ExitCode::kDone;
    case Hold::kSilent:
      throw Failure(ExitCode::kNoAnswer, session.lost(), "robotctl status asks it again");
    case Hold::kLost:
    case Hold::kTaking:
      break;
  }
  const std::string holder = describeHolder(feed.snapshot().state);
  throw Failure(ExitCode::kNoControl, session.lost(),
                "control is with " + (holder.empty() ? "nobody" : holder));
}

}  // namespace

void addDrive(CLI::App& app, Context& context) {
  CLI::App& command = *app.add_subcommand(
      "drive", "Drives a robot by keys that are held; letting go stops it (needs a terminal)");
  command.footer(
      "w s: forward, back   a d: turn   q e: step sideways   + -: faster, slower   space: stop\n"
      "u: stand up   l: lie down   r: recover   ESC or x: emergency stop   t: take control again\n"
      "Ctrl-D: end   Ctrl-C: break off (status 130); both stop the robot and give control back\n\n"
      "A key that hasn't repeated for 600 ms counts as let go. If yours repeat later than that at\n"
      "first, the robot walks in jerks: shorten the delay (on X11: xset r rate 400 30).");
  context.onSelected(command, [&context] { return drive(context); });
}

}  // namespace robotctl
