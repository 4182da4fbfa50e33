#include "media/HostFigures.h"

#include <sys/utsname.h>

#include <algorithm>
#include <charconv>
#include <cmath>
#include <cstddef>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string_view>
#include <system_error>
#include <thread>

namespace orvane::robot {
namespace {

namespace fs = std::filesystem;

constexpr std::size_t kMostBytes = 64U << 10;  // what is read of one file
constexpr std::size_t kLongestBoard = 128;
constexpr double kColdest = -50;  // what lies outside is a broken sensor
constexpr double kHottest = 150;

std::string contentsOf(const fs::path& path) {
  std::ifstream file(path, std::ios::binary);
  std::string text(kMostBytes, '\0');
  file.read(text.data(), static_cast<std::streamsize>(text.size()));
  text.resize(static_cast<std::size_t>(std::max<std::streamsize>(0, file.gcount())));
  return text;
}

/// The number that the text is; nothing when it is none.
template <class Number>
std::optional<Number> numberOf(std::string_view text) {
  Number number{};
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
  if (error != std::errc() || end != text.data() + text.size()) return std::nullopt;
  return number;
}

std::optional<std::array<double, 3>> loadAverageIn(const fs::path& path) {
  std::istringstream words(contentsOf(path));
  std::array<double, 3> averages{};
  for (double& average : averages) {
    std::string word;
    words >> word;
    const auto figure = numberOf<double>(word);
    if (!figure || !std::isfinite(*figure) || *figure < 0) return std::nullopt;
    average = *figure;
  }
  return averages;
}

std::optional<HostFigures::Memory> memoryIn(const fs::path& path) {
  std::istringstream lines(contentsOf(path));
  std::optional<std::uint64_t> totalKb;
  std::optional<std::uint64_t> availableKb;
  for (std::string line; std::getline(lines, line);) {
    std::istringstream words(line);
    std::string name;
    std::string figure;
    words >> name >> figure;
    if (name == "MemTotal:") totalKb = numberOf<std::uint64_t>(figure);
    if (name == "MemAvailable:") availableKb = numberOf<std::uint64_t>(figure);
  }
  constexpr std::uint64_t kMostKb = UINT64_MAX / 1024;
  if (!totalKb || !availableKb || *totalKb == 0 || *totalKb > kMostKb) return std::nullopt;
  return HostFigures::Memory{*totalKb * 1024, std::min(*totalKb, *availableKb) * 1024};
}

std::string firstLine(const fs::path& path) {
  const std::string text = contentsOf(path);
  return text.substr(0, std::min(text.find_first_of("\r\n"), kLongestBoard));
}

/// Whether a sensor of that type measures the processor: a machine has others too.
bool isProcessor(std::string_view type) {
  const auto has = [&](std::string_view word) { return type.find(word) != std::string_view::npos; };
  return has("cpu") || has("pkg") || has("soc") || has("core");
}

std::optional<double> processorTemperatureBelow(const fs::path& directory) {
  std::optional<double> hottest;
  std::error_code error;
  fs::directory_iterator zones(directory, error);
  for (; !error && zones != fs::directory_iterator(); zones.increment(error)) {
    const fs::path& zone = zones->path();
    if (zone.filename().string().rfind("thermal_zone", 0) != 0) continue;
    if (!isProcessor(firstLine(zone / "type"))) continue;
    const auto milli = numberOf<std::int64_t>(firstLine(zone / "temp"));
    if (!milli) continue;
    const double degrees = static_cast<double>(*milli) / 1000;
    if (degrees < kColdest || degrees > kHottest) continue;
    hottest = std::max(degrees, hottest.value_or(degrees));
  }
  return hottest;
}

std::string kernel() {
  utsname names{};
  if (::uname(&names) != 0) return {};
  return std::string(names.sysname) + ' ' + names.release;
}

}  // namespace

HostFigures readHostFigures(const std::string& root) {
  const fs::path base = root + "/";
  HostFigures figures;
  figures.processors = std::thread::hardware_concurrency();
  figures.loadAverage = loadAverageIn(base / "proc/loadavg");
  figures.memory = memoryIn(base / "proc/meminfo");
  figures.processorTemperature = processorTemperatureBelow(base / "sys/class/thermal");
  figures.system = kernel();
  figures.board = firstLine(base / "version");
  return figures;
}

}  // namespace orvane::robot
