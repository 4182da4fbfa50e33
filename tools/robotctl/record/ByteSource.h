#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <vector>

namespace robotctl {

/// Bytes that are read from anywhere: a file, or memory in tests.
class ByteSource {
 public:
  virtual ~ByteSource() = default;
  [[nodiscard]] virtual std::uint64_t size() const = 0;
  /// Fills `out` with what stands at `offset`; false when that many bytes aren't there.
  [[nodiscard]] virtual bool read(std::uint64_t offset, std::span<std::uint8_t> out) = 0;
};

class MemorySource final : public ByteSource {
 public:
  /// The bytes must outlive this.
  explicit MemorySource(std::span<const std::uint8_t> bytes) : bytes_(bytes) {}
  [[nodiscard]] std::uint64_t size() const override { return bytes_.size(); }
  [[nodiscard]] bool read(std::uint64_t offset, std::span<std::uint8_t> out) override;

 private:
  const std::span<const std::uint8_t> bytes_;
};

/// A file as long as it was when it was opened; it may grow meanwhile. Throws std::system_error
/// when it can't be opened.
class FileSource final : public ByteSource {
 public:
  explicit FileSource(const std::string& path);
  ~FileSource() override;
  FileSource(const FileSource&) = delete;
  FileSource& operator=(const FileSource&) = delete;
  [[nodiscard]] std::uint64_t size() const override { return size_; }
  [[nodiscard]] bool read(std::uint64_t offset, std::span<std::uint8_t> out) override;

 private:
  int file_;
  std::uint64_t size_ = 0;
};

}  // namespace robotctl
