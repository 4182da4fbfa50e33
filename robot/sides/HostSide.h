#pragma once

#include <memory>
#include <optional>
#include <string>

#include "RobotSettings.h"
#include "gamepad/GamepadTopic.h"
#include "sides/Side.h"
#include "sim/CommandTopic.h"

namespace orvane::robot {

/// The robot as external hosts see it: one DDS domain, in which several robots are kept apart by
/// their device ids, with the observed state on topics; and, in the same or another domain, the
/// topics of low-level clients, which know no device ids.
class HostSide final : public Side {
 public:
  HostSide(const RobotSettings& settings, SharedRobot robot, std::shared_ptr<EventOutbox> outbox);

 private:
  [[nodiscard]] std::optional<std::string> obstacle() const override;
  [[nodiscard]] Plan plan() const override;
  [[nodiscard]] std::string joinFailure() const override;
  [[nodiscard]] std::unique_ptr<Publisher> makePublisher(
      Pexal::PDBus::IDDSFactory& factory) override;
  [[nodiscard]] bool openMotors(std::string& error) override;
  void closeMotors() override;

  [[nodiscard]] bool hasSecondDomain() const {
    return simulation_.enabled && simulation_.domain != domain_;
  }

  const std::string interface_;
  const std::uint32_t domain_;
  const double lossPercent_;
  const SimulationSettings simulation_;
  dds::domain::DomainParticipant clients_ = dds::core::null;  // where low-level clients are
  std::unique_ptr<CommandTopic> commands_;
  std::unique_ptr<GamepadTopic> gamepad_;  // its writer goes with the others, see Side::close
};

}  // namespace orvane::robot
