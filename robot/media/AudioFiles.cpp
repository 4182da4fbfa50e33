#include "media/AudioFiles.h"

#include <algorithm>
#include <string_view>
#include <utility>

namespace orvane::robot {
namespace {

// What every robot begins with; as large as 16-bit samples at 16 kHz are.
constexpr std::uint64_t kHeaderBytes = 44;
constexpr std::uint64_t kBytesPerMs = 32;
struct BuiltIn {
  const char* name;
  std::uint64_t lengthMs;
};
constexpr BuiltIn kBuiltIn[] = {{"bark", 800}, {"greeting", 2400}, {"march", 60'000}};

constexpr std::string_view kNameCharacters =
    "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789 -_.()";

bool isName(std::string_view text) {
  const auto canBeEdge = [](char c) { return c != ' ' && c != '.'; };
  return !text.empty() && text.size() <= AudioFiles::kLongestName && canBeEdge(text.front()) &&
         canBeEdge(text.back()) &&
         text.find_first_not_of(kNameCharacters) == std::string_view::npos;
}

Refusal outOfRange(const char* what, std::uint64_t least, std::uint64_t most) {
  return {Reason::kOutOfRange, std::string("an audio file's ") + what + " must lie within " +
                                   std::to_string(least) + " to " + std::to_string(most)};
}

std::optional<Refusal> wrongFile(const AudioFile& file) {
  if (!isName(file.name)) {
    return Refusal{Reason::kInvalid,
                   "an audio file's name has 1 to 64 letters, digits, blanks and - _ . ( ), and "
                   "neither begins nor ends with a blank or a dot"};
  }
  const auto& formats = AudioFiles::kFormats;
  if (std::find(formats.begin(), formats.end(), file.format) == formats.end()) {
    return Refusal{Reason::kNotAvailable, "an audio file's format must be wav, mp3 or ogg"};
  }
  if (file.lengthMs < AudioFiles::kShortestMs || file.lengthMs > AudioFiles::kLongestMs) {
    return outOfRange("lengthMs", AudioFiles::kShortestMs, AudioFiles::kLongestMs);
  }
  if (file.sizeBytes < 1 || file.sizeBytes > AudioFiles::kLargestBytes) {
    return outOfRange("sizeBytes", 1, AudioFiles::kLargestBytes);
  }
  return std::nullopt;
}

}  // namespace

AudioFiles::AudioFiles() {
  for (const BuiltIn& sound : kBuiltIn) {
    static_cast<void>(
        add({sound.name, "wav", sound.lengthMs, kHeaderBytes + kBytesPerMs * sound.lengthMs}));
  }
}

std::optional<Refusal> AudioFiles::add(AudioFile file) {
  if (auto refusal = wrongFile(file)) return refusal;
  if (find(file.name) != nullptr) {
    return Refusal{Reason::kExists, "there is an audio file " + file.name + " already"};
  }
  if (files_.size() == kMost) {
    return Refusal{Reason::kNoRoom, "there are " + std::to_string(kMost) + " audio files already"};
  }
  if (file.sizeBytes > freeBytes()) {
    return Refusal{Reason::kNoRoom,
                   "only " + std::to_string(freeBytes()) + " bytes are left for audio files"};
  }
  usedBytes_ += file.sizeBytes;
  std::string name = file.name;
  files_.emplace(std::move(name), std::move(file));
  return std::nullopt;
}

std::optional<Refusal> AudioFiles::remove(const std::string& name) {
  const auto found = files_.find(name);
  if (found == files_.end()) return unknown(name);
  usedBytes_ -= found->second.sizeBytes;
  files_.erase(found);
  return std::nullopt;
}

const AudioFile* AudioFiles::find(const std::string& name) const {
  const auto found = files_.find(name);
  return found == files_.end() ? nullptr : &found->second;
}

Refusal AudioFiles::unknown(const std::string& name) {
  return {Reason::kNoFile, "there is no audio file " + name.substr(0, kLongestName)};
}

}  // namespace orvane::robot
