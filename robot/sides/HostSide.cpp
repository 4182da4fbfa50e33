#include "sides/HostSide.h"

#include <cstddef>
#include <exception>
#include <set>
#include <utility>

#include "Network.h"
#include "publish/ObservedPublisher.h"
#include "servers/RequestServer.h"

namespace orvane::robot {
namespace {

/// Name of the low-level clients' DDS domain where it isn't the host domain.
constexpr const char* kClientsDomain = "clients";

constexpr std::size_t kLongestTopic = 255;

/// DDS would take two types under one name and leave the peers to wonder.
std::optional<std::string> topicsError(std::set<std::string> taken,
                                       const SimulationSettings& simulation) {
  for (const std::string& topic :
       {simulation.observedTopic, simulation.controlTopic, simulation.trcTopic}) {
    if (topic.empty() || topic.size() > kLongestTopic) {
      return "a topic has a name of 1 to " + std::to_string(kLongestTopic) + " characters";
    }
    if (!taken.insert(topic).second) return "topic " + topic + " would have two meanings";
  }
  return std::nullopt;
}

}  // namespace

HostSide::HostSide(const RobotSettings& settings, SharedRobot robot,
                   std::shared_ptr<EventOutbox> outbox)
    : Side(std::move(robot), std::move(outbox)),
      interface_(settings.interface),
      domain_(settings.domain),
      lossPercent_(settings.lossPercent),
      simulation_(settings.simulation) {}

std::optional<std::string> HostSide::obstacle() const {
  if (auto wrong = settingsError(robot().deviceId, interface_, domain_)) return wrong;
  if (simulation_.enabled) {
    if (auto wrong = settingsError(robot().deviceId, interface_, simulation_.domain)) {
      return "low-level clients: " + *wrong;
    }
    // In the host domain the observed topic may be the hosts' own.
    std::set<std::string> taken;
    if (!hasSecondDomain()) taken.insert(ObservedPublisher::kSensorTopic);
    if (auto wrong = topicsError(std::move(taken), simulation_)) {
      return "low-level clients: " + *wrong;
    }
  }
  return lossError(lossPercent_);
}

Side::Plan HostSide::plan() const {
  Json::Value domains = ddsDocument(interface_, domain_, lossPercent_)["domain"];
  if (hasSecondDomain()) {
    Json::Value second = ddsDocument(interface_, simulation_.domain, lossPercent_)["domain"][0];
    second["name"] = kClientsDomain;
    domains.append(std::move(second));
  }
  return {std::move(domains),
          {{"robotServer", kHostDomain, RequestServer::kService},
           {"cerebellumServer", kHostDomain, RequestServer::kService}},
          {{"robotServer", kHostDomain}},
          kHostDomain,
          robot().deviceId};
}

std::string HostSide::joinFailure() const {
  const std::string why = robot::joinFailure(interface_, domain_);
  if (!hasSecondDomain()) return why;
  return why + "; or low-level clients: " + robot::joinFailure(interface_, simulation_.domain);
}

std::unique_ptr<Publisher> HostSide::makePublisher(Pexal::PDBus::IDDSFactory& factory) {
  const auto participant = factory.participant(kHostDomain);
  if (simulation_.enabled) {
    clients_ = hasSecondDomain() ? factory.participant(kClientsDomain) : participant;
  }
  return std::make_unique<ObservedPublisher>(
      participant, robot().deviceId, robot().faults->voice(),
      ObservedPublisher::ForClients{clients_, simulation_.observedTopic,
                                    simulation_.reliableObserved});
}

bool HostSide::openMotors(std::string& error) {
  if (!simulation_.enabled) return true;
  try {
    commands_ = std::make_unique<CommandTopic>(clients_, simulation_.controlTopic,
                                               simulation_.reliableControl, robot().core,
                                               robot().faults->voice());
    if (!commands_->start()) {
      error = "no thread for motor commands";
      return false;
    }
    if (simulation_.gamepad.empty()) return true;
    auto source = openPadSource(simulation_.gamepad, error);
    if (source == nullptr) return false;
    gamepad_ =
        std::make_unique<GamepadTopic>(clients_, simulation_.trcTopic,
                                       observedWriterQos(robot().deviceId, simulation_.reliableTrc),
                                       std::move(source), robot().faults->voice());
    if (gamepad_->start()) return true;
    error = "no thread for the game pad";
  } catch (const std::exception& failure) {
    error = std::string("can't serve low-level clients: ") + failure.what();
  }
  return false;
}

void HostSide::closeMotors() {
  if (gamepad_ != nullptr) gamepad_->stop();
  commands_.reset();
}

}  // namespace orvane::robot
