#pragma once

#include <string>
#include <vector>

#include "plot/PlotData.h"

namespace robotctl {

/// The parts of a picture, from top to bottom.
enum class PlotPart { kControl, kPath, kBattery, kImu, kJoints };

/// Their names, for --only, in the same order.
extern const std::vector<std::string> kPlotParts;

/// A recording as one SVG picture. `parts`: what is drawn of it.
[[nodiscard]] std::string drawPlot(const PlotData& data, const std::vector<PlotPart>& parts);

}  // namespace robotctl
