#include "net/Result.h"

#include <cerrno>
#include <cstring>

namespace NFramework {

std::string Error::text() const {
  const char* described = reason != nullptr ? reason : ::strerrordesc_np(code);
  if (described == nullptr) described = "unknown error";
  return std::string("can't ") + attempted + ": " + described + " (" + std::to_string(code) + ")";
}

Error systemError(const char* attempted) noexcept {
  return {errno, attempted};
}

}  // namespace NFramework
