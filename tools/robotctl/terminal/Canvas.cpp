#include "terminal/Canvas.h"

#include <algorithm>
#include <array>

namespace robotctl {
namespace {

struct GlyphRange {
  char32_t first, last;
};
/// One column wide everywhere: Latin, Greek, Cyrillic, punctuation, arrows, boxes, blocks, Braille.
constexpr std::array<GlyphRange, 10> kNarrow{{{0x20, 0x7e},
                                              {0xa1, 0xac},
                                              {0xae, 0x2ff},
                                              {0x370, 0x377},
                                              {0x384, 0x482},
                                              {0x48a, 0x52f},
                                              {0x2010, 0x2027},
                                              {0x2190, 0x21ff},
                                              {0x2500, 0x25ff},
                                              {0x2800, 0x28ff}}};

char32_t harmless(char32_t glyph) {
  const bool narrow = std::any_of(kNarrow.begin(), kNarrow.end(), [&](const GlyphRange& range) {
    return glyph >= range.first && glyph <= range.last;
  });
  return narrow ? glyph : U'?';
}

}  // namespace

std::u32string decoded(std::string_view text) {
  std::u32string glyphs;
  for (std::size_t i = 0; i < text.size();) {
    const auto lead = static_cast<unsigned char>(text[i++]);
    const int more = lead < 0x80                   ? 0
                     : lead >= 0xc2 && lead < 0xe0 ? 1
                     : lead >= 0xe0 && lead < 0xf0 ? 2
                     : lead >= 0xf0 && lead < 0xf5 ? 3
                                                   : -1;
    if (more < 0) {
      glyphs += U'?';
      continue;
    }
    char32_t glyph = more == 0 ? lead : lead & (0x3fu >> more);
    int read = 0;
    for (; read < more && i < text.size(); ++read, ++i) {
      const auto next = static_cast<unsigned char>(text[i]);
      if ((next & 0xc0) != 0x80) break;
      glyph = (glyph << 6) | (next & 0x3fu);
    }
    glyphs += read == more ? glyph : U'?';
  }
  return glyphs;
}

void appendUtf8(std::string& text, char32_t glyph) {
  const auto add = [&](char32_t byte) { text += static_cast<char>(byte); };
  if (glyph < 0x80) {
    add(glyph);
  } else if (glyph < 0x800) {
    add(0xc0 | (glyph >> 6));
    add(0x80 | (glyph & 0x3f));
  } else {
    add(0xe0 | ((glyph >> 12) & 0xf));
    add(0x80 | ((glyph >> 6) & 0x3f));
    add(0x80 | (glyph & 0x3f));
  }
}

Canvas::Canvas(Size size)
    : size_{std::clamp(size.columns, 1, 1000), std::clamp(size.rows, 1, 1000)},
      cells_(static_cast<std::size_t>(size_.columns) * static_cast<std::size_t>(size_.rows)) {}

const Cell& Canvas::at(int column, int row) const {
  return cells_.at(static_cast<std::size_t>(row) * static_cast<std::size_t>(size_.columns) +
                   static_cast<std::size_t>(column));
}

void Canvas::put(int column, int row, char32_t glyph, Style style) {
  if (column < 0 || column >= size_.columns || row < 0 || row >= size_.rows) return;
  cells_[static_cast<std::size_t>(row) * static_cast<std::size_t>(size_.columns) +
         static_cast<std::size_t>(column)] = {harmless(glyph), style};
}

int Canvas::text(int column, int row, std::string_view text, Style style) {
  for (const char32_t glyph : decoded(text)) put(column++, row, glyph, style);
  return column;
}

int Canvas::text(int column, int row, int width, std::string_view text, Style style) {
  std::u32string glyphs = decoded(text);
  if (width <= 0) return column;
  if (glyphs.size() > static_cast<std::size_t>(width)) {
    glyphs.resize(static_cast<std::size_t>(width));
    glyphs.back() = U'…';
  }
  for (const char32_t glyph : glyphs) put(column++, row, glyph, style);
  return column;
}

void Canvas::band(int row, Style style) {
  for (int column = 0; column < size_.columns; ++column) put(column, row, U' ', style);
}

std::vector<std::string> Canvas::lines() const {
  std::vector<std::string> lines;
  for (int row = 0; row < size_.rows; ++row) {
    std::string line;
    for (int column = 0; column < size_.columns; ++column) {
      appendUtf8(line, at(column, row).glyph);
    }
    line.erase(line.find_last_not_of(' ') + 1);
    lines.push_back(std::move(line));
  }
  return lines;
}

}  // namespace robotctl
