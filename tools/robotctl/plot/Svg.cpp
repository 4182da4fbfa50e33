#include "plot/Svg.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <utility>

namespace robotctl {
namespace {

// Greys and colours that are legible on white and on near black alike; the colours can be told
// apart by people who see few of them (blue, vermilion, green, purple).
constexpr const char* kStyle = R"(<style>
text{font:12px system-ui,-apple-system,"Segoe UI","DejaVu Sans",sans-serif;fill:#767676}
.h1{font-size:20px;font-weight:600}.h2{font-size:15px;font-weight:600}.h3{font-weight:600}
.small{font-size:11px}.on{fill:#fff;font-size:11px;font-weight:600}
.grid{stroke:#808080;stroke-opacity:.22}.axis{stroke:#808080;stroke-opacity:.6;fill:none}
.curve{fill:none;stroke-width:1.3;stroke-opacity:.9;stroke-linejoin:round;stroke-linecap:round}
.c0{stroke:#0072b2}.c1{stroke:#d55e00}.c2{stroke:#009e73}.c3{stroke:#b8608f}.c4{stroke:#767676}.c5{stroke:#6f6ab8}.c6{stroke:#9a6b3f}
.f0{fill:#0072b2}.f1{fill:#d55e00}.f2{fill:#009e73}.f3{fill:#b8608f}.f4{fill:#767676}.f5{fill:#6f6ab8}.f6{fill:#9a6b3f}
.none{fill:#808080;fill-opacity:.18}.gone{fill:#808080;fill-opacity:.45}
.tick{stroke:#767676;stroke-width:1.5}
</style>
)";

/// Bytes of the UTF-8 character at the beginning; 0 when there is none that XML can have.
std::size_t characterLength(std::string_view text) {
  const auto first = static_cast<unsigned char>(text[0]);
  if (first < 0x80) return first >= 0x20 && first != 0x7F ? 1 : 0;
  const std::size_t length = first >= 0xF0 ? 4 : first >= 0xE0 ? 3 : 2;
  if (first < 0xC2 || first > 0xF4 || text.size() < length) return 0;
  std::uint32_t code = first & (0x7FU >> length);
  for (std::size_t at = 1; at < length; ++at) {
    const auto next = static_cast<unsigned char>(text[at]);
    if ((next & 0xC0U) != 0x80) return 0;
    code = code << 6 | (next & 0x3FU);
  }
  constexpr std::array<std::uint32_t, 5> kLeast = {0, 0, 0x80, 0x800, 0x10000};
  const bool surrogate = code >= 0xD800 && code < 0xE000;
  if (code < kLeast[length] || surrogate || code > 0x10FFFF || (code & 0xFFFEU) == 0xFFFE) return 0;
  return length;
}

std::string attribute(std::string_view name, std::string_view value) {
  if (value.empty()) return {};
  return " " + std::string(name) + "=\"" + std::string(value) + "\"";
}

std::string attribute(std::string_view name, double value) {
  return attribute(name, svgNumber(value));
}

std::string tooltipOf(std::string_view tooltip) {
  return "><title>" + svgText(tooltip) + "</title></";
}

}  // namespace

std::string svgNumber(double value) {
  if (!std::isfinite(value)) return "0";
  const auto tenths = std::llround(std::clamp(value, -1e6, 1e6) * 10);
  std::string text = (tenths < 0 ? "-" : "") + std::to_string(std::llabs(tenths) / 10);
  if (tenths % 10 != 0) text += '.' + std::to_string(std::llabs(tenths) % 10);
  return text;
}

std::string svgText(std::string_view text) {
  std::string escaped;
  while (!text.empty()) {
    const std::size_t length = characterLength(text);
    const char first = text[0];
    if (length == 0) {
      escaped += '?';
    } else if (first == '<' || first == '>' || first == '&' || first == '"') {
      escaped += first == '<' ? "&lt;" : first == '>' ? "&gt;" : first == '&' ? "&amp;" : "&quot;";
    } else {
      escaped += text.substr(0, length);
    }
    text.remove_prefix(std::max<std::size_t>(length, 1));
  }
  return escaped;
}

Svg::Svg(double width, double height, std::string_view title, std::string_view description) {
  text_ = R"(<?xml version="1.0" encoding="UTF-8"?>)"
          "\n"
          R"(<svg xmlns="http://www.w3.org/2000/svg" role="img")";
  text_ += attribute("width", width) + attribute("height", height) +
           attribute("viewBox", "0 0 " + svgNumber(width) + " " + svgNumber(height)) +
           ">\n<title>" + svgText(title) + "</title>\n<desc>" + svgText(description) + "</desc>\n" +
           kStyle;
}

void Svg::text(double x, double y, std::string_view text, std::string_view anchor,
               std::string_view style) {
  text_ += "<text" + attribute("x", x) + attribute("y", y) +
           attribute("text-anchor", anchor == "start" ? "" : anchor) + attribute("class", style) +
           ">" + svgText(text) + "</text>\n";
}

void Svg::uprightText(double x, double y, std::string_view text) {
  const std::string at = svgNumber(x) + " " + svgNumber(y);
  text_ += "<text" + attribute("transform", "translate(" + at + ") rotate(-90)") +
           attribute("text-anchor", "middle") + ">" + svgText(text) + "</text>\n";
}

void Svg::line(double x1, double y1, double x2, double y2, std::string_view style) {
  text_ += "<line" + attribute("x1", x1) + attribute("y1", y1) + attribute("x2", x2) +
           attribute("y2", y2) + attribute("class", style) + "/>\n";
}

void Svg::rectangle(const Box& box, std::string_view style, std::string_view tooltip) {
  text_ += "<rect" + attribute("x", box.x) + attribute("y", box.y) + attribute("width", box.width) +
           attribute("height", box.height) + attribute("class", style);
  text_ += tooltip.empty() ? "/>\n" : tooltipOf(tooltip) + "rect>\n";
}

void Svg::circle(double x, double y, double radius, std::string_view style,
                 std::string_view tooltip) {
  text_ += "<circle" + attribute("cx", x) + attribute("cy", y) + attribute("r", radius) +
           attribute("class", style) + tooltipOf(tooltip) + "circle>\n";
}

void Svg::path(std::string_view data, std::string_view style, std::string_view tooltip) {
  text_ +=
      "<path" + attribute("class", style) + attribute("d", data) + tooltipOf(tooltip) + "path>\n";
}

void Svg::beginClip(const Box& box) {
  const std::string name = "clip" + std::to_string(clips_++);
  text_ += "<clipPath" + attribute("id", name) + ">";
  rectangle(box, "");
  text_ += "</clipPath>\n<g" + attribute("clip-path", "url(#" + name + ")") + ">\n";
}

void Svg::endClip() {
  endGroup();
}

void Svg::beginGroup(std::string_view style) {
  text_ += "<g" + attribute("class", style) + ">\n";
}

void Svg::endGroup() {
  text_ += "</g>\n";
}

std::string Svg::finish() && {
  text_ += "</svg>\n";
  return std::move(text_);
}

void SvgPath::moveTo(double x, double y) {
  flushLevel();
  put('M', x, y);
}

void SvgPath::lineTo(double x, double y) {
  const std::string textY = svgNumber(y);
  if (textY == lastY_) {
    levelX_ = svgNumber(x);
    return;
  }
  flushLevel();
  put('L', x, y);
}

void SvgPath::flushLevel() {
  if (levelX_.empty()) return;
  data_ += 'H' + std::exchange(levelX_, {});
}

void SvgPath::put(char command, double x, double y) {
  lastY_ = svgNumber(y);
  data_ += command + svgNumber(x) + ' ' + lastY_;
}

std::string SvgPath::finish() && {
  flushLevel();
  return std::move(data_);
}

}  // namespace robotctl
