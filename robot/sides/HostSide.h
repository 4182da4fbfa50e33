#pragma once

#include "RobotSettings.h"
#include "sides/Side.h"

namespace orvane::robot {

/// The robot as external hosts see it: one DDS domain, in which several robots are kept apart by
/// their device ids, with the observed state on topics.
class HostSide final : public Side {
 public:
  HostSide(const RobotSettings& settings, SharedRobot robot, std::shared_ptr<EventOutbox> outbox);

 private:
  [[nodiscard]] std::optional<std::string> obstacle() const override;
  [[nodiscard]] Plan plan() const override;
  [[nodiscard]] std::string joinFailure() const override;
  [[nodiscard]] std::unique_ptr<Publisher> makePublisher(
      Pexal::PDBus::IDDSFactory& factory) override;

  const std::string interface_;
  const std::uint32_t domain_;
  const double lossPercent_;
};

}  // namespace orvane::robot
