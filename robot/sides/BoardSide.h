#pragma once

#include "sides/Side.h"

namespace orvane::robot {

/// The robot as applications on its own board see it: the domains of its two computers, and the
/// observed state in shared memory. A board has one robot, so its clients name no device.
class BoardSide final : public Side {
 public:
  BoardSide(SharedRobot robot, std::shared_ptr<EventOutbox> outbox);

 private:
  [[nodiscard]] std::optional<std::string> obstacle() const override;
  [[nodiscard]] Plan plan() const override;
  [[nodiscard]] std::string joinFailure() const override;
  [[nodiscard]] std::unique_ptr<Publisher> makePublisher(
      Pexal::PDBus::IDDSFactory& factory) const override;
};

}  // namespace orvane::robot
