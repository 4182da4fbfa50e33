#include <array>
#include <memory>
#include <optional>

#include "commands/Commands.h"
#include "core/Documents.h"
#include "core/Robot.h"
#include "core/Text.h"

namespace robotctl {
namespace {

using Client = Robot::Client;
using Number = std::optional<std::uint32_t>;

std::string textOf(const Json::Value& document) {
  if (document.empty()) return {};
  Json::StreamWriterBuilder compact;
  compact["indentation"] = "";
  return Json::writeString(compact, document);
}

void put(Json::Value& document, const char* key, const Number& number) {
  if (number) document[key] = *number;
}

void put(Json::Value& document, const char* key, const std::string& text) {
  if (!text.empty()) document[key] = text;
}

/// Everything here that changes something needs control.
ExitCode inControl(Context& context, const char* request, const Robot::Call& call) {
  Robot robot(context);
  robot.connect();
  robot.take();
  robot.request(request, call);
  robot.release();
  return ExitCode::kDone;
}

// ------------------------------------------------------------------------------------------- list

struct Filter {
  std::string contains;
  std::string format;
  Number offset;
  Number limit;
};

std::string filesTable(const Json::Value& answer) {
  std::vector<std::vector<std::string>> rows{{"NAME", "FORMAT", "LENGTH", "BYTES"}};
  for (const Json::Value& file : valueAt(answer, "files")) {
    const double length = numberAt(file, "lengthMs").value_or(0);
    rows.push_back({textAt(file, "name"), textAt(file, "format"), format("%.1f s", length / 1000),
                    format("%.0f", numberAt(file, "sizeBytes").value_or(0))});
  }
  return table(rows);
}

ExitCode list(const Filter& filter, Context& context) {
  Json::Value wanted;
  put(wanted, "contains", filter.contains);
  put(wanted, "format", filter.format);
  put(wanted, "offset", filter.offset);
  put(wanted, "limit", filter.limit);
  Robot robot(context);
  robot.connect();
  const Json::Value answer = robot.query(
      "getAudioPlayList", [&](Client& client, std::string* out, std::uint32_t timeoutMs) {
        return client.getAudioPlayList(textOf(wanted), out, timeoutMs);
      });
  // A robot with other documents is shown as it answers.
  const bool known = valueAt(answer, "files").isArray();
  if (context.options.json) {
    context.output.json(answer);
  } else {
    context.output.write(known ? filesTable(answer) : flattened(answer));
  }
  return ExitCode::kDone;
}

void addList(CLI::App& audio, Context& context) {
  CLI::App& command = *audio.add_subcommand("list", "Lists the robot's audio files");
  auto filter = std::make_shared<Filter>();
  command.add_option("--contains", filter->contains, "Only those whose name contains it");
  command.add_option("--format", filter->format, "Only those of that format");
  command.add_option("--offset", filter->offset, "Pass over so many")
      ->type_name("N")
      ->check(wholeNumber());
  command.add_option("--limit", filter->limit, "At most so many")
      ->type_name("N")
      ->check(wholeNumber());
  context.onSelected(command, [filter, &context] { return list(*filter, context); });
}

// ------------------------------------------------------------------------------------------- play

struct Play {
  std::vector<std::string> files;
  std::string loop;
  Number index;
  Number positionMs;
  Number volume;
};

ExitCode play(const Play& options, Context& context) {
  Json::Value wanted;
  for (const std::string& name : options.files) wanted["files"].append(name);
  put(wanted, "loop", options.loop);
  put(wanted, "index", options.index);
  put(wanted, "volume", options.volume);
  put(wanted, "positionMs", options.positionMs);
  return inControl(context, "startPlayList", [&](Client& client, std::uint32_t timeoutMs) {
    return client.startPlayList(textOf(wanted), timeoutMs);
  });
}

void addPlay(CLI::App& audio, Context& context) {
  CLI::App& command =
      *audio.add_subcommand("play", "Plays audio files; without files the present list goes on");
  auto options = std::make_shared<Play>();
  command.add_option("NAMES", options->files, "Audio files in the order of playing")->type_name("");
  command.add_option("--loop", options->loop, "What begins anew at its end")
      ->check(CLI::IsMember({"none", "list", "track"}));
  command.add_option("--index", options->index, "Which of the files to begin with, from 0")
      ->type_name("N")
      ->check(wholeNumber());
  auto positionMs = std::make_shared<std::uint32_t>(0);
  const CLI::Option* const position =
      addSeconds(command, "--position", *positionMs, "Where in it to begin", 0, 86400);
  command.add_option("--volume", options->volume, "How loud, 0 to 100")
      ->type_name("N")
      ->check(wholeNumber());
  context.onSelected(command, [options, position, positionMs, &context] {
    if (position->count() > 0) options->positionMs = *positionMs;  // 0 isn't the same as none
    return play(*options, context);
  });
}

// --------------------------------------------------------------------------------- add and delete

struct File {
  std::string name;
  std::string format;
  std::uint32_t lengthMs = 0;
  std::uint32_t bytes = 0;
};

void addAdd(CLI::App& audio, Context& context) {
  CLI::App& command = *audio.add_subcommand("add", "Tells the robot of an audio file");
  auto file = std::make_shared<File>();
  command.add_option("NAME", file->name, "Its name")->type_name("")->required();
  command.add_option("--format", file->format, "Its format")
      ->check(CLI::IsMember({"wav", "mp3", "ogg"}))
      ->required();
  addSeconds(command, "--length", file->lengthMs, "How long it plays", 0.001, 86400)->required();
  command.add_option("--bytes", file->bytes, "Its size")
      ->type_name("N")
      ->check(wholeNumber())
      ->required();
  command.footer("The samples themselves don't travel this way.");
  context.onSelected(command, [file, &context] {
    Json::Value wanted;
    wanted["name"] = file->name;
    wanted["format"] = file->format;
    wanted["lengthMs"] = file->lengthMs;
    wanted["sizeBytes"] = file->bytes;
    return inControl(context, "addAudioFile", [&](Client& client, std::uint32_t timeoutMs) {
      return client.addAudioFile(textOf(wanted), timeoutMs);
    });
  });
}

void addDelete(CLI::App& audio, Context& context) {
  CLI::App& command = *audio.add_subcommand("delete", "Deletes an audio file");
  auto name = std::make_shared<std::string>();
  command.add_option("NAME", *name, "Its name")->type_name("")->required();
  context.onSelected(command, [name, &context] {
    Json::Value wanted;
    wanted["name"] = *name;
    return inControl(context, "deleteAudioFile", [&](Client& client, std::uint32_t timeoutMs) {
      return client.deleteAudioFile(textOf(wanted), timeoutMs);
    });
  });
}

ExitCode detail(Context& context) {
  Robot robot(context);
  robot.connect();
  const Json::Value answer =
      robot.query("getAudioPlayDetail", [](Client& client, std::string* out, std::uint32_t ms) {
        return client.getAudioPlayDetail(out, ms);
      });
  context.options.json ? context.output.json(answer) : context.output.write(flattened(answer));
  return ExitCode::kDone;
}

}  // namespace

void addAudio(CLI::App& app, Context& context) {
  CLI::App& audio = *app.add_subcommand("audio", "What the robot plays");
  audio.require_subcommand(1);
  addList(audio, context);
  addPlay(audio, context);
  struct Simple {
    const char* name;
    const char* description;
    const char* request;
    Robot::Call call;
  };
  const std::array<Simple, 3> simple{{
      {"pause", "Pauses what is played", "pausePlayList",
       [](Client& client, std::uint32_t ms) { return client.pausePlayList(ms); }},
      {"resume", "Goes on with what is paused", "startPlayList",
       [](Client& client, std::uint32_t ms) { return client.startPlayList("", ms); }},
      {"stop", "Stops what is played and forgets the list", "stopPlayList",
       [](Client& client, std::uint32_t ms) { return client.stopPlayList(ms); }},
  }};
  for (const Simple& one : simple) {
    CLI::App& command = *audio.add_subcommand(one.name, one.description);
    context.onSelected(command,
                       [one, &context] { return inControl(context, one.request, one.call); });
  }
  addAdd(audio, context);
  addDelete(audio, context);
  CLI::App& detailed = *audio.add_subcommand("detail", "What is played now, and how far it is");
  context.onSelected(detailed, [&context] { return detail(context); });
}

}  // namespace robotctl
