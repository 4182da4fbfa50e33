#include "sides/BoardSide.h"

#include <utility>

#include "Board.h"
#include "Network.h"
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
             {"motionServer", kBrain.name, RequestServer::kMotionService},
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

std::unique_ptr<Publisher> BoardSide::makePublisher(Pexal::PDBus::IDDSFactory&) {
  auto publisher = std::make_unique<BufferPublisher>(robot().core, robot().faults->voice());
  observed_ = publisher.get();
  return publisher;
}

bool BoardSide::openMotors(std::string& error) {
  motors_ = std::make_unique<MotorChannels>(robot().core, robot().faults->voice(), *observed_);
  if (motors_->open()) return true;
  error = "can't open the motors' channels (the log says why)";
  return false;
}

void BoardSide::closeMotors() {
  motors_.reset();
}

}  // namespace orvane::robot
