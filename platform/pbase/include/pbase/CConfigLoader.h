#pragma once

#include <json/value.h>

#include <string>

#include "pbase/Export.h"

namespace Pexal::Config {

/// Loads configuration files. Any thread; blocks for the file system only; nothing throws.
class PEXAL_API CConfigLoader {
 public:
  static CConfigLoader* instance();

  /// Reads a JSON document of at most 4 MiB. False, with `out` unchanged, when the file can't be
  /// read, isn't a regular file, is larger, or isn't JSON.
  [[nodiscard]] bool loadConfig(const std::string& path, Json::Value& out) noexcept;
  /// Reads a text file whole (at most 4 MiB) into `out`. False, with `out` unchanged, on any error.
  [[nodiscard]] static bool readFile(const std::string& path, std::string& out) noexcept;
};

}  // namespace Pexal::Config
