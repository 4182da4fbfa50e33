#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <map>
#include <optional>
#include <string>

#include "Refusal.h"

namespace orvane::robot {

/// What the robot knows of a sound. The virtual robot has no loudspeaker, so it keeps no samples.
struct AudioFile {
  std::string name;    ///< see AudioFiles
  std::string format;  ///< one of AudioFiles::kFormats
  std::uint64_t lengthMs = 0;
  std::uint64_t sizeBytes = 0;
};

/// The sounds that can be played, by name: some that every robot begins with, and those that were
/// added. Nothing is kept beyond the robot's end.
///
/// A name has 1 to kLongestName bytes: letters and digits of ASCII, ' ', '-', '_', '.', '(' and
/// ')', the first and the last neither ' ' nor '.'. So none can be a path.
///
/// Not thread-safe: the robot mutex guards it.
class AudioFiles {
 public:
  static constexpr std::size_t kLongestName = 64;
  static constexpr std::array<const char*, 3> kFormats{"wav", "mp3", "ogg"};
  static constexpr std::uint64_t kShortestMs = 100;
  static constexpr std::uint64_t kLongestMs = 3'600'000;
  static constexpr std::uint64_t kLargestBytes = 16U << 20;
  static constexpr std::uint64_t kCapacityBytes = 64U << 20;
  static constexpr std::size_t kMost = 128;

  using Files = std::map<std::string, AudioFile>;

  AudioFiles();

  /// Nothing changes when it is refused: a name that can't be one, an unknown format, figures
  /// outside their limits, a name that is there already, no room left.
  [[nodiscard]] std::optional<Refusal> add(AudioFile file);
  /// Refused: there is none of that name.
  [[nodiscard]] std::optional<Refusal> remove(const std::string& name);
  /// Null: there is none of that name. Valid until the next change.
  [[nodiscard]] const AudioFile* find(const std::string& name) const;
  /// By name.
  [[nodiscard]] const Files& all() const { return files_; }
  [[nodiscard]] std::uint64_t freeBytes() const { return kCapacityBytes - usedBytes_; }

  /// What is said of a name that no file has.
  [[nodiscard]] static Refusal unknown(const std::string& name);

 private:
  Files files_;
  std::uint64_t usedBytes_ = 0;  // never above kCapacityBytes
};

}  // namespace orvane::robot
