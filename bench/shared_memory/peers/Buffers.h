#pragma once

#include <array>
#include <atomic>
#include <cstddef>
#include <cstdint>
#include <thread>
#include <vector>

#include "harness/Role.h"
#include "pbase/CShmTripleBuffer.h"

namespace bench {

/// Writes a buffer again and again, every word of a record a function of its number. {"name",
/// "size": bytes, a multiple of 4; "intervalUs": 0 as fast as it goes}. "count": {"written"}.
class BufferWriter final : public Role {
 public:
  explicit BufferWriter(const Json::Value& arguments);
  ~BufferWriter() override;
  Json::Value handle(const Json::Value& command) override;

 private:
  void run(std::uint32_t size, std::int64_t intervalNs);

  Pexal::Memory::CShmTripleBuffer buffer_;
  std::atomic<std::uint64_t> written_{0};
  std::atomic<bool> ends_{false};
  std::thread thread_;
};

/// Copies a record again and again. {"do": "run", "count": batches, "batch": copies in each}:
/// {"ns": [...] per copy, one value of each batch}.
class CopyingRole : public Role {
 public:
  explicit CopyingRole(const Json::Value& arguments);
  Json::Value handle(const Json::Value& command) override;

 protected:
  static constexpr std::size_t kMostBytes = 1024;
  struct alignas(64) Room {
    std::array<std::byte, kMostBytes> bytes{};
  };

  /// Copies size_ bytes to room_ `times` times. False when one failed.
  virtual bool copy(std::uint32_t times) noexcept = 0;

  std::uint32_t size_;
  Room room_;
};

/// From a buffer. {"name", "size"}.
class BufferReader final : public CopyingRole {
 public:
  explicit BufferReader(const Json::Value& arguments);

 private:
  bool copy(std::uint32_t times) noexcept override;

  Pexal::Memory::CShmTripleBuffer buffer_;
};

/// memcpy from private memory that stays in the cache. {"size"}.
class PlainCopier final : public CopyingRole {
 public:
  using CopyingRole::CopyingRole;

 private:
  bool copy(std::uint32_t times) noexcept override;

  Room source_;
};

/// Reads what a BufferWriter writes and checks every word. {"name", "size"}. {"do": "check",
/// "count": reads}: {"torn", "busy": reads that the writer overtook, "older": records that came
/// after a newer one}.
class BufferChecker final : public Role {
 public:
  explicit BufferChecker(const Json::Value& arguments);
  Json::Value handle(const Json::Value& command) override;

 private:
  [[nodiscard]] bool isWhole(std::uint64_t number) const noexcept;

  Pexal::Memory::CShmTripleBuffer buffer_;
  std::vector<std::uint32_t> record_;
  std::uint64_t newest_ = 0;
};

}  // namespace bench
