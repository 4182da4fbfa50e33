#pragma once

#include <optional>
#include <string>

#include "terminal/Canvas.h"

namespace robotctl {

/// What a terminal can show.
struct Abilities {
  bool unicode = true;  ///< else bars and boxes are drawn with ASCII
  bool colours = true;  ///< else bold and reverse only

  /// From the locale's environment variables, NO_COLOR and TERM.
  [[nodiscard]] static Abilities ofEnvironment();
};

/// Turns pictures into what to send to a terminal: of each picture only what has changed since the
/// one before. Knows no terminal itself.
class Screen {
 public:
  explicit Screen(Abilities abilities) : abilities_(abilities) {}

  /// The bytes that turn the last picture into `next`; "" when they are the same. The first one,
  /// and one of another size, is drawn whole.
  [[nodiscard]] std::string update(const Canvas& next);
  /// The terminal no longer shows the last picture.
  void forget() { shown_.reset(); }

 private:
  void appendRun(std::string& bytes, const Canvas& next, int row, int first, int last);
  void appendStyle(std::string& bytes, Style style);

  const Abilities abilities_;
  std::optional<Canvas> shown_;
  Style style_ = Style::kPlain;  // what the terminal writes in now
};

}  // namespace robotctl
