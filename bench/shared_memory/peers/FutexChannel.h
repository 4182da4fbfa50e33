#pragma once

#include <array>
#include <atomic>
#include <cstdint>
#include <thread>

#include "shared_memory/peers/Channel.h"

namespace bench {

/// Memory that two processes share, and a futex in it: what a message costs at least when its
/// reader sleeps. Nothing is checked: a reader that falls behind by more than the ring reads what
/// isn't meant for it.
struct FutexPage {
  struct alignas(64) Place {
    Message message;
  };
  alignas(64) std::atomic<std::uint32_t> count;
  std::array<Place, 32> ring;

  /// Lives until the process ends. Throws std::runtime_error when the system refuses.
  [[nodiscard]] static FutexPage& map();
};

class FutexWriter final : public WriterRole {
 public:
  explicit FutexWriter(const Json::Value&) : page_(FutexPage::map()) {}

 private:
  bool write(const Message& message) noexcept override;

  FutexPage& page_;
};

class FutexReader final : public ReaderRole {
 public:
  explicit FutexReader(const Json::Value& arguments);
  ~FutexReader() override;

 private:
  void run(std::uint32_t seen);

  FutexPage& page_;
  std::atomic<bool> ends_{false};
  std::thread thread_;
};

}  // namespace bench
