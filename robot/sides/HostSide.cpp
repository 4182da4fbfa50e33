#include "sides/HostSide.h"

#include <utility>

#include "Network.h"
#include "publish/ObservedPublisher.h"
#include "servers/RequestServer.h"

namespace orvane::robot {

HostSide::HostSide(const RobotSettings& settings, SharedRobot robot,
                   std::shared_ptr<EventOutbox> outbox)
    : Side(std::move(robot), std::move(outbox)),
      interface_(settings.interface),
      domain_(settings.domain),
      lossPercent_(settings.lossPercent) {}

std::optional<std::string> HostSide::obstacle() const {
  if (auto wrong = settingsError(robot().deviceId, interface_, domain_)) return wrong;
  return lossError(lossPercent_);
}

Side::Plan HostSide::plan() const {
  return {ddsDocument(interface_, domain_, lossPercent_)["domain"],
          {{"robotServer", kHostDomain, RequestServer::kService},
           {"cerebellumServer", kHostDomain, RequestServer::kService}},
          {{"robotServer", kHostDomain}},
          kHostDomain,
          robot().deviceId};
}

std::string HostSide::joinFailure() const {
  return robot::joinFailure(interface_, domain_);
}

std::unique_ptr<Publisher> HostSide::makePublisher(Pexal::PDBus::IDDSFactory& factory) {
  return std::make_unique<ObservedPublisher>(factory.participant(kHostDomain), robot().deviceId,
                                             robot().faults->voice());
}

}  // namespace orvane::robot
