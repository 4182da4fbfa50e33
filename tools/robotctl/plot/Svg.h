#pragma once

#include <string>
#include <string_view>

namespace robotctl {

struct Box {
  double x = 0;
  double y = 0;
  double width = 0;
  double height = 0;
  [[nodiscard]] double right() const { return x + width; }
  [[nodiscard]] double bottom() const { return y + height; }
};

/// A number as SVG has it: at most one decimal, no trailing zero.
[[nodiscard]] std::string svgNumber(double value);
/// Text that may stand in XML: its characters escaped, those that XML has no form for replaced.
/// `text` may be any bytes.
[[nodiscard]] std::string svgText(std::string_view text);

/// An SVG picture that is appended to, piece by piece. Lengths are pixels. Colours and strokes come
/// from the classes of its style sheet, which suits light and dark backgrounds.
class Svg {
 public:
  Svg(double width, double height, std::string_view title, std::string_view description);

  /// `anchor`: "start", "middle" or "end".
  void text(double x, double y, std::string_view text, std::string_view anchor = "start",
            std::string_view style = "");
  /// Turned by a quarter to the left, its middle at (x, y).
  void uprightText(double x, double y, std::string_view text);
  void line(double x1, double y1, double x2, double y2, std::string_view style);
  void rectangle(const Box& box, std::string_view style, std::string_view tooltip = "");
  void circle(double x, double y, double radius, std::string_view style,
              std::string_view tooltip = "");
  /// `data`: the path's commands.
  void path(std::string_view data, std::string_view style, std::string_view tooltip);
  /// What is drawn until `endClip` is cut off at the box.
  void beginClip(const Box& box);
  void endClip();
  void beginGroup(std::string_view style);
  void endGroup();

  /// The whole document.
  [[nodiscard]] std::string finish() &&;

 private:
  std::string text_;
  unsigned clips_ = 0;
};

/// The path of a line through points, in whole tenths of a pixel. Points on a straight level line
/// are left out.
class SvgPath {
 public:
  void moveTo(double x, double y);
  void lineTo(double x, double y);
  [[nodiscard]] std::string finish() &&;

 private:
  void flushLevel();
  void put(char command, double x, double y);

  std::string data_;
  std::string lastY_;
  std::string levelX_;  // where a level line has got to; "": nowhere
};

}  // namespace robotctl
