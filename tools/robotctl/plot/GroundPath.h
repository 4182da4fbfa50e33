#pragma once

#include <vector>

#include "plot/Curve.h"

namespace robotctl {

/// Where the robot went, in the plane, thinned out as it comes: points that lie closer together
/// than a distance which grows with the path are left out, some thousand stay.
class GroundPath {
 public:
  struct Place {
    double x;
    double y;
  };
  using Stretch = std::vector<Place>;

  /// Metres. What isn't finite or absurdly far is left out.
  void add(double x, double y);
  /// The next place doesn't go on from the last one.
  void interrupt();

  [[nodiscard]] const std::vector<Stretch>& stretches() const { return stretches_; }
  [[nodiscard]] const Range& xRange() const { return x_; }
  [[nodiscard]] const Range& yRange() const { return y_; }
  [[nodiscard]] double length() const { return length_; }
  [[nodiscard]] bool empty() const { return x_.empty(); }

 private:
  void thinOut();

  std::vector<Stretch> stretches_;
  // The last place of a stretch is where the robot is and moves on until it is far enough away.
  std::size_t places_ = 0;
  double spacing_ = 0.002;
  bool interrupted_ = true;
  Range x_, y_;
  double length_ = 0;
};

}  // namespace robotctl
