#include "record/OutputFile.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <system_error>

namespace robotctl {

OutputFile::OutputFile(const std::string& path, Existing existing) : path_(path) {
  const int creation = existing == Existing::kRefuse ? O_CREAT | O_EXCL : O_CREAT;
  // O_NONBLOCK: opening a pipe that nobody reads would wait for ever.
  file_ = ::open(path.c_str(), O_WRONLY | O_CLOEXEC | O_NONBLOCK | creation, 0644);
  if (file_ < 0) fail(errno, "can't make ");
  struct stat facts {};
  int error = 0;
  if (::fstat(file_, &facts) != 0) {
    error = errno;
  } else if (!S_ISREG(facts.st_mode)) {
    error = EINVAL;
  } else if (::flock(file_, LOCK_EX | LOCK_NB) != 0) {
    error = errno == EWOULDBLOCK ? EBUSY : errno;  // "busy": another process is writing it
  } else if (::ftruncate(file_, 0) != 0) {
    error = errno;
  }
  if (error == 0) return;
  ::close(file_);
  file_ = -1;
  fail(error, error == EINVAL ? "this is no file to record into: " : "can't write ");
}

OutputFile::~OutputFile() {
  if (file_ >= 0) ::close(file_);
}

void OutputFile::append(std::span<const std::uint8_t> bytes) {
  while (!bytes.empty()) {
    const ssize_t written = ::write(file_, bytes.data(), bytes.size());
    if (written > 0) {
      bytes = bytes.subspan(static_cast<std::size_t>(written));
      continue;
    }
    const int error = written == 0 ? EIO : errno;
    if (error == EINTR) continue;
    // Half a record at the end would only confuse; when it can't be cut off readers cope with it.
    const auto end = static_cast<off_t>(size_);
    if (::ftruncate(file_, end) == 0) static_cast<void>(::lseek(file_, end, SEEK_SET));
    fail(error, "can't write ");
  }
  size_ = static_cast<std::uint64_t>(::lseek(file_, 0, SEEK_CUR));
}

void OutputFile::close() {
  if (file_ < 0) return;
  const int synced = ::fsync(file_) == 0 ? 0 : errno;
  const int closed = ::close(file_) == 0 ? 0 : errno;
  file_ = -1;
  if (synced != 0 || closed != 0) fail(synced != 0 ? synced : closed, "can't write ");
}

void OutputFile::fail(int error, const char* operation) const {
  throw std::system_error(error, std::generic_category(), operation + path_);
}

}  // namespace robotctl
