#pragma once

#include <cstdint>
#include <memory>

#include "low_level/peers/Exchange.h"
#include "low_level/peers/Loop.h"
#include "orvane/RobotSdk/RobotSdk.h"

namespace bench {

/// The service on the board and a low-level client whose motors' drive is on. {"observedHz"}. One
/// at a time on a board.
class LowLevelSession {
 public:
  using Client = orvane::RobotSdk::IMotionLowLevelClient;

  /// Throws std::runtime_error when the robot isn't there or doesn't switch the drive on.
  explicit LowLevelSession(const Json::Value& arguments);
  ~LowLevelSession();
  LowLevelSession(const LowLevelSession&) = delete;
  LowLevelSession& operator=(const LowLevelSession&) = delete;

  [[nodiscard]] Client& client() { return *client_; }

 private:
  std::shared_ptr<Client> client_;
};

/// An application that a StandInBoard serves. A command of its own bears what Message does in the
/// last motor's entry, behind the robot's own motors.
class LowLevelClient final : public AskingWriterRole {
 public:
  explicit LowLevelClient(const Json::Value& arguments);

 private:
  bool write(const Message& message) noexcept override;
  bool ask(std::int64_t& writtenNs) noexcept override;

  LowLevelSession session_;
  LowLevelSession::Client& client_;
  orvane::RobotSdk::LowLevelMotorRecord motors_{};
  orvane::RobotSdk::ObservedMotionRecord seen_{};
};

/// An application that holds the joints of the virtual robot where they are: each pass asks for an
/// observed record, waits for it and sends a command. Beside LoopRole's, "loop" answers
/// "unanswered" and "refused".
class JointHolder final : public LoopRole {
 public:
  explicit JointHolder(const Json::Value& arguments);
  Json::Value handle(const Json::Value& command) override;

 private:
  void pass() noexcept override;

  LowLevelSession session_;
  LowLevelSession::Client& client_;
  orvane::RobotSdk::LowLevelMotorRecord motors_{};
  orvane::RobotSdk::ObservedMotionRecord seen_{};
  std::uint32_t unanswered_ = 0;
  std::uint32_t refused_ = 0;
};

/// What a StandInBoard finds in a command.
struct CommandStamp {
  std::int64_t sentNs = 0;
  std::uint32_t kind = 0;

  void putInto(orvane::RobotSdk::LowLevelMotorRecord& motors) const noexcept;
  [[nodiscard]] static CommandStamp of(
      const orvane::RobotSdk::LowLevelMotorRecord& motors) noexcept;
};

}  // namespace bench
