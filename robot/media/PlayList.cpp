#include "media/PlayList.h"

#include <algorithm>

namespace orvane::robot {

bool PlayList::advance(Loop loop) {
  if (loop == Loop::kTrack) return true;
  if (index_ + 1 < tracks_.size()) {
    ++index_;
    return true;
  }
  if (loop == Loop::kNone) return false;
  index_ = 0;
  return true;
}

bool PlayList::remove(const std::string& name, Loop loop) {
  const auto isIt = [&](const Track& track) { return track.name == name; };
  const auto present = tracks_.begin() + static_cast<std::ptrdiff_t>(index_);
  index_ -= static_cast<std::size_t>(std::count_if(tracks_.begin(), present, isIt));
  tracks_.erase(std::remove_if(tracks_.begin(), tracks_.end(), isIt), tracks_.end());
  if (index_ == tracks_.size()) {
    index_ = 0;
    if (loop == Loop::kNone) tracks_.clear();
  }
  return !tracks_.empty();
}

}  // namespace orvane::robot
