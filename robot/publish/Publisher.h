#pragma once

#include <cstdint>
#include <memory>
#include <utility>

#include "body/Body.h"
#include "faults/Voice.h"

namespace orvane::robot {

/// Makes public what can be seen of the robot, in one of the ways there are.
///
/// Threading contract: publish from one thread at a time; made and destroyed when none publishes.
class Publisher {
 public:
  virtual ~Publisher() = default;
  Publisher(const Publisher&) = delete;
  Publisher& operator=(const Publisher&) = delete;

  /// Publishes what is due: motion each kMotionUs (a low-level session may have agreed on another
  /// rate, see the constructor), sensors each kSensorUs. `stepUs`: how much of the robot's time has
  /// passed since the call before. As the robot's voice tells. Blocks for the robot mutex at most,
  /// allocates nothing as long as the writes succeed, doesn't throw. A write that fails is counted,
  /// reported at most once a second, and otherwise lost.
  void publish(const BodyState& body, std::uint32_t stepUs, std::uint32_t sessionHz) noexcept;

  static constexpr std::uint32_t kMotionUs = 2'000;   // 500 Hz
  static constexpr std::uint32_t kSensorUs = 20'000;  // 50 Hz

 protected:
  /// `forSessions`: publishes motion at the rate that a low-level session agreed, while there is
  /// one.
  Publisher(std::shared_ptr<Voice> voice, bool forSessions)
      : forSessions_(forSessions), voice_(std::move(voice)) {}
  [[nodiscard]] bool isSilent() const { return voice_->isSilent(); }
  [[nodiscard]] bool talksNonsense() const { return voice_->talksNonsense(); }
  /// For the nonsense of one sample.
  [[nodiscard]] std::uint32_t nextTurn() { return voice_->nextTurn(); }

 private:
  /// Write one sample, of nonsense where `spoilt`. Throw std::exception when that fails.
  virtual void writeMotion(const BodyState& body, bool spoilt) = 0;
  virtual void writeSensors(const BodyState& body, bool spoilt) = 0;

  using Write = void (Publisher::*)(const BodyState& body, bool spoilt);
  void tryWrite(Write write, const BodyState& body, bool spoilt) noexcept;
  void reportFailure(const char* text) noexcept;

  /// Something that is done once in a while.
  struct Cadence {
    std::int64_t leftUs = 0;
    [[nodiscard]] bool due(std::uint32_t stepUs, std::uint32_t periodUs) noexcept;
  };

  const bool forSessions_;
  const std::shared_ptr<Voice> voice_;
  Cadence motion_;
  Cadence sensors_;
  std::uint64_t failures_ = 0;
  std::uint64_t reportedMs_ = 0;
};

}  // namespace orvane::robot
