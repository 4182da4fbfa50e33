#pragma once

#include <memory>

#include "publish/BufferPublisher.h"
#include "sides/MotorChannels.h"
#include "sides/Side.h"

namespace orvane::robot {

/// The robot as applications on its own board see it: the domains of its two computers, and the
/// observed state and the motors' channels in shared memory. A board has one robot, so its clients
/// name no device.
class BoardSide final : public Side {
 public:
  BoardSide(SharedRobot robot, std::shared_ptr<EventOutbox> outbox);

 private:
  [[nodiscard]] std::optional<std::string> obstacle() const override;
  [[nodiscard]] Plan plan() const override;
  [[nodiscard]] std::string joinFailure() const override;
  [[nodiscard]] std::unique_ptr<Publisher> makePublisher(
      Pexal::PDBus::IDDSFactory& factory) override;
  [[nodiscard]] bool openMotors(std::string& error) override;
  void closeMotors() override;

  BufferPublisher* observed_ = nullptr;  // the side's publisher
  std::unique_ptr<MotorChannels> motors_;
};

}  // namespace orvane::robot
