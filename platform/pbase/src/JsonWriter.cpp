#include "JsonWriter.h"

#include <json/writer.h>

#include <algorithm>
#include <array>
#include <charconv>
#include <cmath>
#include <string_view>
#include <utility>

namespace Pexal::Utils {

namespace {

class Writer {
 public:
  Writer(std::string& out, bool compact) : out_(out), compact_(compact) {}

  void print(const Json::Value& value) {
    switch (value.type()) {
      case Json::nullValue:
        out_ += "null";
        break;
      case Json::booleanValue:
        out_ += value.asBool() ? "true" : "false";
        break;
      case Json::intValue:
        number(value.asInt64());
        break;
      case Json::uintValue:
        number(value.asUInt64());
        break;
      case Json::realValue:
        real(value.asDouble());
        break;
      case Json::stringValue: {
        const char* begin = nullptr;
        const char* end = nullptr;
        value.getString(&begin, &end);
        string({begin, end});
        break;
      }
      case Json::arrayValue:
        container(value, '[', ']', [](const Json::Value::const_iterator&) {});
        break;
      case Json::objectValue:
        container(value, '{', '}', [this](const Json::Value::const_iterator& member) {
          const char* end = nullptr;
          const char* const begin = member.memberName(&end);
          string({begin, end});
          out_ += compact_ ? ":" : ": ";
        });
        break;
    }
  }

 private:
  template <class PrintName>
  void container(const Json::Value& value, char open, char close, const PrintName& printName) {
    out_ += open;
    ++depth_;
    bool empty = true;
    const auto end = value.end();
    for (auto child = value.begin(); child != end; ++child) {
      if (!std::exchange(empty, false)) out_ += ',';
      newLine();
      printName(child);
      print(*child);
    }
    --depth_;
    if (!empty) newLine();
    out_ += close;
  }

  void newLine() {
    if (compact_) return;
    out_ += '\n';
    out_.append(2 * depth_, ' ');
  }

  template <class Number, class... Form>
  std::string_view number(Number value, Form... form) {
    std::array<char, 32> digits;  // the longest real needs 24
    const char* const end =
        std::to_chars(digits.data(), digits.data() + digits.size(), value, form...).ptr;
    const auto size = static_cast<std::size_t>(end - digits.data());
    out_.append(digits.data(), size);
    return std::string_view(out_).substr(out_.size() - size);
  }

  /// As few digits as bring the same number back; always with a point or an exponent.
  void real(double value) {
    if (!std::isfinite(value)) {
      out_ += "null";
      return;
    }
    const double size = std::fabs(value);
    if (size != 0 && (size < 1e-4 || size >= 1e16)) {
      number(value, std::chars_format::scientific);
      return;
    }
    const std::string_view digits = number(value, std::chars_format::fixed);
    if (digits.find('.') == std::string_view::npos) out_ += ".0";
  }

  void string(std::string_view text) {
    const auto isPlain = [](char c) { return c >= ' ' && c <= '~' && c != '"' && c != '\\'; };
    if (std::ranges::all_of(text, isPlain)) {
      out_ += '"';
      out_ += text;
      out_ += '"';
      return;
    }
    // Never destroyed: threads still print while the process exits.
    static const auto& escaping = *new Json::StreamWriterBuilder();
    out_ += Json::writeString(escaping, Json::Value(text.data(), text.data() + text.size()));
  }

  std::string& out_;
  const bool compact_;
  std::size_t depth_ = 0;
};

}  // namespace

void writeJson(const Json::Value& value, bool compact, std::string& out) {
  Writer(out, compact).print(value);
}

}  // namespace Pexal::Utils
