#include "commands/Commands.h"
#include "core/Errors.h"
#include "core/Failure.h"
#include "core/Robot.h"
#include "core/Text.h"
#include "record/Recorder.h"

#include <poll.h>
#include <sys/stat.h>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <csignal>
#include <memory>
#include <optional>
#include <system_error>

namespace robotctl {
namespace {

using Clock = std::chrono::steady_clock;
using std::chrono::milliseconds;

constexpr std::uint32_t kAskEveryMs = 500;
constexpr std::uint32_t kAnswerMs = 1000;
constexpr std::uint32_t kDayMs = 24 * 3600 * 1000;

struct RecordOptions {
  std::string file;
  std::uint32_t forMs = 0;  // 0: until a signal comes
  bool force = false;
};

Failure notWritten(const std::system_error& error) {
  std::string hint;
  if (error.code() == std::errc::no_space_on_device) {
    hint = "make room on the disk; a minute takes about 20 MB";
  }
  if (error.code() == std::errc::device_or_resource_busy) {
    hint = "another recording is writing this file";
  }
  if (error.code() == std::errc::no_such_file_or_directory) {
    hint = "the folder has to exist: mkdir -p makes one";
  }
  return Failure(ExitCode::kSetup, error.what(), hint);
}

/// One recording, from the first look at the robot to the end of the file.
class Session {
 public:
  Session(Context& context, const RecordOptions& options)
      : context_(context), options_(options), robot_(context) {}

  ExitCode run() {
    begin();
    const Clock::time_point start = Clock::now();
    const auto end =
        options_.forMs == 0 ? Clock::time_point::max() : start + milliseconds(options_.forMs);
    while (Clock::now() < end && !context_.interrupts.requested() && !recorder_->failed()) {
      const Clock::time_point next = std::min(end, Clock::now() + milliseconds(kAskEveryMs));
      ask();
      waitUntil(next);
    }
    seconds_ = std::chrono::duration<double>(Clock::now() - start).count();
    return finish();
  }

 private:
  void begin() {
    robot_.find();
    RobotCallbacks callbacks;
    const std::shared_ptr<Recorder> recorder = recorder_;
    callbacks.motion = [recorder](const auto& record) { recorder->motion(record); };
    callbacks.sensor = [recorder](const auto& record) { recorder->sensor(record); };
    callbacks.event = [recorder](const auto& topic, const auto& detail) {
      recorder->event(topic, detail);
    };
    callbacks.state = [recorder](auto state, auto code) { recorder->connection(state, code); };
    robot_.connect(std::move(callbacks));
    robot_.enableStreams(true, true);
    // Only now, when nothing can go wrong at the robot any more; what it sends meanwhile is queued.
    Json::Value about;
    about["robot"] = robot_.deviceNo();
    about["library"] = orvane::RobotSdk::IMotionSdkService::version();
    using Existing = OutputFile::Existing;
    try {
      recorder_->open(options_.file, options_.force ? Existing::kReplace : Existing::kRefuse,
                      "robotctl " ROBOTCTL_VERSION, std::move(about));
    } catch (const std::system_error& error) {
      throw notWritten(error);
    }
    context_.output.note(
        "Recording " + robot_.name() + " into " + printable(options_.file) +
        (options_.forMs == 0 ? "; Ctrl-C ends it" : " for " + duration(options_.forMs)));
  }

  /// Asks the robot what it does and who has it, and notices when it answers no more.
  void ask() {
    std::string document;
    const bool answered = robot_.client().queryMotionState(&document, kAnswerMs);
    const std::uint32_t code = answered ? 0 : robot_.client().getLastError();
    if (answered) recorder_->state(std::move(document));
    if (code != code_) recorder_->error(code, code == 0 ? "none" : errorText(code));
    code_ = code;
    const std::uint64_t records = recordsSoFar();
    const bool silent = !answered && records == records_;
    records_ = records;
    if (silent && !silentSince_) {
      silentSince_ = Clock::now();
      recorder_->remark("silent");
      context_.output.warning(robot_.name() + " doesn't answer, and no records come: " +
                              errorText(code) + "; the recording goes on");
    } else if (!silent && silentSince_) {
      const auto passed = std::chrono::duration_cast<milliseconds>(Clock::now() - *silentSince_);
      silentSince_.reset();
      recorder_->remark("answers");
      context_.output.warning(robot_.name() + " is back after " +
                              duration(static_cast<std::uint64_t>(passed.count())));
      std::string enabled;  // should it have started anew
      static_cast<void>(robot_.client().setMotionObservedEnable(
          R"({"motionEnable":true,"sensorEnable":true})", &enabled, kAnswerMs));
    }
  }

