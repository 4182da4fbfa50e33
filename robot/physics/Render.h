#pragma once

#include <cstdint>
#include <memory>
#include <utility>

#include "RobotSettings.h"
#include "body/Body.h"
#include "body/Film.h"
#include "pbase/CMutex.h"
#include "pbase/CThread.h"
#include "physics/Newest.h"
#include "physics/PhysicsBody.h"
#include "physics/RenderScene.h"

namespace orvane::robot {

/// Pictures of a body with weight: one that is renewed each second, or an animation. It has a model
/// of its own and is only shown where the body is. An animation pauses while nothing moves; it is
/// written when it is full, or when the film ends.
///
/// Threading contract: made and finished on the owner's thread; freed on that of whoever drops it
/// last, which waits for its end; see on one thread, which never waits. The thread "robot:pictures"
/// draws, encodes and writes at low priority, as do the threads that Mesa starts there. mutex_
/// guards stopping_, settled_ and works_ and is taken with no other; report_ is the thread's until
/// it has ended. It ends within one picture and the file's writing.
class Renderer final : public Film {
 public:
  /// Has taken its first picture when it returns, which takes up to some seconds. Throws
  /// std::runtime_error with a sentence for people when the settings or this machine don't allow
  /// pictures.
  Renderer(const RenderSettings& settings, const Variation& variation);
  ~Renderer() override { stop(); }

  /// Where the body is now. Doesn't allocate.
  void see(const Pose& pose) { pose_.put(pose); }
  FilmReport finish() override;

 private:
  class Camera;

  void run();
  void film(Camera& camera);
  void settle(bool works);
  void stop();
  [[nodiscard]] bool stopsBefore(std::uint64_t deadlineUs);

  const RenderSettings settings_;
  const Variation variation_;
  Newest<Pose> pose_;
  Pexal::PBase::CMutex mutex_;
  Pexal::PBase::CCondition changed_;
  bool stopping_ = false;
  bool settled_ = false;  // whether it works is known
  bool works_ = false;    // the first picture is taken; otherwise report_ says why not
  FilmReport report_;
  Pexal::PBase::CThreadLite thread_;
};

/// A body that shows itself to a renderer.
class FilmedBody final : public Body {
 public:
  FilmedBody(std::unique_ptr<PhysicsBody> body, std::shared_ptr<Renderer> renderer)
      : body_(std::move(body)), renderer_(std::move(renderer)) {}

  void step(const BodyCommand& command, double seconds) override {
    body_->step(command, seconds);
    renderer_->see(Pose::of(body_->world()));
  }
  [[nodiscard]] const BodyState& state() const override { return body_->state(); }

 private:
  const std::unique_ptr<PhysicsBody> body_;
  const std::shared_ptr<Renderer> renderer_;
};

}  // namespace orvane::robot
