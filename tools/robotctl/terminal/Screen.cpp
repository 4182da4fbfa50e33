#include "terminal/Screen.h"

#include <algorithm>
#include <cctype>
#include <cstdlib>
#include <string_view>

namespace robotctl {
namespace {

/// Each begins with a reset.
std::string_view attributes(Style style, bool colours) {
  switch (style) {
    case Style::kPlain:
      return "\033[0m";
    case Style::kTitle:
      return "\033[0;7m";
    case Style::kLabel:
      return colours ? "\033[0;36m" : "\033[0m";
    case Style::kGood:
      return colours ? "\033[0;32m" : "\033[0m";
    case Style::kWarning:
      return colours ? "\033[0;33m" : "\033[0;1m";
    case Style::kBad:
      return colours ? "\033[0;1;31m" : "\033[0;1;7m";
    case Style::kFaint:
      return colours ? "\033[0;90m" : "\033[0m";
    case Style::kStrong:
      return "\033[0;1m";
  }
  return "\033[0m";
}

/// The same with ASCII alone, as far as that goes.
char32_t plainGlyph(char32_t glyph) {
  if (glyph < 0x80) return glyph;
  if (glyph == U'─') return U'-';
  if (glyph == U'│') return U'|';
  if (glyph == U'░' || glyph == U'·') return U'.';
  if (glyph >= 0x2500 && glyph <= 0x257f) return U'+';
  if (glyph >= 0x2580 && glyph <= 0x259f) return U'#';
  if (glyph >= 0x2800 && glyph <= 0x28ff) return glyph == 0x2800 ? U' ' : U'*';
  if (glyph == U'←') return U'<';
  if (glyph == U'→') return U'>';
  if (glyph == U'↑') return U'^';
  if (glyph == U'↓') return U'v';
  if (glyph >= 0x2190 && glyph <= 0x21ff) return U'@';
  if (glyph == U'…') return U'~';
  if (glyph == U'°') return U' ';
  return U'?';
}

bool contains(std::string text, std::string_view part) {
  std::transform(text.begin(), text.end(), text.begin(),
                 [](unsigned char letter) { return static_cast<char>(std::tolower(letter)); });
  return text.find(part) != std::string::npos;
}

std::string variable(const char* name) {
  const char* value = std::getenv(name);
  return value != nullptr ? value : "";
}

}  // namespace

Abilities Abilities::ofEnvironment() {
  std::string locale = variable("LC_ALL");
  if (locale.empty()) locale = variable("LC_CTYPE");
  if (locale.empty()) locale = variable("LANG");
  const std::string term = variable("TERM");
  return {.unicode = contains(locale, "utf-8") || contains(locale, "utf8"),
          .colours = variable("NO_COLOR").empty() && term.substr(0, 2) != "vt"};
}

std::string Screen::update(const Canvas& next) {
  std::string bytes;
  const bool whole = !shown_ || !(shown_->size() == next.size());
  if (whole) {
    bytes = "\033[0m\033[2J";
    style_ = Style::kPlain;
    shown_.emplace(next.size());
  }
  for (int row = 0; row < next.size().rows; ++row) {
    const auto differs = [&](int column) {
      return !(next.at(column, row) == shown_->at(column, row));
    };
    for (int column = 0; column < next.size().columns; ++column) {
      if (!differs(column)) continue;
      // A few unchanged cells cost less than another move of the cursor.
      int last = column;
      for (int ahead = column; ahead < next.size().columns && ahead - last <= 6; ++ahead) {
        if (differs(ahead)) last = ahead;
      }
      appendRun(bytes, next, row, column, last);
      column = last;
    }
  }
  shown_ = next;
  return bytes;
}

void Screen::appendRun(std::string& bytes, const Canvas& next, int row, int first, int last) {
  bytes += "\033[" + std::to_string(row + 1) + ";" + std::to_string(first + 1) + "H";
  for (int column = first; column <= last; ++column) {
    const Cell& cell = next.at(column, row);
    if (cell.style != style_) appendStyle(bytes, cell.style);
    appendUtf8(bytes, abilities_.unicode ? cell.glyph : plainGlyph(cell.glyph));
  }
}

void Screen::appendStyle(std::string& bytes, Style style) {
  bytes += attributes(style, abilities_.colours);
  style_ = style;
}

}  // namespace robotctl
