#include <algorithm>
#include <map>
#include <memory>

#include "commands/Commands.h"
#include "core/Documents.h"
#include "core/Failure.h"
#include "core/Robot.h"
#include "core/Text.h"

namespace robotctl {
namespace {

constexpr std::uint32_t kRoundMs = 2000;  // of --watch
constexpr int kMissedRounds = 2;          // then a robot counts as gone

using Row = std::vector<std::string>;

Row rowOf(const FoundRobot& robot) {
  const auto text = [&](const char* path) {
    const std::string value = textAt(robot.detail, path);
    return value.empty() ? std::string("-") : value;
  };
  const auto charge = numberAt(robot.detail, "battery.chargePercent");
  return {printable(robot.deviceNo),
          text("model"),
          text("version"),
          text("posture"),
          robot.detail.isMember("controlled")
              ? (flagAt(robot.detail, "controlled") ? "held" : "free")
              : "-",
          charge ? format("%.0f %%", *charge) : "-"};
}

Row heading() {
  return {"ROBOT", "MODEL", "VERSION", "POSTURE", "CONTROL", "BATTERY"};
}

Json::Value documentOf(const FoundRobot& robot) {
  Json::Value document;
  document["deviceNo"] = robot.deviceNo;
  document["detail"] = robot.detail;
  return document;
}

ExitCode once(Context& context) {
  Robot service(context);
  const std::vector<FoundRobot> robots = service.discover(context.options.findMs);
  if (context.options.json) {
    Json::Value list(Json::arrayValue);
    for (const FoundRobot& robot : robots) list.append(documentOf(robot));
    context.output.json(list);
  }
  if (robots.empty()) throw Robot::noRobot(context.options);
  if (!context.options.json) {
    std::vector<Row> rows{heading()};
    for (const FoundRobot& robot : robots) rows.push_back(rowOf(robot));
    context.output.write(table(rows));
  }
  return ExitCode::kDone;
}

/// One line for each robot that appears, changes or goes.
class Watch {
 public:
  explicit Watch(Context& context) : context_(context), service_(context) {}

  [[noreturn]] void run() {
    context_.output.note("Looking for robots; Ctrl-C ends it ...");
    if (!context_.options.json) context_.output.write(lineOf("", heading()));
    while (true) round(service_.discover(kRoundMs));
  }

 private:
  struct Seen {
    FoundRobot robot;
    int missed = 0;
  };

  void round(const std::vector<FoundRobot>& robots) {
    for (auto& [name, seen] : seen_) ++seen.missed;
    for (const FoundRobot& robot : robots) {
      const auto before = seen_.find(robot.deviceNo);
      const bool known = before != seen_.end();
      if (!known || rowOf(before->second.robot) != rowOf(robot)) {
        tell(known ? "changed" : "appeared", robot);
      }
      seen_[robot.deviceNo] = {robot, 0};
    }
    for (auto one = seen_.begin(); one != seen_.end();) {
      const bool gone = one->second.missed >= kMissedRounds;
      if (gone) tell("gone", one->second.robot);
      one = gone ? seen_.erase(one) : std::next(one);
    }
  }

  void tell(const char* event, const FoundRobot& robot) const {
    if (context_.options.json) {
      Json::Value document = documentOf(robot);
      document["event"] = event;
      context_.output.jsonLine(document);
    } else {
      context_.output.write(lineOf(event, rowOf(robot)));
    }
  }

  /// Columns of fixed width: the rows to come aren't known.
  static std::string lineOf(const std::string& event, const Row& row) {
    return format("%-9s %-20s %-18s %-9s %-14s %-8s %s\n", event.c_str(), row[0].c_str(),
                  row[1].c_str(), row[2].c_str(), row[3].c_str(), row[4].c_str(), row[5].c_str());
  }

  Context& context_;
  Robot service_;
  std::map<std::string, Seen> seen_;
};

}  // namespace

void addDiscover(CLI::App& app, Context& context) {
  CLI::App& command =
      *app.add_subcommand("discover", "Lists the robots that answer within --find-timeout");
  auto watch = std::make_shared<bool>(false);
  command.add_flag("--watch", *watch, "Go on and tell which appear, change or go");
  context.onSelected(command, [watch, &context] {
    if (*watch) Watch(context).run();
    return once(context);
  });
}

}  // namespace robotctl
