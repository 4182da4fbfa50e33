#pragma once

#include <array>
#include <atomic>
#include <cstdint>
#include <thread>

#include "shared_memory/peers/Channel.h"

namespace bench {

/// A page of that name that processes share, zero at first. Lives until the process ends. Throws
/// std::runtime_error when the system refuses.
[[nodiscard]] void* mapShared(const char* name, std::size_t size);
void wake(std::atomic<std::uint32_t>& word) noexcept;
/// Sleeps; may return before the word is another one.
void waitWhile(std::atomic<std::uint32_t>& word, std::uint32_t value) noexcept;

/// Memory that two processes share, and a futex in it: what a message costs at least when its
/// reader sleeps. Nothing is checked: a reader that falls behind by more than the ring reads what
/// isn't meant for it.
struct FutexPage {
  struct alignas(64) Place {
    Message message;
  };
  alignas(64) std::atomic<std::uint32_t> count;
  std::array<Place, 32> ring;

  /// See mapShared.
  [[nodiscard]] static FutexPage& map();
  /// Copies the message to its place and counts it. Wakes nobody.
  void put(const Message& message) noexcept;
  [[nodiscard]] const Message& at(std::uint32_t number) const {
    return ring[number % ring.size()].message;
  }
};

class FutexWriter final : public WriterRole {
 public:
  explicit FutexWriter(const Json::Value&) : page_(FutexPage::map()) {}

 private:
  bool write(const Message& message) noexcept override;

  FutexPage& page_;
};

class FutexReader : public ReaderRole {
 public:
  explicit FutexReader(const Json::Value& arguments);
  ~FutexReader() override { stop(); }

 protected:
  /// On the thread that sleeps on the futex.
  virtual void take(const Message& message) noexcept { receive(message.kind, message.sentNs); }
  /// Who overrides take calls this in its destructor.
  void stop();

 private:
  void run(std::uint32_t seen);

  FutexPage& page_;
  std::atomic<bool> ends_{false};
  std::thread thread_;
};

}  // namespace bench
