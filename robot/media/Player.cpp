#include "media/Player.h"

#include <algorithm>
#include <array>

namespace orvane::robot {
namespace {

constexpr std::array<const char*, 3> kStates{"stopped", "playing", "paused"};
constexpr std::array<const char*, 5> kKinds{"trackStarted", "trackEnded", "paused", "resumed",
                                            "listEnded"};
constexpr std::array<const char*, 5> kWhys{"finished", "skipped", "replaced", "stopped", "deleted"};
constexpr std::array<const char*, 3> kLoops{"none", "track", "list"};

template <class Names, class Value>
const char* nameIn(const Names& names, Value value) {
  return names.at(static_cast<std::size_t>(value));
}

Refusal notBelow(const char* what, std::uint64_t limit) {
  return {Reason::kOutOfRange, std::string(what) + " must be below " + std::to_string(limit)};
}

}  // namespace

void Player::passTo(std::uint64_t nowMs) {
  const std::uint64_t passedMs = std::min(nowMs - nowMs_, kLongestGapMs);
  nowMs_ = nowMs;
  if (state_ != State::kPlaying) return;
  positionMs_ += passedMs;
  while (state_ == State::kPlaying && positionMs_ >= list_.present().lengthMs) {
    const std::uint64_t lengthMs = list_.present().lengthMs;
    const std::uint64_t overMs = positionMs_ - lengthMs;
    endTrack(Why::kFinished, lengthMs);
    if (list_.advance(loop_)) {
      beginTrack(overMs);
    } else {
      endList(Why::kFinished);
    }
  }
}

std::optional<Refusal> Player::wrong(const Start& request) const {
  if (!request.tracks && state_ == State::kStopped) {
    return Refusal{Reason::kNotNow, "nothing is played or paused; files says what to play"};
  }
  const auto& tracks = request.tracks ? *request.tracks : list_.tracks();
  if (tracks.empty() || tracks.size() > PlayList::kMost) {
    return Refusal{Reason::kOutOfRange,
                   "a play list has 1 to " + std::to_string(PlayList::kMost) + " files"};
  }
  const std::size_t index = request.index.value_or(request.tracks ? 0 : list_.index());
  if (index >= tracks.size()) return notBelow("index", tracks.size());
  if (request.positionMs.value_or(0) >= tracks[index].lengthMs) {
    return notBelow("positionMs", tracks[index].lengthMs);
  }
  if (request.volume.value_or(0) > kLoudest) return notBelow("volume", kLoudest + 1);
  return std::nullopt;
}

std::optional<Refusal> Player::start(Start request) {
  if (auto refusal = wrong(request)) return refusal;
  volume_ = request.volume.value_or(volume_);
  const std::uint64_t positionMs = request.positionMs.value_or(0);
  if (request.tracks) {
    if (state_ != State::kStopped) {
      endTrack(Why::kReplaced, positionMs_);
      endList(Why::kReplaced);
    }
    list_ = PlayList(std::move(*request.tracks), request.index.value_or(0));
    loop_ = request.loop.value_or(Loop::kNone);
    state_ = State::kPlaying;
    beginTrack(positionMs);
    return std::nullopt;
  }
  loop_ = request.loop.value_or(loop_);
  const bool wasPaused = std::exchange(state_, State::kPlaying) == State::kPaused;
  if (request.index) {
    endTrack(Why::kSkipped, positionMs_);
    list_.jump(*request.index);
    beginTrack(positionMs);
  } else if (request.positionMs) {
    positionMs_ = positionMs;
  }
  if (wasPaused) tell(Kind::kResumed);
  return std::nullopt;
}

std::optional<Refusal> Player::pause() {
  if (state_ == State::kStopped) return Refusal{Reason::kNotNow, "nothing is played"};
  if (std::exchange(state_, State::kPaused) == State::kPlaying) tell(Kind::kPaused);
  return std::nullopt;
}

void Player::stop() {
  if (state_ == State::kStopped) return;
  endTrack(Why::kStopped, positionMs_);
  endList(Why::kStopped);
}

void Player::remove(const std::string& name) {
  if (state_ == State::kStopped) return;
  const bool isPresent = list_.present().name == name;
  if (isPresent) endTrack(Why::kDeleted, positionMs_);
  if (!list_.remove(name, loop_)) {
    endList(Why::kDeleted);
  } else if (isPresent) {
    beginTrack(0);
  }
}

void Player::beginTrack(std::uint64_t positionMs) {
  positionMs_ = positionMs;
  tell(Kind::kTrackStarted);
}

void Player::endTrack(Why why, std::uint64_t positionMs) {
  positionMs_ = positionMs;
  tell(Kind::kTrackEnded, why);
}

void Player::endList(Why why) {
  list_ = PlayList();
  loop_ = Loop::kNone;
  positionMs_ = 0;
  state_ = State::kStopped;
  tell(Kind::kListEnded, why);
}

void Player::tell(Kind kind, std::optional<Why> why) {
  PlayEvent event{kind, why};
  if (!list_.empty()) {
    event.name = list_.present().name;
    event.index = list_.index();
    event.positionMs = positionMs_;
  }
  events_.push_back(std::move(event));
}

const char* nameOf(Player::State state) {
  return nameIn(kStates, state);
}

const char* nameOf(PlayEvent::Kind kind) {
  return nameIn(kKinds, kind);
}

const char* nameOf(PlayEvent::Why why) {
  return nameIn(kWhys, why);
}

const char* nameOf(Loop loop) {
  return nameIn(kLoops, loop);
}

std::optional<Loop> loopOf(const std::string& name) {
  const auto found = std::find(kLoops.begin(), kLoops.end(), name);
  if (found == kLoops.end()) return std::nullopt;
  return static_cast<Loop>(found - kLoops.begin());
}

}  // namespace orvane::robot
