#include "plot/GroundPath.h"

#include <cmath>
#include <utility>

namespace robotctl {
namespace {

constexpr std::size_t kMostPlaces = 4096;
constexpr std::size_t kMostStretches = 256;  // an origin that changes all the time isn't a path
constexpr double kFarthest = 1e6;

double distance(const GroundPath::Place& a, const GroundPath::Place& b) {
  return std::hypot(a.x - b.x, a.y - b.y);
}

}  // namespace

void GroundPath::add(double x, double y) {
  if (!(std::abs(x) < kFarthest && std::abs(y) < kFarthest)) return;
  if (std::exchange(interrupted_, false)) {
    if (stretches_.size() == kMostStretches) {
      interrupted_ = true;
      return;
    }
    stretches_.push_back({{x, y}});
    ++places_;
  }
  Stretch& stretch = stretches_.back();
  const Place place{x, y};
  x_.include(x);
  y_.include(y);
  length_ += distance(stretch.back(), place);
  const bool movesOn =
      stretch.size() > 1 && distance(stretch[stretch.size() - 2], place) < spacing_;
  if (movesOn) {
    stretch.back() = place;
    return;
  }
  stretch.push_back(place);
  if (++places_ > kMostPlaces) thinOut();
}

void GroundPath::interrupt() {
  interrupted_ = true;
}

void GroundPath::thinOut() {
  spacing_ *= 2;
  places_ = 0;
  for (Stretch& stretch : stretches_) {
    Stretch kept = {stretch.front()};
    for (const Place& place : stretch) {
      if (distance(kept.back(), place) >= spacing_) kept.push_back(place);
    }
    kept.push_back(stretch.back());
    stretch = std::move(kept);
    places_ += stretch.size();
  }
}

}  // namespace robotctl
