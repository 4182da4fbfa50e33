#include "servers/Checks.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <utility>

namespace orvane::robot {
namespace {

constexpr std::size_t kLongestQuotedKey = 40;

std::string rangeText(const Range& range) {
  char text[64];
  std::snprintf(text, sizeof(text), "%g to %g", range.lower, range.upper);
  return text;
}

bool isText(const Json::Value& value, std::size_t longest) {
  const char* begin = nullptr;
  const char* end = nullptr;
  return value.getString(&begin, &end) && begin != end &&
         static_cast<std::size_t>(end - begin) <= longest;
}

std::string textOf(std::size_t longest) {
  return "a text of 1 to " + std::to_string(longest) + " bytes";
}

}  // namespace

ObjectReader::ObjectReader(const Json::Value& object, std::string name)
    : object_(object.isObject() ? object : Json::Value::nullSingleton()), name_(std::move(name)) {
  if (!object.isObject() && !object.isNull()) fail(Reason::kInvalid, "must be an object");
}

double ObjectReader::number(const char* key, const Range& range, std::optional<double> fallback) {
  const auto value = optionalNumber(key, range);
  if (!value && !fallback) fail(Reason::kInvalid, std::string(key) + " is missing");
  return value.value_or(fallback.value_or(range.initial));
}

std::optional<double> ObjectReader::optionalNumber(const char* key, const Range& range) {
  const Json::Value* value = find(key);
  if (value == nullptr) return std::nullopt;
  if (!value->isNumeric() || !std::isfinite(value->asDouble())) {
    fail(Reason::kInvalid, std::string(key) + " must be a finite number");
    return range.initial;
  }
  const double number = value->asDouble();
  // The public interface speaks float: 0.4f widened to double lies just above 0.4.
  const double slack = 1e-6 * std::max(std::abs(range.lower), std::abs(range.upper));
  if (number < range.lower - slack || number > range.upper + slack) {
    fail(Reason::kOutOfRange, std::string(key) + " must lie within " + rangeText(range));
    return range.initial;
  }
  return std::clamp(number, range.lower, range.upper);
}

std::optional<bool> ObjectReader::optionalBool(const char* key) {
  const Json::Value* value = find(key);
  if (value == nullptr) return std::nullopt;
  if (!value->isBool()) {
    fail(Reason::kInvalid, std::string(key) + " must be true or false");
    return false;
  }
  return value->asBool();
}

std::optional<std::uint32_t> ObjectReader::optionalUnsigned(const char* key) {
  const Json::Value* value = find(key);
  if (value == nullptr) return std::nullopt;
  if (!value->isUInt()) {
    fail(Reason::kInvalid, std::string(key) + " must be a whole number from 0 to 4294967295");
    return 0;
  }
  return value->asUInt();
}

std::uint64_t ObjectReader::unsigned64(const char* key) {
  const Json::Value* value = find(key);
  if (value == nullptr) {
    fail(Reason::kInvalid, std::string(key) + " is missing");
    return 0;
  }
  if (!value->isUInt64()) {
    fail(Reason::kInvalid, std::string(key) + " must be a whole number of 64 bits");
    return 0;
  }
  return value->asUInt64();
}

std::string ObjectReader::text(const char* key, std::size_t longest) {
  auto text = optionalText(key, longest);
  if (!text) fail(Reason::kInvalid, std::string(key) + " is missing");
  return std::move(text).value_or(std::string());
}

std::optional<std::string> ObjectReader::optionalText(const char* key, std::size_t longest) {
  const Json::Value* value = find(key);
  if (value == nullptr) return std::nullopt;
  if (!isText(*value, longest)) {
    fail(Reason::kInvalid, std::string(key) + " must be " + textOf(longest));
    return std::string();
  }
  return value->asString();
}

std::optional<std::vector<std::string>> ObjectReader::optionalTexts(const char* key,
                                                                    std::size_t most,
                                                                    std::size_t longest) {
  const Json::Value* value = find(key);
  if (value == nullptr) return std::nullopt;
  std::vector<std::string> texts;
  const bool fits = value->isArray() && value->size() <= most;
  if (!fits || !std::all_of(value->begin(), value->end(),
                            [&](const Json::Value& entry) { return isText(entry, longest); })) {
    fail(Reason::kInvalid, std::string(key) + " must be an array of at most " +
                               std::to_string(most) + ", each " + textOf(longest));
    return texts;
  }
  for (const Json::Value& entry : *value) texts.push_back(entry.asString());
  return texts;
}

const Json::Value& ObjectReader::object(const char* key) {
  const Json::Value* value = find(key);
  if (value == nullptr) return Json::Value::nullSingleton();
  if (value->isObject() || value->isNull()) return *value;
  fail(Reason::kInvalid, std::string(key) + " must be an object");
  return Json::Value::nullSingleton();
}

void ObjectReader::onlyKeys(std::initializer_list<std::string_view> keys) {
  for (auto member = object_.begin(); member != object_.end(); ++member) {
    const std::string key = member.name();
    if (std::find(keys.begin(), keys.end(), key) == keys.end()) {
      fail(Reason::kInvalid, "has no member " + key.substr(0, kLongestQuotedKey));
    }
  }
}

const Json::Value* ObjectReader::find(const char* key) {
  if (!object_.isObject()) return nullptr;
  return object_.find(key, key + std::char_traits<char>::length(key));
}

void ObjectReader::fail(Reason reason, const std::string& text) {
  if (!failure_) failure_ = Refusal{reason, name_ + ": " + text};
}

}  // namespace orvane::robot
