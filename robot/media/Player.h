#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "Refusal.h"
#include "media/PlayList.h"

namespace orvane::robot {

/// Something that happened to what is played. Each kTrackStarted is followed by one kTrackEnded,
/// and each list by one kListEnded.
struct PlayEvent {
  enum class Kind {
    kTrackStarted,  ///< is the present track from now on; while the list is paused it waits
    kTrackEnded,
    kPaused,
    kResumed,
    kListEnded,  ///< nothing is played any more; without a track
  };
  /// Why a track or a list ended.
  enum class Why {
    kFinished,  ///< played to its end
    kSkipped,   ///< another track was asked for
    kReplaced,  ///< another list was asked for
    kStopped,
    kDeleted,  ///< its file is gone
  };

  Kind kind;
  std::optional<Why> why{};  ///< of kTrackEnded and kListEnded
  std::string name{};        ///< of the track
  std::size_t index = 0;     ///< in the list
  std::uint64_t positionMs = 0;
};

/// Plays a list in time. It is told how late it is and keeps track; it makes no sound and no
/// thread.
///
/// Not thread-safe: the robot mutex guards it. Times are milliseconds of the platform's clock. All
/// but passTo is meant for the time of the last passTo.
class Player {
 public:
  enum class State { kStopped, kPlaying, kPaused };

  static constexpr std::uint32_t kLoudest = 100;  ///< volumes are 0 to this
  static constexpr std::uint32_t kUsualVolume = 50;
  /// What is longer than this between two passTo the player stood still for, with the whole robot:
  /// it isn't made up for.
  static constexpr std::uint64_t kLongestGapMs = 1000;

  /// What is left out stays as it is. With tracks (a new list) instead: from the first track's
  /// begin, without a loop.
  struct Start {
    std::optional<std::vector<Track>> tracks{};
    std::optional<std::uint32_t> index{};       ///< below the number of tracks
    std::optional<std::uint32_t> positionMs{};  ///< below the track's length; 0 when index is given
    std::optional<Loop> loop{};
    std::optional<std::uint32_t> volume{};
  };

  /// Lets time pass until `nowMs`, which never goes back.
  void passTo(std::uint64_t nowMs);

  /// Plays. Without tracks the present list goes on, paused or not. Nothing changes when it is
  /// refused: nothing to play, too many tracks, a figure outside its range.
  [[nodiscard]] std::optional<Refusal> start(Start request);
  /// Refused when nothing is played or paused.
  [[nodiscard]] std::optional<Refusal> pause();
  /// Forgets the list. Nothing happens when there is none.
  void stop();
  /// The file of that name is gone. When it was being played the next track begins, in a paused
  /// list too; when there is none the list ends.
  void remove(const std::string& name);

  [[nodiscard]] State state() const { return state_; }
  /// Empty exactly while stopped.
  [[nodiscard]] const PlayList& list() const { return list_; }
  [[nodiscard]] std::uint64_t positionMs() const { return positionMs_; }
  [[nodiscard]] Loop loop() const { return loop_; }
  [[nodiscard]] std::uint32_t volume() const { return volume_; }
  /// What happened since this was last asked, in order.
  [[nodiscard]] std::vector<PlayEvent> takeEvents() { return std::exchange(events_, {}); }

 private:
  using Kind = PlayEvent::Kind;
  using Why = PlayEvent::Why;

  [[nodiscard]] std::optional<Refusal> wrong(const Start& request) const;
  void beginTrack(std::uint64_t positionMs);
  void endTrack(Why why, std::uint64_t positionMs);
  void endList(Why why);
  void tell(Kind kind, std::optional<Why> why = {});

  State state_ = State::kStopped;
  PlayList list_;
  Loop loop_ = Loop::kNone;
  std::uint32_t volume_ = kUsualVolume;
  std::uint64_t positionMs_ = 0;  // in the present track, below its length
  std::uint64_t nowMs_ = 0;
  std::vector<PlayEvent> events_;
};

[[nodiscard]] const char* nameOf(Player::State state);
[[nodiscard]] const char* nameOf(PlayEvent::Kind kind);
[[nodiscard]] const char* nameOf(PlayEvent::Why why);
[[nodiscard]] const char* nameOf(Loop loop);
/// None: no loop is called so.
[[nodiscard]] std::optional<Loop> loopOf(const std::string& name);

}  // namespace orvane::robot
