#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <string>
#include <vector>

#include "plot/Curve.h"
#include "plot/GroundPath.h"
#include "record/ByteSource.h"
#include "record/McapReader.h"

namespace robotctl {

/// How many columns of pixels a curve gets.
inline constexpr std::size_t kCurveColumns = 320;

/// Something that lasted, as the robot told it: who held control, which posture it had.
struct Episode {
  double begin;
  double end;
  std::string what;
};

struct Joint {
  std::string limb;
  std::string name;
  Curve position;
  Curve velocity;
  Curve torque;
};

/// Everything that is drawn of a recording, thinned out: its size doesn't depend on the
/// recording's.
struct PlotData {
  explicit PlotData(TimeSpan theSpan);

  TimeSpan span;
  std::uint64_t startNs = 0;
  std::string robot;
  mcap::Report report;
  std::size_t unreadable = 0;  ///< messages with contents that can't be read

  std::vector<Joint> joints;
  std::vector<Curve> acceleration, angularVelocity, euler;
  std::vector<Curve> charge, voltage, current;
  GroundPath path;
  std::vector<Episode> control;   ///< the holder's name; "" when nobody held it
  std::vector<Episode> postures;  ///< "" when the robot told none
  std::vector<Episode> silences;
  std::vector<double> events;
};

/// Reads the recording, twice: how long it is, then what is in it. Throws mcap::NotMcap for another
/// kind of file.
[[nodiscard]] PlotData readPlotData(ByteSource& source);

}  // namespace robotctl
