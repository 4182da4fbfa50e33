#pragma once

#include <cstddef>
#include <cstdint>
#include <deque>
#include <mutex>
#include <optional>
#include <string>
#include <utility>

#include "record/Channels.h"

namespace robotctl {

/// What happens now and then, as JSON text, on its way to the thread that writes. Any thread.
class NoteQueue {
 public:
  struct Note {
    std::uint64_t timeNs;
    ChannelNumber channel;
    std::string json;
  };

  /// False when it is full; the note is lost then.
  [[nodiscard]] bool push(Note note) {
    const std::lock_guard lock(mutex_);
    if (notes_.size() == kMostNotes || bytes_ + note.json.size() > kMostBytes) return false;
    bytes_ += note.json.size();
    notes_.push_back(std::move(note));
    return true;
  }
  [[nodiscard]] std::optional<Note> pop() {
    const std::lock_guard lock(mutex_);
    if (notes_.empty()) return std::nullopt;
    Note note = std::move(notes_.front());
    notes_.pop_front();
    bytes_ -= note.json.size();
    return note;
  }

 private:
  static constexpr std::size_t kMostNotes = 4096;
  static constexpr std::size_t kMostBytes = 16U << 20;

  std::mutex mutex_;  // guards everything below
  std::deque<Note> notes_;
  std::size_t bytes_ = 0;
};

}  // namespace robotctl
