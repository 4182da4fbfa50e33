#include "plot/Plot.h"

#include <algorithm>
#include <array>
#include <ctime>
#include <utility>

#include "core/Text.h"
#include "plot/Charts.h"

namespace robotctl {

const std::vector<std::string> kPlotParts = {"control", "path", "battery", "imu", "joints"};

namespace {

constexpr double kMargin = 24;
constexpr double kGap = 24;  // between charts
constexpr std::size_t kAcross = 3;
constexpr double kChartWidth = 366;  // three across, with their labels
constexpr double kWidth = 2 * kMargin + kAcross * kChartWidth + (kAcross - 1) * kGap;
constexpr double kHeading = 30;
constexpr double kChartHeight = 150;
constexpr double kTop = 76;

double column(std::size_t at) {
  return kMargin + static_cast<double>(at) * (kChartWidth + kGap);
}

std::vector<const Curve*> pointersTo(const std::vector<Curve>& curves) {
  std::vector<const Curve*> pointers;
  for (const Curve& curve : curves) pointers.push_back(&curve);
  return pointers;
}

std::string startText(std::uint64_t startNs) {
  const auto seconds = static_cast<std::time_t>(startNs / 1'000'000'000);
  std::tm parts{};
  std::array<char, 64> text{};
  if (::gmtime_r(&seconds, &parts) == nullptr) return "";
  std::strftime(text.data(), text.size(), "%Y-%m-%d %H:%M:%S UTC", &parts);
  return text.data();
}

/// Draws part below part. With a null picture it only measures.
class Layout {
 public:
  Layout(const PlotData& data, Svg* svg) : data_(data), svg_(svg) {}

  void draw(const std::vector<PlotPart>& parts) {
    const auto wanted = [&](PlotPart part) {
      return std::find(parts.begin(), parts.end(), part) != parts.end();
    };
    if (wanted(PlotPart::kControl)) control();
    if (wanted(PlotPart::kPath) || wanted(PlotPart::kBattery)) {
      pathAndBattery(wanted(PlotPart::kPath), wanted(PlotPart::kBattery));
    }
    if (wanted(PlotPart::kImu)) imu();
    if (wanted(PlotPart::kJoints)) joints();
  }
  [[nodiscard]] double height() const { return y_; }

 private:
  void heading(const std::string& text, const std::vector<std::string>& legend = {}) {
    if (svg_ != nullptr) {
      svg_->text(kMargin, y_ + 16, text, "start", "h2");
      drawLegend(*svg_, kWidth - kMargin, y_ + 16, legend);
    }
    y_ += kHeading;
  }

  void chart(const Box& box, const Chart& chart) {
    if (svg_ != nullptr) drawChart(*svg_, box, chart, data_.span);
  }

  void control() {
    heading("Control");
    const std::vector<TimelineRow> rows = {{"control", &data_.control, "nobody"},
                                           {"posture", &data_.postures, "unknown"}};
    const double height = timelineHeight(rows.size());
    if (svg_ != nullptr) {
      drawTimeline(*svg_, {kMargin, y_, kWidth - 2 * kMargin, height}, data_, rows);
    }
    y_ += height + kGap;
  }

  void pathAndBattery(bool path, bool battery) {
    heading(!battery ? "Path" : !path ? "Battery" : "Path and battery");
    constexpr double kHeight = 3 * kChartHeight;
    const double batteryAt = column(path ? 2 : 0);
    if (path && svg_ != nullptr) {
      const double right = battery ? column(1) + kChartWidth : kWidth - kMargin;
      drawPath(*svg_, {kMargin, y_, right - kMargin, kHeight}, data_.path);
    }
    if (battery) {
      const std::pair<const char*, const std::vector<Curve>*> charts[] = {
          {"charge, %", &data_.charge},
          {"voltage, V", &data_.voltage},
          {"current, A", &data_.current}};
      double y = y_;
      for (const auto& [title, curves] : charts) {
        chart({batteryAt, y, kWidth - kMargin - batteryAt, kChartHeight},
              {title, pointersTo(*curves), {}, true});
        y += kChartHeight;
      }
    }
    y_ += kHeight + kGap;
  }

  void imu() {
    heading("Inertial unit, body frame", {"x, roll", "y, pitch", "z, yaw"});
    const std::pair<const char*, const std::vector<Curve>*> charts[] = {
        {"specific force, m/s²", &data_.acceleration},
        {"angular velocity, rad/s", &data_.angularVelocity},
        {"attitude, rad", &data_.euler}};
    for (std::size_t at = 0; at < kAcross; ++at) {
      chart({column(at), y_, kChartWidth, kChartHeight},
            {charts[at].first, pointersTo(*charts[at].second), {}, true});
    }
    y_ += kChartHeight + kGap;
  }

  /// A row for each limb, a column for each quantity with one scale for all limbs.
  void joints() {
    std::vector<std::pair<std::string, std::vector<const Joint*>>> limbs;
    for (const Joint& joint : data_.joints) {
      const auto known = std::find_if(limbs.begin(), limbs.end(),
                                      [&](const auto& limb) { return limb.first == joint.limb; });
      if (known != limbs.end()) {
        known->second.push_back(&joint);
      } else {
        limbs.push_back({joint.limb, {&joint}});
      }
    }
    std::vector<std::string> legend;
    if (!limbs.empty()) {
      for (const Joint* joint : limbs[0].second) legend.push_back(joint->name);
    }
    heading(limbs.empty() ? "Joints: nothing recorded" : "Joints", legend);
    const std::pair<const char*, Curve Joint::*> quantities[] = {
        {"position, rad", &Joint::position},
        {"velocity, rad/s", &Joint::velocity},
        {"torque, N m", &Joint::torque}};
    for (const auto& [limb, joints] : limbs) {
      for (std::size_t at = 0; at < kAcross; ++at) {
        const auto& [title, member] = quantities[at];
        Chart row{limb + ": " + title, {}, {}, limb == limbs.back().first};
        for (const Joint* joint : joints) row.curves.push_back(&(joint->*member));
        for (const Joint& joint : data_.joints) row.range.include((joint.*member).range());
        chart({column(at), y_, kChartWidth, kChartHeight}, row);
      }
      y_ += kChartHeight;
    }
    y_ += kGap;
  }

  const PlotData& data_;
  Svg* const svg_;
  double y_ = kTop;
};

}  // namespace

std::string drawPlot(const PlotData& data, const std::vector<PlotPart>& parts) {
  Layout measured(data, nullptr);
  measured.draw(parts);
  const std::string title =
      "Recording of " + (data.robot.empty() ? "a robot" : "robot " + data.robot);
  std::string about =
      startText(data.startNs) + format(", %.1f s, %llu messages", data.span.end - data.span.begin,
                                       static_cast<unsigned long long>(data.report.messages));
  if (!data.report.damage.empty()) about += " (" + data.report.damage + ")";
  Svg svg(kWidth, measured.height(), title, about);
  svg.text(kMargin, 36, title, "start", "h1");
  svg.text(kMargin, 58, about);
  Layout(data, &svg).draw(parts);
  return std::move(svg).finish();
}

}  // namespace robotctl
