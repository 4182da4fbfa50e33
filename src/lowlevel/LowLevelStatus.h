#pragma once

#include <atomic>
#include <cstdint>

namespace orvane::RobotSdk::lowlevel {

/// The source unit that all lines of the low-level client name.
inline constexpr char kUnit[] = "LocalLowLevelClientImpl";

/// As getState() gives them.
enum State : std::uint32_t {
  kDisconnected = 0,
  kConnecting = 1,
  kConnected = 2,  ///< a session is held, the motors' drive is off
  kPrepared = 3,   ///< the drive is on
  kSessionLost = 4,
};

/// As getLastError() hands them out.
namespace error {
inline constexpr std::uint32_t kNone = 0;
inline constexpr std::uint32_t kNoChannel = 1;  ///< no server, or the channels can't be opened
inline constexpr std::uint32_t kTakeFailed = 2;
inline constexpr std::uint32_t kSessionInvalid = 4;  ///< a renewal failed, or the server said so
inline constexpr std::uint32_t kNotDone = 7;     ///< a wait ran out, or a request in session failed
inline constexpr std::uint32_t kWrongState = 8;  ///< also no session, a busy gate, no channel
inline constexpr std::uint32_t kDriveOff = 9;
inline constexpr std::uint32_t kInvalidArgument = 10;
inline constexpr std::uint32_t kRoleRefused = 11;
}  // namespace error

/// A client's connections are numbered from 1, so that what one of them began can't end in the
/// next.
using ConnectionNumber = std::uint64_t;

/// The client's state, last error and session.
///
/// Threading contract: any thread, nothing blocks. The state and the number of its connection are
/// one word, so a change by a worker whose connection is over has no effect, whatever state the
/// next connection is in. begin and end are called under the client's lifecycle lock. A session
/// begins while its caller holds the send gate: who holds it sees number and count of one session.
class LowLevelStatus {
 public:
  [[nodiscard]] State state() const noexcept { return stateOf(word_.load()); }
  /// In one of the states in which a session is held.
  [[nodiscard]] bool isConnected() const noexcept {
    const State now = state();
    return now == kConnected || now == kPrepared;
  }
  /// That connection isn't over.
  [[nodiscard]] bool isCurrent(ConnectionNumber connection) const noexcept {
    const std::uint64_t word = word_.load();
    return word >> kStateBits == connection && stateOf(word) != kDisconnected;
  }

  void begin(ConnectionNumber connection) noexcept {
    word_ = wordOf(connection, kConnecting);
    lastError_ = error::kNone;
  }
  void end() noexcept {
    word_ = word_.load() >> kStateBits << kStateBits;
    lastError_ = error::kNone;
  }
  /// A worker's end of its own connection; keeps the error. Nothing when that is over already.
  void endOf(ConnectionNumber connection) noexcept {
    std::uint64_t word = word_.load();
    while (word >> kStateBits == connection &&
           !word_.compare_exchange_weak(word, wordOf(connection, kDisconnected))) {
    }
  }
  /// False, and nothing changed: that connection isn't in state `from` (any more).
  [[nodiscard]] bool move(ConnectionNumber connection, State from, State to) noexcept {
    std::uint64_t expected = wordOf(connection, from);
    return word_.compare_exchange_strong(expected, wordOf(connection, to));
  }

  void fail(std::uint32_t code) noexcept { lastError_.exchange(code); }
  [[nodiscard]] std::uint32_t lastError() const noexcept { return lastError_; }
  [[nodiscard]] std::uint32_t takeError() noexcept { return lastError_.exchange(error::kNone); }

  /// 0: no session.
  [[nodiscard]] std::uint64_t sessionId() const noexcept { return sessionId_; }
  void beginSession(std::uint64_t id) noexcept {
    lastSeq_ = 0;
    sessionId_ = id;
  }
  /// Gives what it was.
  std::uint64_t endSession() noexcept { return sessionId_.exchange(0); }
  /// 1, 2, 3 ... for the control records of a session.
  [[nodiscard]] std::uint64_t nextSeq() noexcept {
    return lastSeq_.fetch_add(1, std::memory_order_relaxed) + 1;
  }

 private:
  static constexpr unsigned kStateBits = 3;
  [[nodiscard]] static State stateOf(std::uint64_t word) noexcept {
    return static_cast<State>(word & ((1U << kStateBits) - 1));
  }
  [[nodiscard]] static std::uint64_t wordOf(ConnectionNumber connection, State state) noexcept {
    return connection << kStateBits | state;
  }

  std::atomic<std::uint64_t> word_{wordOf(0, kDisconnected)};
  std::atomic<std::uint32_t> lastError_{error::kNone};
  std::atomic<std::uint64_t> sessionId_{0};
  std::atomic<std::uint64_t> lastSeq_{0};
};

}  // namespace orvane::RobotSdk::lowlevel
