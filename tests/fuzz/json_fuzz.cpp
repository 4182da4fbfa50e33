// JSON text. A text is refused and changes nothing, or its value prints, in either style, as a text
// that reads back to the same value. Any bytes at all print as a text.

#include <algorithm>

#include "FuzzSupport.h"

namespace {

using Pexal::Utils::jsonToString;
using Pexal::Utils::stringToJson;

void checkPrinted(const Json::Value& value, bool compact) {
  const std::string printed = jsonToString(value, compact);
  fuzz::require(std::all_of(printed.begin(), printed.end(),
                            [](unsigned char c) { return c < 0x80 && (c >= ' ' || c == '\n'); }),
                "a printed value is plain ASCII", printed);
  fuzz::require(!compact || printed.find('\n') == std::string::npos, "a compact text is one line",
                printed);
  fuzz::require(printed.back() != '\n', "a printed value has no line end", printed);
  Json::Value again;
  fuzz::require(stringToJson(printed, again), "what was printed reads back", printed);
  fuzz::require(again == value, "what was printed reads back as it was", printed);
  fuzz::require(jsonToString(again, compact) == printed, "it prints the same again", printed);
}

/// An application can put any bytes into a text.
void checkAnyText(std::string_view bytes) {
  Json::Value value(Json::objectValue);
  value[std::string(bytes)] = Json::Value(bytes.data(), bytes.data() + bytes.size());
  const std::string printed = jsonToString(value);
  fuzz::require(fuzz::isJson(printed), "a text of any bytes prints as JSON", printed);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  checkAnyText(fuzz::textOf(data, size));
  const std::string untouched = "untouched by a text that is refused";
  Json::Value value = untouched;
  if (!stringToJson(fuzz::textOf(data, size), value)) {
    fuzz::require(value == Json::Value(untouched), "a refused text changes nothing");
    return 0;
  }
  checkPrinted(value, true);
  checkPrinted(value, false);
  return 0;
}
