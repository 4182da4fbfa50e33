#pragma once

#include <array>
#include <atomic>
#include <cstdint>
#include <thread>

#include "orvane/RobotSdk/Records.h"
#include "shared_memory/peers/FutexChannel.h"

namespace bench {

/// When an observed record was written, in bytes of it that nobody else uses.
void stamp(orvane::RobotSdk::ObservedMotionRecord& record, std::int64_t ns) noexcept;
[[nodiscard]] std::int64_t stampOf(const orvane::RobotSdk::ObservedMotionRecord& record) noexcept;

/// The client's side of a control loop. Beside WriterRole's, commands:
///  - "exchange", with "count", "intervalUs": asks for an observed record, waits for it, and sends
///    a command that bears the time at which that was written: {"ns": [...] from asking to having};
///  - "markedAsk", as "marked", of asking and waiting.
class AskingWriterRole : public WriterRole {
 public:
  Json::Value handle(const Json::Value& command) override;

 protected:
  /// Asks for an observed record and waits for it. False: none came.
  virtual bool ask(std::int64_t& writtenNs) noexcept = 0;

 private:
  Json::Value exchange(const Json::Value& command);
};

/// The same bare: two pages of memory that two processes share, and a futex in each, on which the
/// other side sleeps. Nothing is checked.
struct FutexAnswers {
  struct alignas(64) Place {
    orvane::RobotSdk::ObservedMotionRecord record;
  };
  alignas(64) std::atomic<std::uint32_t> count;
  std::array<Place, 4> ring;  // as many as the library's buffer has

  /// See mapShared.
  [[nodiscard]] static FutexAnswers& map();
};

class FutexAsker final : public AskingWriterRole {
 public:
  explicit FutexAsker(const Json::Value&)
      : commands_(FutexPage::map()), answers_(FutexAnswers::map()) {}

 private:
  bool write(const Message& message) noexcept override;
  bool ask(std::int64_t& writtenNs) noexcept override;

  FutexPage& commands_;
  FutexAnswers& answers_;
  orvane::RobotSdk::ObservedMotionRecord seen_{};
};

class FutexAnswerer final : public FutexReader {
 public:
  explicit FutexAnswerer(const Json::Value& arguments)
      : FutexReader(arguments), answers_(FutexAnswers::map()) {}
  ~FutexAnswerer() override { stop(); }

 private:
  void take(const Message& message) noexcept override;

  FutexAnswers& answers_;
  orvane::RobotSdk::ObservedMotionRecord record_{};
};

}  // namespace bench
