#pragma once

#include <sys/types.h>

#include <cstddef>
#include <string>

namespace Pexal::Memory {

/// What a shared object must be to be trusted: made by this user or root, with exactly this mode.
constexpr mode_t kReadableByAll = 0644;
constexpr mode_t kOwnerOnly = 0600;

/// An open descriptor of a file under /dev/shm. Functions that fail return an empty one and leave
/// the reason in errno.
class ShmFile {
 public:
  ShmFile() = default;
  explicit ShmFile(int descriptor) : descriptor_(descriptor) {}
  ~ShmFile() { close(); }
  ShmFile(ShmFile&& other) noexcept : descriptor_(other.release()) {}
  ShmFile& operator=(ShmFile&& other) noexcept;

  /// Letters, digits, '_', '-' and '.', up to 64 (not "." or "..", which the prefix of the file
  /// name rules out).
  [[nodiscard]] static bool isName(const std::string& name);

  /// A new object of `size` zeroed bytes whose memory is there (a full /dev/shm is an error here,
  /// not a fault later). It has a draft's name until give() gives it its own: who opens an object
  /// by name always finds a finished one. Only the holder of the name's WriterLock may call this.
  [[nodiscard]] static ShmFile draft(const std::string& name, std::size_t size, mode_t mode);
  /// Gives the draft its name; the former object of the name lives on in those who have it. On
  /// failure the draft is gone.
  [[nodiscard]] static bool give(const std::string& name);

  /// Opens what has the name; EPERM when it isn't a plain file of this user or root with `mode`.
  [[nodiscard]] static ShmFile open(const std::string& name, bool writable, mode_t mode);

  [[nodiscard]] bool isOpen() const { return descriptor_ >= 0; }
  [[nodiscard]] int descriptor() const { return descriptor_; }
  /// In bytes; 0 when the system can't tell.
  [[nodiscard]] std::size_t size() const;

  void close() noexcept;

 private:
  int release() noexcept;

  int descriptor_ = -1;
};

/// Which file something is, even when its name has gone to another.
struct ShmIdentity {
  dev_t device = 0;
  ino_t inode = 0;
  bool operator==(const ShmIdentity&) const = default;

  [[nodiscard]] static ShmIdentity of(const ShmFile& file);
  /// Of what has the name now; an empty one when nothing has.
  [[nodiscard]] static ShmIdentity of(const std::string& name);
};

/// Makes its holder the one writer under a name, until it, or its process, ends (a forked child
/// that goes on without exec holds it too). The lock's file stays: were it removed, two could hold
/// locks on two files of one name.
class WriterLock {
 public:
  /// False, with errno: EWOULDBLOCK when another writer lives, EPERM or EACCES when the lock's file
  /// is another user's.
  [[nodiscard]] bool take(const std::string& name);
  [[nodiscard]] bool isHeld() const { return file_.isOpen(); }
  void release() noexcept { file_.close(); }

 private:
  ShmFile file_;
};

}  // namespace Pexal::Memory
