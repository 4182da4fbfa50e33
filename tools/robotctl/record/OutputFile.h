#pragma once

#include <cstdint>
#include <span>
#include <string>

namespace robotctl {

/// A regular file that is written from its beginning to its end. Used by one thread at a time.
/// Operations throw std::system_error; the destructor closes without a word.
class OutputFile {
 public:
  enum class Existing { kRefuse, kReplace };

  /// Makes the file; another recording that is writing the same one is an error in either case.
  OutputFile(const std::string& path, Existing existing);
  ~OutputFile();
  OutputFile(const OutputFile&) = delete;
  OutputFile& operator=(const OutputFile&) = delete;

  /// Appends all of it, or, when that fails (disk full), nothing.
  void append(std::span<const std::uint8_t> bytes);
  /// Has the system put everything on the disk, and closes.
  void close();

  [[nodiscard]] std::uint64_t size() const { return size_; }

 private:
  [[noreturn]] void fail(int error, const char* operation) const;

  const std::string path_;
  int file_ = -1;
  std::uint64_t size_ = 0;
};

}  // namespace robotctl
