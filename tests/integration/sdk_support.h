#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

#include "WaitUntil.h"
#include "orvane/RobotSdk/IMotionHighLevelClient.h"
#include "orvane/RobotSdk/IMotionLowLevelClient.h"
#include "orvane/RobotSdk/IMotionSdkService.h"
#include "pbase/CTime.h"

/// What the integration tests share: the real library, watched through its callbacks.
namespace sdk_test {

using orvane::RobotSdk::IMotionHighLevelClient;
using orvane::RobotSdk::IMotionLowLevelClient;
using orvane::RobotSdk::IMotionSdkService;
using orvane_test::waitUntil;

inline constexpr std::uint32_t kLimitMs = 30000;  // far above what is expected, sanitizers included
inline constexpr std::uint32_t kRequestMs = 5000;
inline constexpr std::uint32_t kInControl = 2;
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
inline constexpr bool kSanitized = true;
#else
inline constexpr bool kSanitized = false;
#endif

/// The service, initialised while this lives: on the loopback interface, or on the robot board.
class Sdk {
 public:
  /// `onAnswer` runs inside the discover callback, after the answer has been counted.
  explicit Sdk(std::function<void()> onAnswer = {});
  ~Sdk();
  Sdk(const Sdk&) = delete;
  Sdk& operator=(const Sdk&) = delete;

  IMotionSdkService* operator->() const { return IMotionSdkService::instance(); }
  [[nodiscard]] bool initialised() const { return initialised_; }
  /// How often each device has answered so far.
  [[nodiscard]] std::map<std::string, int> answers() const;
  [[nodiscard]] bool hasAnswered(const std::string& device) const {
    return answers().count(device) > 0;
  }

 private:
  struct Answers {
    std::mutex mutex;  // guards count
    std::map<std::string, int> count;
  };
  const std::shared_ptr<Answers> answers_ = std::make_shared<Answers>();
  bool initialised_;
};

/// What a client's callbacks have brought.
class Seen {
 public:
  using State = std::pair<std::uint32_t, std::uint32_t>;  ///< state, code

  /// Registers callbacks on `client`, which isn't connected yet.
  static std::shared_ptr<Seen> watch(IMotionHighLevelClient& client);
  static std::shared_ptr<Seen> watch(IMotionLowLevelClient& client);  ///< states only

  [[nodiscard]] std::vector<State> states() const;
  [[nodiscard]] bool reported(State state) const;
  [[nodiscard]] std::vector<std::string> events() const;
  [[nodiscard]] std::vector<orvane::RobotSdk::ObservedMotionRecord> motion() const;
  [[nodiscard]] std::vector<orvane::RobotSdk::ObservedSensorRecord> sensor() const;
  void forgetStates();

 private:
  mutable std::mutex mutex_;  // guards everything below
  std::vector<State> states_;
  std::vector<std::string> events_;  // details
  std::vector<orvane::RobotSdk::ObservedMotionRecord> motion_;
  std::vector<orvane::RobotSdk::ObservedSensorRecord> sensor_;
};

/// A client with its callbacks watched.
struct Client {
  std::shared_ptr<IMotionHighLevelClient> handle;
  std::shared_ptr<Seen> seen;

  IMotionHighLevelClient* operator->() const { return handle.get(); }
};

/// A connected client of `device`; its handle is empty when that failed.
[[nodiscard]] Client connectTo(const std::string& device, std::uint32_t leaseMs = 60000);
/// The same on the robot board.
[[nodiscard]] Client connectOnBoard(bool asMaster, std::uint32_t leaseMs = 60000);
/// True when control was granted.
[[nodiscard]] bool takeControl(const Client& client, std::uint32_t limitMs = 20000);
/// Switches both streams of observed state on. False when the robot refused.
[[nodiscard]] bool enableStreams(const Client& client);
[[nodiscard]] inline std::uint64_t nowMs() {
  return Pexal::PBase::CTime::getCurrentMilliSecond();
}
/// Both streams of observed state go on.
[[nodiscard]] bool seesMore(const Client& client);
/// What `path` ("control.controller") selects in the robot's motion state, a string; "" when there
/// is none or the request failed.
[[nodiscard]] std::string stateText(const Client& client, const char* path);
/// The same, a number; -1 when there is none or the request failed.
[[nodiscard]] double stateNumber(const Client& client, const char* path);

}  // namespace sdk_test
