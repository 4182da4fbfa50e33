#include "service/SafeFile.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <system_error>

namespace orvane::RobotSdk::service {
namespace {

class DescriptorCloser {
 public:
  explicit DescriptorCloser(int descriptor) noexcept : descriptor_(descriptor) {}
  ~DescriptorCloser() { ::close(descriptor_); }
  DescriptorCloser(const DescriptorCloser&) = delete;
  DescriptorCloser& operator=(const DescriptorCloser&) = delete;

 private:
  int descriptor_;
};

int writeAll(int descriptor, std::string_view text) noexcept {
  while (!text.empty()) {
    const ssize_t written = ::write(descriptor, text.data(), text.size());
    if (written < 0 && errno == EINTR) continue;
    if (written <= 0) return written < 0 ? errno : EIO;
    text.remove_prefix(static_cast<std::size_t>(written));
  }
  return 0;
}

}  // namespace

int openForWriting(const std::string& path) noexcept {
  // O_NONBLOCK: an open of a FIFO without a reader fails at once. A regular file ignores it.
  constexpr int kFlags = O_WRONLY | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK | O_NOCTTY;
  int descriptor = ::open(path.c_str(), kFlags);
  // O_CREAT only for what isn't there: with it many systems refuse even root a file that another
  // user left in /tmp (fs.protected_regular).
  if (descriptor < 0 && errno == ENOENT) {
    descriptor = ::open(path.c_str(), kFlags | O_CREAT, 0644);
  }
  if (descriptor < 0) return -errno;

  struct stat status {};
  const int error = ::fstat(descriptor, &status) != 0 ? errno
                    : S_ISREG(status.st_mode)         ? 0
                                                      : EINVAL;
  if (error == 0) return descriptor;
  ::close(descriptor);
  return -error;
}

int replaceFileContent(const std::string& path, std::string_view text) noexcept {
  const int descriptor = openForWriting(path);
  if (descriptor < 0) return -descriptor;
  const DescriptorCloser closer(descriptor);

  struct stat status {};
  if (::fstat(descriptor, &status) != 0) return errno;
  if (status.st_uid != ::geteuid()) return EPERM;
  if (status.st_nlink > 1) return EMLINK;
  if (::ftruncate(descriptor, 0) != 0) return errno;  // only now: it is ours to empty
  const int error = writeAll(descriptor, text);
  if (error != 0) ::unlink(path.c_str());  // half a file would mislead whoever reads it
  return error;
}

std::string errorText(int error) {
  return std::system_category().message(error);
}

}  // namespace orvane::RobotSdk::service
