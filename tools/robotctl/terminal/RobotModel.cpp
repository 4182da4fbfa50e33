#include "terminal/RobotModel.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <ctime>

#include "core/Documents.h"
#include "core/Text.h"

namespace robotctl {
namespace {

// Farther than that no robot walks between two records: it, or its odometry, began anew.
constexpr float kJumpMetres = 0.5F;

}  // namespace

double RateMeter::perSecond(std::uint64_t nowMs) {
  constexpr std::uint64_t kWindowMs = 2000;
  if (looks_.empty() || nowMs >= looks_.back().atMs + 50) looks_.push_back({nowMs, total_});
  while (looks_.size() > 2 && looks_[1].atMs + kWindowMs <= nowMs) looks_.pop_front();
  const Look& first = looks_.front();
  const Look& last = looks_.back();
  if (last.atMs == first.atMs) return 0;
  return 1000.0 * static_cast<double>(last.total - first.total) /
         static_cast<double>(last.atMs - first.atMs);
}

void Path::add(const orvane::RobotSdk::ObservedOdometry& odometry) {
  Point point{odometry.position[0], odometry.position[1], false};
  const auto usable = [](float metres) { return std::isfinite(metres) && std::abs(metres) < 1e6F; };
  if (odometry.valid == 0 || !usable(point.x) || !usable(point.y)) return;
  if (odometry.epoch != epoch_) {
    points_.clear();
    epoch_ = odometry.epoch;
  }
  if (!points_.empty()) {
    const float way = std::hypot(point.x - points_.back().x, point.y - points_.back().y);
    if (way < stepMetres_) return;
    point.begins = way > kJumpMetres + stepMetres_;
  } else {
    point.begins = true;
  }
  points_.push_back(point);
  if (points_.size() < kMostPoints) return;
  for (std::size_t i = 0; 2 * i < points_.size(); ++i) {
    const bool begins = points_[2 * i].begins || (i > 0 && points_[2 * i - 1].begins);
    points_[i] = points_[2 * i];
    points_[i].begins = begins;
  }
  points_.resize((points_.size() + 1) / 2);
  stepMetres_ *= 2;
}

std::uint64_t RobotModel::heardMs() const {
  return std::max({stateMs, motionMs, sensorMs});
}

bool RobotModel::emergencyStopped() const {
  return textAt(state, "posture") == "emergencyStop";
}

std::size_t RobotModel::motorCount() const {
  if (!motion) return 0;
  const std::int32_t motors = motion->motorNum;
  return static_cast<std::size_t>(
      std::clamp<std::int32_t>(motors, 0, orvane::RobotSdk::kMaxMotors));
}

std::string RobotModel::jointName(std::size_t motor) const {
  if (motor < jointNames.size() && !jointNames[motor].empty()) return jointNames[motor];
  return format("motor %zu", motor);
}

std::string clockNow() {
  const std::time_t now = std::time(nullptr);
  std::tm local{};
  localtime_r(&now, &local);
  std::array<char, 16> text{};
  std::strftime(text.data(), text.size(), "%H:%M:%S", &local);
  return text.data();
}

}  // namespace robotctl
