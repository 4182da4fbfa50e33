#include "shm/ShmFile.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <utility>

namespace Pexal::Memory {
namespace {

constexpr std::size_t kLongestName = 64;

std::string pathOf(const std::string& name) {
  return "/dev/shm/orvane." + name;
}
// '+' is in no name, so that nobody's object has such a file's name.
std::string draftOf(const std::string& name) {
  return pathOf(name) + "+draft";
}
std::string lockOf(const std::string& name) {
  return pathOf(name) + "+lock";
}

ShmFile openPath(const std::string& path, int flags, mode_t mode) {
  return ShmFile(::open(path.c_str(), flags | O_CLOEXEC | O_NOFOLLOW, mode));
}

bool allocate(const ShmFile& file, std::size_t size, mode_t mode) {
  // The creator's umask must not matter: readers check the mode.
  if (::fchmod(file.descriptor(), mode) != 0) return false;
  int failure = EINTR;
  while (failure == EINTR) {
    failure = ::posix_fallocate(file.descriptor(), 0, static_cast<off_t>(size));
  }
  errno = failure;
  return failure == 0;
}

bool isOwn(const struct stat& status) {
  return S_ISREG(status.st_mode) && (status.st_uid == ::geteuid() || status.st_uid == 0);
}

bool isTrusted(const ShmFile& file, mode_t mode) {
  struct stat status {};
  if (::fstat(file.descriptor(), &status) != 0) return false;
  errno = EPERM;
  return isOwn(status) && (status.st_mode & 07777) == mode;
}

/// Its mode doesn't matter, but who owns it could put another in its place.
bool isOwnLock(const ShmFile& file) {
  struct stat status {};
  if (::fstat(file.descriptor(), &status) != 0) return false;
  errno = EPERM;
  return isOwn(status);
}

}  // namespace

ShmFile& ShmFile::operator=(ShmFile&& other) noexcept {
  if (this != &other) {
    close();
    descriptor_ = other.release();
  }
  return *this;
}

bool ShmFile::isName(const std::string& name) {
  // Not isalnum, which goes by the locale.
  return name.size() <= kLongestName && std::all_of(name.begin(), name.end(), [](char c) {
           return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') ||
                  c == '_' || c == '-' || c == '.';
         });
}

ShmFile ShmFile::draft(const std::string& name, std::size_t size, mode_t mode) {
  const std::string path = draftOf(name);
  ::unlink(path.c_str());  // of a writer that died before it could give it its name
  ShmFile file = openPath(path, O_RDWR | O_CREAT | O_EXCL, mode);
  if (!file.isOpen() || allocate(file, size, mode)) return file;
  const int failure = errno;
  ::unlink(path.c_str());
  errno = failure;
  return {};
}

bool ShmFile::give(const std::string& name) {
  const std::string draft = draftOf(name);
  if (std::rename(draft.c_str(), pathOf(name).c_str()) == 0) return true;
  const int failure = errno;
  ::unlink(draft.c_str());
  errno = failure;
  return false;
}

ShmFile ShmFile::open(const std::string& name, bool writable, mode_t mode) {
  // Not blocked by what isn't a plain file.
  ShmFile file = openPath(pathOf(name), (writable ? O_RDWR : O_RDONLY) | O_NONBLOCK, 0);
  if (!file.isOpen() || isTrusted(file, mode)) return file;
  return {};
}

std::size_t ShmFile::size() const {
  struct stat status {};
  return ::fstat(descriptor_, &status) == 0 ? static_cast<std::size_t>(status.st_size) : 0;
}

void ShmFile::close() noexcept {
  const int kept = errno;
  if (descriptor_ >= 0) ::close(descriptor_);
  descriptor_ = -1;
  errno = kept;
}

int ShmFile::release() noexcept {
  return std::exchange(descriptor_, -1);
}

ShmIdentity ShmIdentity::of(const ShmFile& file) {
  struct stat status {};
  if (::fstat(file.descriptor(), &status) != 0) return {};
  return {status.st_dev, status.st_ino};
}

ShmIdentity ShmIdentity::of(const std::string& name) {
  struct stat status {};
  if (::lstat(pathOf(name).c_str(), &status) != 0) return {};
  return {status.st_dev, status.st_ino};
}

bool WriterLock::take(const std::string& name) {
  ShmFile file = openPath(lockOf(name), O_RDWR | O_CREAT | O_NONBLOCK, kOwnerOnly);
  if (!file.isOpen() || !isOwnLock(file)) return false;
  if (::flock(file.descriptor(), LOCK_EX | LOCK_NB) != 0) return false;
  file_ = std::move(file);
  return true;
}

}  // namespace Pexal::Memory
