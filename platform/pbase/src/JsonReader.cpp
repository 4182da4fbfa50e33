#include "JsonReader.h"

#include <cstddef>
#include <cstdint>
#include <nlohmann/json.hpp>
#include <string>
#include <utility>
#include <vector>

namespace Pexal::Utils {

namespace {

/// Builds the jsoncpp value from what the parser reports. Returning false ends the parse, so
/// neither depth nor a repeated name costs more than the text up to there.
class ValueBuilder : public nlohmann::json_sax<nlohmann::json> {
 public:
  ValueBuilder(Json::Value& root, unsigned maxDepth) : root_(root), maxDepth_(maxDepth) {}

  bool null() override { return add(Json::Value()); }
  bool boolean(bool value) override { return add(Json::Value(value)); }
  bool number_integer(number_integer_t value) override {
    return add(Json::Value(Json::Int64{value}));
  }
  bool number_unsigned(number_unsigned_t value) override {
    // As jsoncpp's own reader: unsigned only where signed has no room (5 and 5U compare unequal).
    if (value > std::uint64_t{Json::Value::maxInt64}) return add(Json::Value(Json::UInt64{value}));
    return number_integer(static_cast<number_integer_t>(value));
  }
  bool number_float(number_float_t value, const string_t&) override {
    return add(Json::Value(value));
  }
  bool string(string_t& value) override { return add(Json::Value(value)); }
  bool binary(binary_t&) override { return false; }

  bool start_object(std::size_t) override { return open(Json::objectValue); }
  bool key(string_t& name) override {
    if (open_.back()->isMember(name)) return false;
    name_ = std::move(name);
    return true;
  }
  bool end_object() override { return close(); }
  bool start_array(std::size_t) override { return open(Json::arrayValue); }
  bool end_array() override { return close(); }

  bool parse_error(std::size_t, const std::string&, const nlohmann::detail::exception&) override {
    return false;
  }

 private:
  Json::Value& place(Json::Value value) {
    if (open_.empty()) return root_ = std::move(value);
    Json::Value& parent = *open_.back();
    if (parent.isArray()) return parent.append(std::move(value));
    return parent[name_] = std::move(value);
  }
  bool add(Json::Value value) {
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

  Json::Value& root_;
  const unsigned maxDepth_;
  std::vector<Json::Value*> open_;  // the containers around the place of the next value
  std::string name_;                // of the next value in an object
};

}  // namespace

bool readJson(std::string_view text, unsigned maxDepth, Json::Value& out) {
  // The parser takes a NUL byte for the end of the text; in JSON it has no place at all.
  if (text.find('\0') != std::string_view::npos) return false;
  ValueBuilder builder(out, maxDepth);
  return nlohmann::json::sax_parse(text.begin(), text.end(), &builder);
}

}  // namespace Pexal::Utils
