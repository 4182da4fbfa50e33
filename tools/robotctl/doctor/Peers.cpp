#include "doctor/Peers.h"

#include <algorithm>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <utility>

#include "core/Documents.h"
#include "core/Text.h"
#include "doctor/ParticipantScan.h"

namespace robotctl::doctor {
namespace {

constexpr std::uint32_t kScanMs = 800;
constexpr std::uint32_t kElsewhereMs = 2000;
constexpr std::size_t kMostPlaces = 6;
constexpr std::size_t kMostNamed = 8;

/// Where robots may be that applications on this machine don't meet.
struct Place {
  std::uint32_t domain;
  std::string interface;
  auto operator<=>(const Place&) const = default;
};

std::string describe(const RobotAnswer& robot) {
  std::string text = robot.deviceNo.empty() ? "this board's robot" : printable(robot.deviceNo);
  const std::string model = textAt(robot.detail, "model");
  return model.empty() ? text : text + " (" + model + ')';
}

std::string joined(const std::vector<std::string>& parts) {
  std::string text;
  for (std::size_t i = 0; i < parts.size() && i < kMostNamed; ++i) {
    text += (i == 0 ? "" : ", ") + parts[i];
  }
  return parts.size() > kMostNamed ? text + " and more" : text;
}

std::string describe(const std::vector<RobotAnswer>& robots) {
  std::vector<std::string> parts;
  for (const RobotAnswer& robot : robots) parts.push_back(describe(robot));
  return joined(parts);
}

std::string describeWithPosture(const std::vector<RobotAnswer>& robots) {
  std::vector<std::string> parts;
  for (const RobotAnswer& robot : robots) {
    const std::string posture = textAt(robot.detail, "posture");
    parts.push_back(describe(robot) + (posture.empty() ? "" : ": " + posture));
  }
  return joined(parts);
}

std::string domainsText(const Machine& machine) {
  std::string text = machine.domains.size() > 1 ? "domains " : "domain ";
  for (const Domain& domain : machine.domains) {
    text += (&domain == &machine.domains.front() ? "" : " and ") + std::to_string(domain.id);
  }
  return text;
}

bool joins(const Machine& machine, std::uint32_t id) {
  return std::any_of(machine.domains.begin(), machine.domains.end(),
                     [id](const Domain& domain) { return domain.id == id; });
}

/// The part of a check that needs the same few things everywhere.
class PeerCheck {
 public:
  PeerCheck(const Machine& machine, const std::vector<NetworkInterface>& all,
            const Context& context, LogCapture& log)
      : machine_(machine), all_(all), context_(context), log_(log) {}

  PeerReport run() {
    PeerReport report;
    if (usableInterfaces(all_, machine_).empty()) {
      report.findings.push_back(nothingJoined());
      return report;
    }
    static_cast<void>(log_.take());
    {
      RobotSearch search(machine_, context_.interrupts);
      if (!search.start()) {
        report.findings.push_back(cantStart());
        return report;
      }
      look();
      report.robots = search.robots(context_.options.findMs, context_.options.robot);
      // Left now: a domain keeps the interface with which a process joined it first, and the search
      // elsewhere may need another.
    }
    report.findings = {joinedFinding(), peersFinding(), robotFinding(report.robots)};
    if (auto elsewhere = otherDomainsFinding()) report.findings.push_back(std::move(*elsewhere));
    return report;
  }

 private:
  [[nodiscard]] Finding nothingJoined() const {
    return {"dds.start",
            Verdict::kProblem,
            "DDS",
            "not tried: no interface can be used",
            "no robot can be found",
            "put the network right first (above)"};
  }

  [[nodiscard]] Finding cantStart() const {
    Finding finding{"dds.start", Verdict::kProblem, "DDS", {}, {}, {}};
    const auto lines = log_.take();
    finding.seen = "can't join " + domainsText(machine_) +
                   (lines.empty() ? "" : ": " + printable(lines.back()));
    finding.meaning = "no robot can be found, and connect() fails";
    finding.cure = machine_.board
                       ? "xmllint /etc/dds/*.xml    # the board's DDS settings"
                       : "robotctl doctor -v    # the DDS library's own words; without multicast "
                         "there are slots for nine programs: end one of them";
    return finding;
  }

  /// Everywhere: the interface that DDS takes by itself needn't be the robot's.
  void look() {
    Machine anywhere = machine_;
    if (!machine_.board) anywhere.interface = context_.options.interface;
    for (SeenParticipant& seen : scanDomains(usableInterfaces(all_, anywhere), kScanMs,
                                             [this] { context_.interrupts.check(); })) {
      if (seen.participant.isOwn()) {
        if (ownInterface_.empty()) ownInterface_ = interfaceWith(seen.participant.address);
        continue;
      }
      seen_.push_back(std::move(seen));
    }
  }

  [[nodiscard]] std::string interfaceWith(std::uint32_t address) const {
    for (const NetworkInterface& interface : all_) {
      if (interface.address == address) return interface.name;
    }
    return {};
  }

  [[nodiscard]] Finding joinedFinding() const {
    const std::string& interface = machine_.interface.empty() ? ownInterface_ : machine_.interface;
    std::string seen = "joined " + domainsText(machine_);
    if (!interface.empty()) seen += " on " + interface;
    if (machine_.interface.empty() && !interface.empty()) seen += ", which DDS chose";
    return {"dds.start", Verdict::kOk, "DDS", seen, {}, {}};
  }

