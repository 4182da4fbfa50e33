#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace robotctl {

struct Size {
  int columns = 80;
  int rows = 24;

  bool operator==(const Size&) const = default;
};

/// What a piece of text means; Screen.cpp says how that looks.
enum class Style : unsigned char { kPlain, kTitle, kLabel, kGood, kWarning, kBad, kFaint, kStrong };

struct Cell {
  char32_t glyph = U' ';
  Style style = Style::kPlain;

  bool operator==(const Cell&) const = default;
};

/// A picture made of characters, to be drawn without a terminal and looked at by tests. What lies
/// outside is cut off, so nothing that is drawn can be too big.
///
/// Text may come from the network: a character that a terminal would obey, or that doesn't take
/// exactly one column, is replaced by '?'.
class Canvas {
 public:
  explicit Canvas(Size size);

  [[nodiscard]] Size size() const { return size_; }
  [[nodiscard]] const Cell& at(int column, int row) const;

  void put(int column, int row, char32_t glyph, Style style = Style::kPlain);
  /// `text` is UTF-8. Returns the column behind it, also when that lies outside.
  int text(int column, int row, std::string_view text, Style style = Style::kPlain);
  /// The same, in at most `width` columns; a longer text ends with '…'.
  int text(int column, int row, int width, std::string_view text, Style style = Style::kPlain);
  /// The whole row in that style, blank.
  void band(int row, Style style);

  /// The characters without their styles, UTF-8, trailing blanks removed; for tests.
  [[nodiscard]] std::vector<std::string> lines() const;

 private:
  Size size_;
  std::vector<Cell> cells_;  // row by row
};

/// UTF-8 to characters; what is no UTF-8 becomes '?'.
[[nodiscard]] std::u32string decoded(std::string_view text);
void appendUtf8(std::string& text, char32_t glyph);

}  // namespace robotctl
