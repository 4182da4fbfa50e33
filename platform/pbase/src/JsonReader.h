#pragma once

#include <json/value.h>

#include <string_view>

namespace Pexal::Utils {

/// Reads JSON text (RFC 8259, valid UTF-8) into a jsoncpp value, whatever locale the application
/// has set. False when the text as a whole isn't one JSON value, holds a name twice in one object,
/// a number beyond a double (or written with an exponent beyond a double's), or nests deeper than
/// `maxDepth`; `out` is then half done. Throws std::bad_alloc only.
[[nodiscard]] bool readJson(std::string_view text, unsigned maxDepth, Json::Value& out);

}  // namespace Pexal::Utils
