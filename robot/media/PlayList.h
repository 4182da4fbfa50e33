#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace orvane::robot {

/// One entry of a play list.
struct Track {
  std::string name;
  std::uint64_t lengthMs = 0;  ///< above 0
};

/// What comes behind the end of a track.
enum class Loop {
  kNone,   ///< the next one; behind the last the list ends
  kTrack,  ///< the same once more
  kList,   ///< the next one; behind the last the first
};

/// The tracks of one list, one of which is the present one. Not thread-safe.
class PlayList {
 public:
  static constexpr std::size_t kMost = 64;

  /// No tracks.
  PlayList() = default;
  /// `index` must be below the number of `tracks`.
  PlayList(std::vector<Track> tracks, std::size_t index)
      : tracks_(std::move(tracks)), index_(index) {}

  [[nodiscard]] bool empty() const { return tracks_.empty(); }
  [[nodiscard]] const std::vector<Track>& tracks() const { return tracks_; }
  [[nodiscard]] std::size_t index() const { return index_; }
  /// The list must not be empty.
  [[nodiscard]] const Track& present() const { return tracks_[index_]; }

  /// Makes the track at `index`, which must be below their number, the present one.
  void jump(std::size_t index) { index_ = index; }
  /// Makes the one behind the end of the present one the present one. False: that was the last, and
  /// nothing has changed.
  [[nodiscard]] bool advance(Loop loop);
  /// Takes out all tracks of that name. When the present one was among them the next that is left
  /// becomes the present one; with none behind it the first, unless `loop` is kNone. False: there
  /// is no present track any more, and the list is empty.
  [[nodiscard]] bool remove(const std::string& name, Loop loop);

 private:
  std::vector<Track> tracks_;
  std::size_t index_ = 0;
};

}  // namespace orvane::robot
