#include "doctor/Versions.h"

#include <link.h>

#include <cctype>
#include <climits>
#include <cstdlib>
#include <string>
#include <string_view>

#include "core/Documents.h"
#include "core/Text.h"
#include "orvane/RobotSdk/IMotionSdkService.h"

namespace robotctl::doctor {
namespace {

constexpr const char* kLibraries[] = {"librobotMotionSdk.so", "libpdbus.so", "libpbase.so",
                                      "libddsc.so"};

/// The number before the first dot; -1 when the text doesn't begin with one.
int majorOf(std::string_view version) {
  std::size_t digits = 0;
  while (digits < version.size() && digits < 6 &&
         std::isdigit(static_cast<unsigned char>(version[digits])) != 0) {
    ++digits;
  }
  const bool ends = digits == version.size() || version[digits] == '.';
  return digits > 0 && ends ? std::atoi(std::string(version.substr(0, digits)).c_str()) : -1;
}

/// "1.0.0" of "1.0.0 (commit ...)".
std::string numberOf(const std::string& version) {
  return version.substr(0, version.find(' '));
}

/// Where the loaded libraries really lie, their version in the file's name.
std::vector<std::string> loadedLibraries() {
  std::vector<std::string> paths;
  const auto visit = [](dl_phdr_info* info, std::size_t, void* result) {
    const std::string_view name = info->dlpi_name;
    for (const char* const wanted : kLibraries) {
      if (name.find(wanted) == std::string_view::npos) continue;
      char real[PATH_MAX];
      static_cast<std::vector<std::string>*>(result)->emplace_back(
          ::realpath(info->dlpi_name, real) != nullptr ? real : info->dlpi_name);
    }
    return 0;
  };
  ::dl_iterate_phdr(visit, &paths);
  return paths;
}

Finding checkLibrary() {
  const std::string version = orvane::RobotSdk::IMotionSdkService::version();
  Finding finding{"version.library", Verdict::kOk, "library", version, {}, {}};
  if (numberOf(version) == ROBOTCTL_VERSION) return finding;
  finding.verdict = Verdict::kWarning;
  finding.seen += ", robotctl is " ROBOTCTL_VERSION;
  finding.meaning = "another library is loaded than the one robotctl was installed with";
  finding.cure = "ldconfig -p | grep robotMotionSdk; echo $LD_LIBRARY_PATH    # remove the old one";
  return finding;
}

Finding listPlatform() {
  std::string seen;
  for (const std::string& path : loadedLibraries()) {
    seen += (seen.empty() ? "" : "\n") + printable(path);
  }
  return {"version.platform", Verdict::kOk, "loaded libraries", seen, {}, {}};
}

Finding checkRobot(const RobotAnswer& robot) {
  const std::string name = robot.deviceNo.empty() ? "robot" : "robot " + printable(robot.deviceNo);
  const std::string version = textAt(robot.detail, "version");
  const std::string own = numberOf(orvane::RobotSdk::IMotionSdkService::version());
  Finding finding{"version.robot", Verdict::kOk, name, "version " + version, {}, {}};
  if (majorOf(version) == majorOf(own)) return finding;
  if (majorOf(version) < 0) {
    finding.verdict = Verdict::kWarning;
    finding.seen = version.empty() ? "tells no version" : "its version can't be read: " + version;
    finding.meaning = "whether it understands this library isn't known";
    finding.cure = "compare the robot's release notes with version " + own;
    return finding;
  }
  finding.verdict = Verdict::kProblem;
  finding.seen += ", the library is " + own;
  finding.meaning = "requests may be refused or misunderstood";
  finding.cure = "update the robot to " + std::to_string(majorOf(own)) +
                 ".x, or install the library's " + std::to_string(majorOf(version)) +
                 ".x: sudo apt install librobotmotionsdk" + std::to_string(majorOf(version));
  return finding;
}

}  // namespace

Findings checkVersions(const std::vector<RobotAnswer>& robots) {
  Findings findings{checkLibrary(), listPlatform()};
  for (const RobotAnswer& robot : robots) findings.push_back(checkRobot(robot));
  return findings;
}

}  // namespace robotctl::doctor
