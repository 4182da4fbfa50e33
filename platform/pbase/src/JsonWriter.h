#pragma once

#include <json/value.h>

#include <string>

namespace Pexal::Utils {

/// Appends `value` as JSON text, whatever locale the application has set; what it looks like is
/// said at jsonToString.
void writeJson(const Json::Value& value, bool compact, std::string& out);

}  // namespace Pexal::Utils
