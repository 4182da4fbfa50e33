#pragma once

#include <array>
#include <atomic>
#include <cstddef>
#include <cstdint>
#include <functional>

#include "harness/Collector.h"
#include "harness/Role.h"

namespace bench {

/// What travels through every channel here: as large as a control record, and with the time of
/// sending.
struct Message {
  static constexpr std::uint32_t kPlain = 0;
  static constexpr std::uint32_t kHold = 1;  ///< keeps its reader in its callback, busy
  static constexpr std::uint32_t kAsk = 2;   ///< asks for an observed record

  std::uint32_t kind = kPlain;
  std::int64_t sentNs = 0;
  std::array<std::byte, 456> rest{};
};
static_assert(sizeof(Message) == 472);

/// The writing end of a channel. Commands:
///  - "write", with "count", "intervalUs" (0: as fast as it goes), "batch" (writes per clock
///    reading), "kind": {"ns": [...] per write, one value of each batch};
///  - "marked", with "count", "intervalUs": writes with a mark (SystemCalls.h) before and after
///    each; {"allocations"} of the writing thread, all together.
class WriterRole : public Role {
 public:
  Json::Value handle(const Json::Value& command) override;

 protected:
  virtual bool write(const Message& message) noexcept = 0;
  /// As "marked" does with writes: {"allocations"}. Throws std::runtime_error when one fails.
  static Json::Value runMarked(const Json::Value& command, const std::function<bool()>& operation);

 private:
  Json::Value writeTimed(const Json::Value& command);
};

/// The reading end of a channel. Commands:
///  - "begin", with "count": gathers how long that many messages take from before their write to
///    the callback; "end": {"ns": [...]} of those that came;
///  - "held": returns when a message of kind kHold keeps the callback; "release": lets it go on,
///    and returns when it has.
///
/// Threading: receive on the thread that delivers, the commands on the main one.
class ReaderRole : public Role {
 public:
  Json::Value handle(const Json::Value& command) override;

 protected:
  /// To be called at the very entry of the callback, with what the message says.
  void receive(std::uint32_t kind, std::int64_t sentNs) noexcept;
  /// Again and again while a message keeps the callback.
  virtual void whileHeld() noexcept {}

 private:
  void awaitHeld(bool held) const;

  static constexpr std::uint32_t kMostMessages = 100'000;

  Collector collector_{kMostMessages};
  std::atomic<bool> held_{false};
  std::atomic<bool> released_{false};
};

}  // namespace bench