  [[nodiscard]] std::uint64_t recordsSoFar() const {
    const Recorder::Totals totals = recorder_->totals();
    return totals.delivered[static_cast<std::size_t>(ChannelNumber::kMotion)] +
           totals.delivered[static_cast<std::size_t>(ChannelNumber::kSensor)];
  }

  /// Or until a signal comes.
  void waitUntil(Clock::time_point end) {
    pollfd interrupt{context_.interrupts.fd(), POLLIN, 0};
    while (!context_.interrupts.requested()) {
      const auto left = std::chrono::ceil<milliseconds>(end - Clock::now());
      if (left.count() <= 0) return;
      static_cast<void>(::poll(&interrupt, 1, static_cast<int>(left.count())));
    }
  }

  ExitCode finish() {
    const bool unanswered = silentSince_.has_value();
    robot_.client().disconnect();  // from here on nothing is delivered
    Json::Value result = totalsDocument();
    recorder_->remark("end", result);
    std::optional<Failure> failure;
    try {
      recorder_->finish();
    } catch (const std::system_error& error) {
      failure = notWritten(error);
    }
    const std::uint64_t lost = recorder_->totals().lostInAll();
    if (!failure) failure = shortcoming(lost, unanswered);
    result["file"] = options_.file;
    result["bytes"] = Json::UInt64(recorder_->bytes());
    result["lost"] = Json::UInt64(lost);
    try {
      report(result);
    } catch (...) {
      if (!failure) throw;  // worse than nobody reading the report
    }
    if (failure) throw std::move(*failure);
    // Without --for a signal is how a recording ends.
    if (options_.forMs != 0) context_.interrupts.check();
    return ExitCode::kDone;
  }

  /// What a recording that was written may lack nevertheless.
  [[nodiscard]] std::optional<Failure> shortcoming(std::uint64_t lost, bool unanswered) const {
    if (lost > 0) {
      return Failure(ExitCode::kSetup,
                     std::to_string(lost) + " delivered records aren't in the recording",
                     "the disk or this machine is too slow for them");
    }
    if (!unanswered) return std::nullopt;
    return Failure(
        ExitCode::kNoAnswer,
        robot_.name() + " didn't answer any more when the recording ended: " + errorText(code_),
        "what came before is recorded");
  }

  [[nodiscard]] Json::Value totalsDocument() const {
    const Recorder::Totals totals = recorder_->totals();
    Json::Value document;
    document["seconds"] = std::round(seconds_ * 1000) / 1000;
    for (std::size_t at = 0; at < kChannels; ++at) {
      const std::string name(kChannelKinds[at].topic.substr(1));
      document["delivered"][name] = Json::UInt64(totals.delivered[at]);
    }
    document["lost"] = Json::UInt64(totals.lostInAll());
    return document;
  }

  void report(const Json::Value& result) const {
    if (context_.options.json) return context_.output.json(result);
    const Json::Value& delivered = result["delivered"];
    context_.output.line(format(
        "%s: %.1f s, %s motion and %s sensor records, %s events, %.1f MB", options_.file.c_str(),
        seconds_, delivered["motion"].asString().c_str(), delivered["sensor"].asString().c_str(),
        delivered["event"].asString().c_str(), result["bytes"].asDouble() / 1e6));
  }

  Context& context_;
  const RecordOptions& options_;
  const std::shared_ptr<Recorder> recorder_ = std::make_shared<Recorder>();
  Robot robot_;
  std::uint32_t code_ = 0;     // what the last question came to
  std::uint64_t records_ = 0;  // that had been delivered then
  std::optional<Clock::time_point> silentSince_;
  double seconds_ = 0;
};

void refuseExisting(const RecordOptions& options) {
  struct stat facts {};
  if (options.force || ::lstat(options.file.c_str(), &facts) != 0) return;
  throw Failure(ExitCode::kUsage, printable(options.file) + " exists already",
                "--force replaces it");
}

}  // namespace

void addRecord(CLI::App& app, Context& context) {
  auto options = std::make_shared<RecordOptions>();
  CLI::App& command = *app.add_subcommand(
      "record", "Records everything that the library delivers, as an MCAP file");
  command.add_option("file", options->file, "The file to make")->required()->type_name("FILE");
  addSeconds(command, "--for", options->forMs, "Ends by itself after so long; 0: on Ctrl-C", 0,
             kDayMs / 1000.0);
  command.add_flag("--force", options->force, "Replaces a file that exists");
  context.onSelected(command, [options, &context] {
    refuseExisting(*options);
    // A limit on the size of files is to be an error like a full disk.
    std::signal(SIGXFSZ, SIG_IGN);
    return Session(context, *options).run();
  });
}

}  // namespace robotctl
