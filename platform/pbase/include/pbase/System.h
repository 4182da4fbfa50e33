#pragma once

#include <cstdint>
#include <string>

#include "pbase/Export.h"

namespace Pexal::PBase {

/// The calling thread's last reason code: set by every RPC call (0 when the server gave none), read
/// by whoever made the call. Starts at 0 on each thread.
[[nodiscard]] PEXAL_API std::uint32_t getLastErrno() noexcept;
PEXAL_API void setLastErrno(std::uint32_t code) noexcept;

/// The environment variable's value, or `fallback` when it is unset or empty.
[[nodiscard]] PEXAL_API std::string getEnvVariable(const char* name,
                                                   const std::string& fallback = {});

class PEXAL_API File {
 public:
  /// True when something exists at `path` (symbolic links are followed). False on any error.
  [[nodiscard]] static bool exist(const std::string& path) noexcept;
};

}  // namespace Pexal::PBase
