#pragma once

#include <string>
#include <vector>

#include "plot/Axis.h"
#include "plot/PlotData.h"
#include "plot/Svg.h"

namespace robotctl {

/// Curves over time in one frame.
struct Chart {
  std::string title;  ///< with the unit: "position, rad"
  std::vector<const Curve*> curves;
  Range range;             ///< of the values; empty: that of the curves
  bool timeLabels = true;  ///< the chart below has them otherwise
};

/// The frame that a chart's curves are drawn in, for a box that the whole chart has.
[[nodiscard]] Box frameOf(const Box& box);

void drawChart(Svg& svg, const Box& box, const Chart& chart, const TimeSpan& span);

/// A row of a timeline: episodes as bars with their names. Bars of one name have one colour.
struct TimelineRow {
  std::string title;
  const std::vector<Episode>* episodes;
  std::string nobody;  ///< what an episode without a name is called
};
/// Rows of bars, ticks for the events below, periods of silence across.
void drawTimeline(Svg& svg, const Box& box, const PlotData& data,
                  const std::vector<TimelineRow>& rows);
/// Height that `drawTimeline` wants.
[[nodiscard]] double timelineHeight(std::size_t rows);

/// The plane seen from above, one metre as long to the right as upwards.
void drawPath(Svg& svg, const Box& box, const GroundPath& path);

/// Names with a piece of line in their colour, ending at `right`.
void drawLegend(Svg& svg, double right, double y, const std::vector<std::string>& names);

}  // namespace robotctl
