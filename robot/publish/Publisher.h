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

  /// Publishes the motion and, with `withSensors`, the sensors, as the robot's voice tells. Takes
  /// no mutex of the robot's and allocates nothing as long as the writes succeed; neither blocks
  /// nor throws. A write that fails is counted, reported at most once a second, and otherwise lost.
  void publish(const BodyState& body, bool withSensors) noexcept;

 protected:
  explicit Publisher(std::shared_ptr<Voice> voice) : voice_(std::move(voice)) {}
  /// For the nonsense of one sample.
  [[nodiscard]] std::uint32_t nextTurn() { return voice_->nextTurn(); }

 private:
  /// Write one sample, of nonsense where `spoilt`. Throw std::exception when that fails.
  virtual void writeMotion(const BodyState& body, bool spoilt) = 0;
  virtual void writeSensors(const BodyState& body, bool spoilt) = 0;

  using Write = void (Publisher::*)(const BodyState& body, bool spoilt);
  void tryWrite(Write write, const BodyState& body, bool spoilt) noexcept;
  void reportFailure(const char* text) noexcept;

  const std::shared_ptr<Voice> voice_;
  std::uint64_t failures_ = 0;
  std::uint64_t reportedMs_ = 0;
};

}  // namespace orvane::robot
