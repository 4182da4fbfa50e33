#include "doctor/Machine.h"

#include <json/json.h>

#include <string_view>

#include "pbase/CConfigLoader.h"
#include "pbase/System.h"

namespace robotctl::doctor {
namespace {

using Pexal::Config::CConfigLoader;
using Pexal::PBase::File;

constexpr char kVersionFile[] = "/version";
constexpr char kMotionProfile[] = "/etc/dds/motion_config.xml";
constexpr char kCerebellumProfile[] = "/etc/dds/cere_config.xml";
constexpr std::string_view kBoardVersion = "DEVELOPMENT_ROBOTIC_";
constexpr std::uint32_t kBrainDomain = 2;
constexpr std::uint32_t kCerebellumDomain = 1;
constexpr std::uint32_t kHostDomain = 42;

bool saysBoard() {
  std::string text;
  return CConfigLoader::readFile(kVersionFile, text) && text.starts_with(kBoardVersion);
}

/// The value of `name` in the first <NetworkInterface> of a profile.
std::string interfaceOf(const std::string& profile) {
  std::string text;
  if (!CConfigLoader::readFile(profile, text)) return {};
  const std::size_t element = text.find("<NetworkInterface");
  if (element == std::string::npos) return {};
  const std::size_t end = text.find('>', element);
  const std::size_t name = text.find("name=", element);
  if (name == std::string::npos || name > end || name + 6 > text.size()) return {};
  const std::size_t begin = name + 6;  // behind the quote
  const std::size_t close = text.find(text[begin - 1], begin);
  return close == std::string::npos ? std::string() : text.substr(begin, close - begin);
}

Finding checkConfig(const std::string& path) {
  Finding finding{"config", Verdict::kOk, "configuration", path + " is JSON", {}, {}};
  Json::Value document;
  std::string text;
  if (!CConfigLoader::readFile(path, text)) {
    finding.verdict = Verdict::kProblem;
    finding.seen = path + " can't be read";
    finding.meaning = "the library doesn't start with this file";
    finding.cure = "ls -l " + path + "    # a plain file that you may read, at most 4 MiB";
  } else if (!CConfigLoader::instance()->loadConfig(path, document)) {
    finding.verdict = Verdict::kProblem;
    finding.seen = path + " isn't JSON";
    finding.meaning = "the library doesn't start with this file";
    finding.cure = "python3 -m json.tool " + path + "    # shows where the mistake is";
  } else if (!document.isObject()) {
    finding.verdict = Verdict::kWarning;
    finding.seen = path + " isn't a JSON object";
    finding.meaning = "its settings have no effect";
    finding.cure = "put the settings into an object, like {\"lowLevel\": {\"leaseTimeout\": 5000}}";
  }
  return finding;
}

Finding checkDeployment(const Machine& machine) {
  Finding finding{"deployment", Verdict::kOk, "this machine", machine.deployment(), {}, {}};
  const bool profile = File::exist(kMotionProfile);
  if (machine.board || saysBoard() == profile) return finding;
  finding.verdict = Verdict::kWarning;
  finding.seen = profile ? std::string(kMotionProfile) + " is there, but " + kVersionFile +
                               " doesn't begin with " + std::string(kBoardVersion)
                         : std::string(kVersionFile) + " is a robot board's, but " +
                               kMotionProfile + " is missing";
  finding.meaning = "half a robot board: the library takes it for an external host";
  finding.cure = "on a robot's board put the missing file back; elsewhere remove the other one";
  return finding;
}

}  // namespace

Machine lookAtMachine(const CommonOptions& options) {
  Machine machine;
  machine.board = saysBoard() && File::exist(kMotionProfile);
  if (machine.board) {
    machine.domains = {{kBrainDomain, "brain", kMotionProfile},
                       {kCerebellumDomain, "cere", kCerebellumProfile}};
    machine.interface = interfaceOf(kMotionProfile);
  } else {
    machine.domains = {{kHostDomain, "host", {}}};
    machine.interface = options.interface;
  }
  return machine;
}

Findings checkSetUp(const Machine& machine, const CommonOptions& options) {
  Findings findings{checkDeployment(machine)};
  for (const Domain& domain : machine.domains) {
    if (domain.profile.empty() || File::exist(domain.profile)) continue;
    findings.push_back({"deployment.profile", Verdict::kProblem, "DDS settings",
                        domain.profile + " is missing",
                        "domain " + std::to_string(domain.id) + " of this board can't be joined",
                        "restore the board's file " + domain.profile});
  }
  if (!options.config.empty()) findings.push_back(checkConfig(options.config));
  return findings;
}

std::string ddsSettings(const Domain& domain, const std::string& interface) {
  if (!domain.profile.empty()) return domain.profile;
  std::string text = "<CycloneDDS><Domain Id=\"" + std::to_string(domain.id) + "\"><General>";
  if (!interface.empty()) {
    text += "<Interfaces><NetworkInterface name=\"" + interface +
            "\" priority=\"3\" multicast=\"default\" presence_required=\"true\"/></Interfaces>";
  }
  return text +
         "<AllowMulticast>true</AllowMulticast><MaxMessageSize>65500B</MaxMessageSize></General>"
         "<Tracing><Verbosity>none</Verbosity></Tracing></Domain></CycloneDDS>";
}

}  // namespace robotctl::doctor
