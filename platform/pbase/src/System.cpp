#include "pbase/System.h"

#include <sys/stat.h>

#include <cstdlib>

namespace Pexal::PBase {

namespace {

constinit thread_local std::uint32_t lastErrno = 0;

}  // namespace

std::uint32_t getLastErrno() noexcept {
  return lastErrno;
}

void setLastErrno(std::uint32_t code) noexcept {
  lastErrno = code;
}

std::string getEnvVariable(const char* name, const std::string& fallback) {
  const char* const value = name != nullptr ? std::getenv(name) : nullptr;
  return value != nullptr && *value != '\0' ? value : fallback;
}

bool File::exist(const std::string& path) noexcept {
  struct stat status {};
  // A path with a NUL inside would be tested for its first part only.
  return path.find('\0') == std::string::npos && ::stat(path.c_str(), &status) == 0;
}

}  // namespace Pexal::PBase
