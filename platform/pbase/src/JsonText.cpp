#include <exception>
#include <utility>

#include "JsonReader.h"
#include "JsonWriter.h"
#include "pbase/Utils.h"

namespace Pexal::Utils {

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
  constexpr std::size_t kUsualSize = 512;
  std::string text;
  text.reserve(kUsualSize);
  writeJson(value, compact, text);
  return text;
}

}  // namespace Pexal::Utils
