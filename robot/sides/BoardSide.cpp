#include "sides/BoardSide.h"

#include <utility>

#include "Board.h"
#include "Network.h"
#include "publish/BufferPublisher.h"
#include "servers/RequestServer.h"

namespace orvane::robot {

BoardSide::BoardSide(SharedRobot robot, std::shared_ptr<EventOutbox> outbox)
    : Side(std::move(robot), std::move(outbox)) {}

std::optional<std::string> BoardSide::obstacle() const {
  if (auto wrong = deviceIdError(robot().deviceId)) return wrong;
  return noBoard();
}

// Clients send their lease, media and events through brainServer; what moves the robot may go to
// cerebellumServer instead.
Side::Plan BoardSide::plan() const {
  Plan plan{{},
            {{"brainServer", kBrain.name, RequestServer::kBrainService},
             {"mediaServer", kBrain.name, RequestServer::kBrainService},
             {"cerebellumServer", kCerebellum.name, RequestServer::kService}},
            {{"brainServer", kBrain.name},
             {"mediaServer", kBrain.name},
             {"cerebellumServer", kCerebellum.name}},
            kBrain.name,
            {}};
  for (const BoardDomain& domain : {kBrain, kCerebellum}) plan.domains.append(domainEntry(domain));
  return plan;
}

std::string BoardSide::joinFailure() const {
  return std::string("can't join DDS with ") + kBrain.profile + " and " + kCerebellum.profile +
         " (the log says why)";
}

std::unique_ptr<Publisher> BoardSide::makePublisher(Pexal::PDBus::IDDSFactory&) const {
  return std::make_unique<BufferPublisher>(robot().faults->voice());
}

}  // namespace orvane::robot
