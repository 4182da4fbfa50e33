#pragma once

#include <array>
#include <cstdint>
#include <memory>

#include "body/Body.h"
#include "locomotion/Readings.h"
#include "physics/Variation.h"

struct mjModel_;
struct mjData_;

namespace orvane::robot {

/// Where the robot really is: for tests and pictures, never for its controller.
struct TruePose {
  Vector3 position{};                            ///< of the hips' middle, world, m
  std::array<double, 4> quaternion{1, 0, 0, 0};  ///< w, x, y, z: body to world
  Vector3 velocity{};                            ///< world, m/s
  Vector3 rates{};                               ///< body frame, rad/s
};

/// One robot on flat ground, in MuJoCo. The same for the same variation and the same calls.
///
/// Not thread-safe. Only the constructor allocates.
class World {
 public:
  /// Throws std::runtime_error with the library's words when it can't load the model.
  explicit World(const Variation& variation);
  ~World();
  World(const World&) = delete;
  World& operator=(const World&) = delete;

  /// Lets kPhysicsStep pass with that at the motors. Without power they brake as if
  /// short-circuited.
  void step(const JointCommands& commands, bool powered);
  /// What its sensors say now, with their noise.
  [[nodiscard]] const Readings& readings() const { return readings_; }

  // For tests and pictures.

  [[nodiscard]] TruePose pose() const;
  /// How often the physics came to figures that make no sense. The robot then goes on from its pose
  /// before that step, at rest.
  [[nodiscard]] std::uint64_t upsets() const { return upsets_; }
  /// Presses on the trunk with `force` (world frame, N) for `seconds` from now on.
  void push(const Vector3& force, double seconds);
  /// Puts it there, at rest, with these joint angles; what is below the ground is lifted out of it.
  void place(const TruePose& pose, const std::array<double, kJoints>& angles);
  [[nodiscard]] const mjModel_& model() const { return *model_; }
  [[nodiscard]] mjData_& data() { return *data_; }

 private:
  struct Addresses;
  struct Noise;
  struct ModelFree {
    void operator()(mjModel_* model) const;
  };
  struct DataFree {
    void operator()(mjData_* data) const;
  };

  void drive(const JointCommands& commands, bool powered);
  void settle(const TruePose& pose, const std::array<double, kJoints>& angles);
  void sense();

  const Variation variation_;
  std::unique_ptr<mjModel_, ModelFree> model_;
  std::unique_ptr<mjData_, DataFree> data_;
  std::unique_ptr<Addresses> addresses_;
  std::unique_ptr<Noise> noise_;
  Readings readings_;
  Vector3 push_{};
  double pushSeconds_ = 0;
  std::uint64_t upsets_ = 0;
};

}  // namespace orvane::robot
