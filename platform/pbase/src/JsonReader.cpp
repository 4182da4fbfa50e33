#include "JsonReader.h"

#include <rapidjson/memorystream.h>
#include <rapidjson/reader.h>

#include <charconv>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <optional>
#include <system_error>
#include <utility>
#include <vector>

namespace Pexal::Utils {

namespace {

using rapidjson::SizeType;

/// Numbers come as text: what RapidJSON 1.1 makes of them itself is off by a bit now and then, and
/// it aborts on some that are beyond a double.
constexpr unsigned kFlags = rapidjson::kParseIterativeFlag | rapidjson::kParseValidateEncodingFlag |
                            rapidjson::kParseNumbersAsStringsFlag;

template <class Number>
std::errc readNumber(std::string_view text, Number& out) {
  const char* const end = text.data() + text.size();
  const auto [last, error] = std::from_chars(text.data(), end, out);
  if (error == std::errc() && last != end) return std::errc::invalid_argument;
  return error;
}

/// Nothing when it is beyond a double; what is too small for one is 0.
std::optional<double> readReal(std::string_view text) {
  double value = 0;
  if (readNumber(text, value) == std::errc()) return value;
  long double wide = 0;
  static_cast<void>(readNumber(text, wide));
  if (std::fabs(wide) > 1) return std::nullopt;
  return text.front() == '-' ? -0.0 : 0.0;
}

/// The one flaw in UTF-8 that RapidJSON lets pass: the lone low surrogate of an escape.
bool holdsSurrogate(const char* text, const char* end) {
  constexpr unsigned char kLead = 0xED;
  constexpr unsigned char kFirstOfSurrogates = 0xA0;
  while (text != end) {
    text = static_cast<const char*>(std::memchr(text, kLead, static_cast<std::size_t>(end - text)));
    if (text == nullptr) return false;
    if (++text != end && static_cast<unsigned char>(*text) >= kFirstOfSurrogates) return true;
  }
  return false;
}

/// Builds the jsoncpp value from what the parser reports. Returning false ends the parse, so
/// neither depth nor a repeated name costs more than the text up to there.
class ValueBuilder {
 public:
  ValueBuilder(Json::Value& root, unsigned maxDepth) : maxDepth_(maxDepth), place_(&root) {
    open_.reserve(maxDepth);
  }

  bool Null() { return put(Json::Value()); }
  bool Bool(bool value) { return put(Json::Value(value)); }
  bool RawNumber(const char* digits, SizeType length, bool) {
    const std::string_view text(digits, length);
    // As jsoncpp's own reader: unsigned only where signed has no room (5 and 5U compare unequal).
    Json::Int64 whole = 0;
    const std::errc verdict = readNumber(text, whole);
    if (verdict == std::errc()) return put(Json::Value(whole));
    Json::UInt64 large = 0;
    if (verdict == std::errc::result_out_of_range && readNumber(text, large) == std::errc()) {
      return put(Json::Value(large));
    }
    const std::optional<double> real = readReal(text);
    return real && put(Json::Value(*real));
  }
  bool String(const char* text, SizeType length, bool) {
    return !holdsSurrogate(text, text + length) && put(Json::Value(text, text + length));
  }

  bool StartObject() { return open(Json::objectValue); }
  bool Key(const char* name, SizeType length, bool) {
    if (holdsSurrogate(name, name + length)) return false;
    Json::Value& object = *open_.back();
    const Json::ArrayIndex before = object.size();
    place_ = object.demand(name, name + length);
    return object.size() > before;
  }
  bool EndObject(SizeType) { return close(); }
  bool StartArray() { return open(Json::arrayValue); }
  bool EndArray(SizeType) { return close(); }

  // Not called with these flags, but they have to be there.
  bool Int(int) { return false; }
  bool Uint(unsigned) { return false; }
  bool Int64(std::int64_t) { return false; }
  bool Uint64(std::uint64_t) { return false; }
  bool Double(double) { return false; }

 private:
  Json::Value& place(Json::Value&& value) {
    if (!open_.empty() && open_.back()->isArray()) return open_.back()->append(std::move(value));
    return *place_ = std::move(value);
  }
  bool put(Json::Value&& value) {
    place(std::move(value));
    return true;
  }
  bool open(Json::ValueType type) {
    if (open_.size() >= maxDepth_) return false;
    open_.push_back(&place(Json::Value(type)));
    return true;
  }
  bool close() {
    open_.pop_back();
    return true;
  }

  const unsigned maxDepth_;
  std::vector<Json::Value*> open_;  // the containers around the place of the next value
  Json::Value* place_;              // of the next value, unless that goes into an array
};

}  // namespace

bool readJson(std::string_view text, unsigned maxDepth, Json::Value& out) {
  constexpr std::string_view kByteOrderMark = "\xEF\xBB\xBF";
  if (text.starts_with(kByteOrderMark)) text.remove_prefix(kByteOrderMark.size());
  // The parser takes a NUL byte for the end of the text; in JSON it has no place at all.
  if (text.find('\0') != std::string_view::npos) return false;
  ValueBuilder builder(out, maxDepth);
  rapidjson::MemoryStream stream(text.data(), text.size());
  rapidjson::Reader reader;
  return !reader.Parse<kFlags>(stream, builder).IsError();
}

}  // namespace Pexal::Utils
