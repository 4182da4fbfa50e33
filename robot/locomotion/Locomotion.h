#pragma once

#include "body/Body.h"
#include "locomotion/Estimator.h"
#include "locomotion/Readings.h"
#include "locomotion/Recovery.h"
#include "locomotion/Trot.h"

namespace orvane::robot {

/// Carries out what the motion controller asks of a body that has nothing but motors and sensors:
/// stands up, stands, trots, lies down, gets up from a fall. Not thread-safe; doesn't allocate.
class Locomotion {
 public:
  /// The motors' commands for the next `seconds`. While `command.joints` commands them, or without
  /// power, it only follows what happens.
  const JointCommands& step(const BodyCommand& command, const Readings& readings, double seconds);

  [[nodiscard]] const Estimate& seen() const { return estimator_.now(); }
  [[nodiscard]] bool stepping() const { return trot_.stepping(); }
  [[nodiscard]] double footPhase(std::size_t leg) const { return trot_.phase(leg); }
  [[nodiscard]] bool recovering() const { return recovering_; }
  /// A recovery that was asked for has brought it onto its belly.
  [[nodiscard]] bool recovered() const { return recovering_ && recovery_.done(); }

 private:
  void recover(const Readings& readings, double seconds);
  void stand(const BodyCommand& command, double seconds);
  void takeOver(const Readings& readings);

  Estimator estimator_;
  Trot trot_;
  Recovery recovery_;
  JointCommands commands_{};
  bool leading_ = false;  // it commanded the joints in the last step
  bool recovering_ = false;
  double height_ = 0;                     // where the hips are led, m
  std::array<double, kJoints> offset_{};  // left over from a pose that it took over, rad
};

}  // namespace orvane::robot
