#pragma once

#include <array>
#include <memory>

#include "body/Body.h"
#include "physics/RenderFile.h"
#include "physics/Variation.h"

namespace orvane::robot {

class World;

/// Where everything of a body is.
struct Pose {
  static constexpr std::size_t kNumbers = 7 + kJoints;

  double seconds = 0;                        ///< since the body was made
  std::array<double, kNumbers> positions{};  ///< as MuJoCo has them: trunk (place, quaternion),
                                             ///< then the joints leg by leg

  [[nodiscard]] static Pose of(World& world);
};

/// The robot on its ground as a camera beside it sees it, which follows the trunk. Drawn by Mesa's
/// software renderer: no screen and no graphics card is needed. Its library is loaded when the
/// first scene is made.
///
/// Not thread-safe: made, used and freed on one thread. One at a time in a process.
class RenderScene {
 public:
  /// Throws std::runtime_error with a sentence for people when this machine can't draw.
  RenderScene(const Variation& variation, int width, int height);
  ~RenderScene();
  RenderScene(const RenderScene&) = delete;
  RenderScene& operator=(const RenderScene&) = delete;

  [[nodiscard]] Pose startPose();
  /// Lives until the next is drawn.
  [[nodiscard]] const Picture& draw(const Pose& pose);

 private:
  struct Stage;
  std::unique_ptr<Stage> stage_;
  Picture picture_;
};

}  // namespace orvane::robot
