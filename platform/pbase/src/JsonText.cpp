#include <json/writer.h>

#include <cmath>
#include <exception>
#include <utility>

#include "JsonReader.h"
#include "pbase/Utils.h"

namespace Pexal::Utils {

namespace {

Json::StreamWriterBuilder writer(bool compact) {
  Json::StreamWriterBuilder builder;
  builder["commentStyle"] = "None";
  builder["indentation"] = compact ? "" : "  ";
  builder["precision"] = 17;  // every double comes back as it was
  return builder;
}

bool isUnprintable(const Json::Value& value) {
  return value.type() == Json::realValue && !std::isfinite(value.asDouble());
}

bool holdsUnprintable(const Json::Value& value) {
  if (isUnprintable(value)) return true;
  for (const auto& child : value) {
    if (holdsUnprintable(child)) return true;
  }
  return false;
}

void nullUnprintable(Json::Value& value) {
  if (isUnprintable(value)) value = Json::Value();
  for (auto& child : value) nullUnprintable(child);
}

}  // namespace

bool stringToJson(std::string_view text, Json::Value& out) noexcept {
  if (text.size() > kMaxJsonBytes) return false;
  try {
    Json::Value value;
    if (!readJson(text, kMaxJsonDepth, value)) return false;
    out = std::move(value);
    return true;
  } catch (const std::exception&) {  // no memory
    return false;
  }
}

std::string jsonToString(const Json::Value& value, bool compact) {
  // Never destroyed: threads still print while the process exits.
  static const auto& indented = *new Json::StreamWriterBuilder(writer(false));
  static const auto& packed = *new Json::StreamWriterBuilder(writer(true));
  const auto& style = compact ? packed : indented;
  if (!holdsUnprintable(value)) return Json::writeString(style, value);
  Json::Value mended = value;
  nullUnprintable(mended);
  return Json::writeString(style, mended);
}

}  // namespace Pexal::Utils
