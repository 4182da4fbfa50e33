#include "pbase/CConfigLoader.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <exception>
#include <utility>

#include "pbase/Utils.h"

namespace Pexal::Config {

namespace {

constexpr std::size_t kMaxFileBytes = 4U << 20;

class Descriptor {
 public:
  explicit Descriptor(int fd) : fd_(fd) {}
  ~Descriptor() {
    if (fd_ >= 0) ::close(fd_);
  }
  Descriptor(const Descriptor&) = delete;
  Descriptor& operator=(const Descriptor&) = delete;
  [[nodiscard]] int get() const { return fd_; }

 private:
  int fd_;
};

bool readAll(const std::string& path, std::string& text) {
  if (path.find('\0') != std::string::npos) return false;
  // Non-blocking, so that opening a FIFO without a writer doesn't hang; it is refused below.
  const Descriptor file(::open(path.c_str(), O_RDONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC));
  struct stat status {};
  if (file.get() < 0 || ::fstat(file.get(), &status) != 0 || !S_ISREG(status.st_mode)) return false;

  std::size_t filled = 0;
  text.resize(std::min<std::size_t>(static_cast<std::size_t>(status.st_size), kMaxFileBytes) + 1);
  while (filled <= kMaxFileBytes) {
    // The size that fstat tells isn't trusted: the file may grow, and /proc has files of size 0.
    if (filled == text.size()) text.resize(std::min(2 * filled + 4096, kMaxFileBytes + 1));
    const ssize_t got = ::read(file.get(), text.data() + filled, text.size() - filled);
    if (got == 0) {
      text.resize(filled);
      return true;
    }
    if (got < 0 && errno != EINTR) return false;
    if (got > 0) filled += static_cast<std::size_t>(got);
  }
  return false;
}

}  // namespace

CConfigLoader* CConfigLoader::instance() {
  static CConfigLoader theOne;
  return &theOne;
}

bool CConfigLoader::readFile(const std::string& path, std::string& out) noexcept {
  try {
    std::string text;
    if (!readAll(path, text)) return false;
    out = std::move(text);
    return true;
  } catch (const std::exception&) {  // no memory
    return false;
  }
}

bool CConfigLoader::loadConfig(const std::string& path, Json::Value& out) noexcept {
  std::string text;
  return readFile(path, text) && Utils::stringToJson(text, out);
}

}  // namespace Pexal::Config
