#include "record/ByteSource.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <system_error>

namespace robotctl {

bool MemorySource::read(std::uint64_t offset, std::span<std::uint8_t> out) {
  if (offset > bytes_.size() || out.size() > bytes_.size() - offset) return false;
  std::copy_n(bytes_.begin() + static_cast<std::ptrdiff_t>(offset), out.size(), out.begin());
  return true;
}

FileSource::FileSource(const std::string& path)
    : file_(::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK)) {
  struct stat facts {};
  int error = file_ < 0 || ::fstat(file_, &facts) != 0 ? errno : 0;
  if (error == 0 && !S_ISREG(facts.st_mode)) error = S_ISDIR(facts.st_mode) ? EISDIR : EINVAL;
  if (error != 0) {
    if (file_ >= 0) ::close(file_);
    throw std::system_error(error, std::generic_category(), "can't read " + path);
  }
  size_ = static_cast<std::uint64_t>(facts.st_size);
}

FileSource::~FileSource() {
  ::close(file_);
}

bool FileSource::read(std::uint64_t offset, std::span<std::uint8_t> out) {
  while (!out.empty()) {
    const ssize_t got = ::pread(file_, out.data(), out.size(), static_cast<off_t>(offset));
    if (got < 0 && errno == EINTR) continue;
    if (got <= 0) return false;
    offset += static_cast<std::uint64_t>(got);
    out = out.subspan(static_cast<std::size_t>(got));
  }
  return true;
}

}  // namespace robotctl
