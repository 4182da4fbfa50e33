#include <algorithm>
#include <array>
#include <cstdint>
#include <filesystem>
#include <memory>
#include <string_view>
#include <system_error>

#include "commands/Commands.h"
#include "core/Failure.h"
#include "core/Text.h"
#include "plot/Plot.h"
#include "record/OutputFile.h"

namespace robotctl {
namespace {

struct PlotOptions {
  std::string file;
  std::string out;
  std::vector<std::string> only;
};

std::vector<PlotPart> partsOf(const std::vector<std::string>& names) {
  std::vector<PlotPart> parts;
  for (std::size_t at = 0; at < kPlotParts.size(); ++at) {
    const bool named = std::find(names.begin(), names.end(), kPlotParts[at]) != names.end();
    if (names.empty() || named) parts.push_back(static_cast<PlotPart>(at));
  }
  return parts;
}

PlotData readRecording(const std::string& path) {
  try {
    FileSource source(path);
    return readPlotData(source);
  } catch (const std::system_error& error) {
    throw Failure(ExitCode::kSetup, error.what());
  } catch (const mcap::NotMcap&) {
    throw Failure(ExitCode::kSetup, printable(path) + " is no MCAP file",
                  "robotctl record makes them");
  }
}

void writePicture(const std::string& path, const std::string& recording,
                  const std::string& picture) {
  std::error_code missing;
  if (std::filesystem::equivalent(path, recording, missing)) {
    throw Failure(ExitCode::kUsage, "the picture would replace the recording " + printable(path));
  }
  try {
    OutputFile file(path, OutputFile::Existing::kReplace);
    file.append({reinterpret_cast<const std::uint8_t*>(picture.data()), picture.size()});
    file.close();
  } catch (const std::system_error& error) {
    throw Failure(ExitCode::kSetup, error.what());
  }
}

/// Another kind of picture under a name that promises it would open in no viewer.
void refuseOtherKinds(const std::string& out) {
  std::string ending = std::filesystem::path(out).extension();
  for (char& letter : ending) {
    if (letter >= 'A' && letter <= 'Z') letter = static_cast<char>(letter - 'A' + 'a');
  }
  constexpr std::array<std::string_view, 5> kOthers = {".png", ".jpg", ".jpeg", ".pdf", ".gif"};
  if (std::find(kOthers.begin(), kOthers.end(), ending) == kOthers.end()) return;
  throw Failure(
      ExitCode::kUsage, "pictures are drawn as SVG only, not as " + printable(out),
      "name it .svg; \"rsvg-convert -o FILE.png FILE.svg\" (package librsvg2-bin) makes a PNG "
      "of it");
}

std::string defaultName(const std::string& recording) {
  constexpr std::string_view kEnding = ".mcap";
  const bool ends =
      recording.size() > kEnding.size() &&
      recording.compare(recording.size() - kEnding.size(), kEnding.size(), kEnding) == 0;
  return (ends ? recording.substr(0, recording.size() - kEnding.size()) : recording) + ".svg";
}

ExitCode plot(Context& context, const PlotOptions& options) {
  refuseOtherKinds(options.out);
  const PlotData data = readRecording(options.file);
  const mcap::Report& report = data.report;
  if (report.messages == 0) {
    throw Failure(ExitCode::kSetup, printable(options.file) + " holds nothing that can be drawn" +
                                        (report.damage.empty() ? "" : ": " + report.damage));
  }
  if (!report.complete)
    context.output.warning(printable(options.file) + ": " + printable(report.damage));
  if (report.damagedChunks > 0) {
    context.output.warning(std::to_string(report.damagedChunks) + " damaged parts are left out");
  }
  if (data.unreadable > 0) {
    context.output.warning(std::to_string(data.unreadable) + " messages can't be read");
  }
  const std::string out = options.out.empty() ? defaultName(options.file) : options.out;
  const std::string picture = drawPlot(data, partsOf(options.only));
  if (out == "-") {
    context.output.write(picture);
    return ExitCode::kDone;
  }
  writePicture(out, options.file, picture);
  if (context.options.json) {
    Json::Value result;
    result["file"] = out;
    result["bytes"] = Json::UInt64(picture.size());
    result["messages"] = Json::UInt64(report.messages);
    result["complete"] = report.complete;
    context.output.json(result);
  } else {
    context.output.line(printable(out));
  }
  return ExitCode::kDone;
}

}  // namespace

void addPlot(CLI::App& app, Context& context) {
  auto options = std::make_shared<PlotOptions>();
  CLI::App& command = *app.add_subcommand("plot", "Draws a recording as an SVG picture");
  command.add_option("file", options->file, "The recording")->required()->type_name("FILE");
  command
      .add_option("-o,--output", options->out,
                  "The picture; -: standard output (default: FILE.svg)")
      ->type_name("FILE");
  command.add_option("--only", options->only, "What is drawn: some of these, with commas between")
      ->delimiter(',')
      ->check(CLI::IsMember(kPlotParts));
  context.onSelected(command, [options, &context] { return plot(context, *options); });
}

}  // namespace robotctl
