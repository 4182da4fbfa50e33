#pragma once

#include <algorithm>
#include <cctype>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace orvane::robot {

/// Pixels, row by row from the top, three bytes each: red, green, blue.
struct Picture {
  int width = 0;
  int height = 0;
  std::vector<std::uint8_t> rgb;
};

enum class PictureKind { kStill, kAnimation };

/// By the file's ending, in letters of any size: .png or .webp. None: it has another. Here, so that
/// a program without pictures knows, too.
[[nodiscard]] inline std::optional<PictureKind> pictureKindOf(std::string file) {
  std::transform(file.begin(), file.end(), file.begin(),
                 [](unsigned char letter) { return static_cast<char>(std::tolower(letter)); });
  if (file.ends_with(".png")) return PictureKind::kStill;
  if (file.ends_with(".webp")) return PictureKind::kAnimation;
  return std::nullopt;
}

/// Throws std::runtime_error with the system's words when `file` can't be written later on. What
/// is in it stays.
void expectWritable(const std::string& file);
/// Writes beside `file`, under a name that nothing has, and renames, so that whoever looks sees the
/// old or the new. Throws std::runtime_error with the system's words.
void replaceFile(const std::string& file, const std::vector<std::uint8_t>& bytes);

/// A PNG file's content. Throws std::runtime_error.
[[nodiscard]] std::vector<std::uint8_t> toPng(const Picture& picture);

/// An animated WebP that is encoded picture by picture, so that its end takes no time.
class Animation {
 public:
  Animation(int width, int height);
  ~Animation();
  Animation(const Animation&) = delete;
  Animation& operator=(const Animation&) = delete;

  /// `picture` of this size is shown from `atMs` on, later than those before. Throws
  /// std::runtime_error.
  void add(const Picture& picture, int atMs);
  /// The file's content; the last picture is shown until `endMs`. Nothing can be added any more.
  /// Throws std::runtime_error.
  [[nodiscard]] std::vector<std::uint8_t> finish(int endMs);

 private:
  struct Encoder;
  std::unique_ptr<Encoder> encoder_;
};

}  // namespace orvane::robot