  [[nodiscard]] Finding peersFinding() const {
    std::vector<std::string> parts;
    for (const SeenParticipant& seen : seen_) {
      if (!joins(machine_, seen.domain)) continue;
      parts.push_back(seen.participant.describe());
      if (machine_.domains.size() > 1) {
        parts.back() += " in domain " + std::to_string(seen.domain);
      }
    }
    return {
        "dds.peers", Verdict::kOk,
        "DDS peers", parts.empty() ? "none" : std::to_string(parts.size()) + ": " + joined(parts),
        {},          {}};
  }

  [[nodiscard]] Finding robotFinding(const std::vector<RobotAnswer>& robots) {
    Finding finding{"robot.found", Verdict::kOk, "robot", describeWithPosture(robots), {}, {}};
    const std::string& wanted = context_.options.robot;
    const bool there = wanted.empty() || machine_.board ||
                       std::any_of(robots.begin(), robots.end(), [&](const RobotAnswer& robot) {
                         return robot.deviceNo == wanted;
                       });
    if (!robots.empty() && there) {
      blameFallen(robots, finding);
      return finding;
    }
    finding.verdict = Verdict::kProblem;
    if (!robots.empty()) {
      finding.seen = printable(wanted) + " doesn't answer; these do: " + describe(robots);
      finding.meaning = "robotctl and applications that name " + printable(wanted) + " fail";
      finding.cure = "robotctl --robot " + printable(robots.front().deviceNo) + " info";
      return finding;
    }
    finding.seen = format("none answered within %s", duration(context_.options.findMs).c_str());
    finding.meaning = "there is nothing to connect to";
    if (machine_.board) {
      finding.cure = "start the board's motion process; in a sandbox: virtual-robot --board &";
      return finding;
    }
    if (blameElsewhere(finding)) return finding;
    finding.cure = "switch the robot on and join its network; or try a virtual one: robotctl sim";
    if (!machine_.interface.empty()) finding.cure += " --interface " + machine_.interface;
    return finding;
  }

  /// It is there, but nothing that moves it will work.
  void blameFallen(const std::vector<RobotAnswer>& robots, Finding& finding) const {
    const std::string& wanted = context_.options.robot;
    const auto fallen = std::find_if(robots.begin(), robots.end(), [&](const RobotAnswer& robot) {
      return (wanted.empty() || machine_.board || robot.deviceNo == wanted) &&
             textAt(robot.detail, "posture") == "fallen";
    });
    if (fallen == robots.end()) return;
    finding.verdict = Verdict::kWarning;
    finding.meaning = "it neither stands up nor walks until it has recovered";
    finding.cure = "robotctl recover";
    if (robots.size() > 1) finding.cure += " --robot " + printable(fallen->deviceNo);
    if (!machine_.board && !machine_.interface.empty()) {
      finding.cure += " --interface " + machine_.interface;
    }
  }

  /// No robot where applications look: is one somewhere else?
  bool blameElsewhere(Finding& finding) {
    std::set<Place> places;
    for (const SeenParticipant& seen : seen_) {
      const std::string& own = machine_.interface.empty() ? ownInterface_ : machine_.interface;
      if (joins(machine_, seen.domain) && seen.interface == own) continue;
      if (places.size() < kMostPlaces) places.insert({seen.domain, seen.interface});
    }
    for (const Place& place : places) {
      const auto robots = searchIn(place);
      if (robots.empty()) continue;
      const std::string id = printable(robots.front().deviceNo);
      const std::string domain = std::to_string(place.domain);
      const std::string own = std::to_string(machine_.domains.front().id);
      finding.seen += "; " + describe(robots) + " in domain " + domain + " on " + place.interface;
      if (joins(machine_, place.domain)) {
        finding.check = "robot.interface";
        finding.meaning = "DDS looks on another interface than the robot's";
        finding.cure = "robotctl --interface " + place.interface +
                       " discover    # applications: setNetworkInterface(\"" + place.interface +
                       "\")";
      } else {
        finding.check = "robot.domain";
        finding.meaning = "applications look in domain " + own + " only";
        finding.cure = "set the robot's DDS domain to " + own +
                       "; a virtual one: virtual-robot --device-id " + id + " --interface " +
                       place.interface + " --domain " + own;
      }
      return true;
    }
    return false;
  }

  [[nodiscard]] std::vector<RobotAnswer> searchIn(const Place& place) const {
    Machine there = machine_;
    there.domains = {{place.domain, "host", {}}};
    there.interface = place.interface;
    RobotSearch search(there, context_.interrupts);
    return search.start() ? search.robots(kElsewhereMs, {}) : std::vector<RobotAnswer>{};
  }

  [[nodiscard]] std::optional<Finding> otherDomainsFinding() const {
    std::map<std::uint32_t, std::size_t> others;
    for (const SeenParticipant& seen : seen_) {
      if (!joins(machine_, seen.domain)) ++others[seen.domain];
    }
    if (others.empty()) return {};
    std::vector<std::string> parts;
    for (const auto& [domain, count] : others) {
      parts.push_back(format("%zu in domain %u", count, domain));
    }
    return Finding{"dds.otherDomains", Verdict::kOk, "other DDS domains", joined(parts), {}, {}};
  }

  const Machine& machine_;
  const std::vector<NetworkInterface>& all_;
  const Context& context_;
  LogCapture& log_;
  std::vector<SeenParticipant> seen_;  // without our own
  std::string ownInterface_;           // that DDS uses; empty when it isn't known
};

}  // namespace

PeerReport checkPeers(const Machine& machine, const std::vector<NetworkInterface>& all,
                      const Context& context, LogCapture& log) {
  return PeerCheck(machine, all, context, log).run();
}

}  // namespace robotctl::doctor
