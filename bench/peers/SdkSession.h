#pragma once

#include <memory>
#include <string>

#include "orvane/RobotSdk/RobotSdk.h"

namespace bench {

/// The library as an application uses it: the service on loopback and a connected client for one
/// robot. One at a time in a process.
class SdkSession {
 public:
  using Client = orvane::RobotSdk::IMotionHighLevelClient;

  /// Starts the service. Throws std::runtime_error when it doesn't start.
  SdkSession();
  ~SdkSession();
  SdkSession(const SdkSession&) = delete;
  SdkSession& operator=(const SdkSession&) = delete;

  /// A client, not connected yet.
  [[nodiscard]] static std::shared_ptr<Client> client(const std::string& device);
  /// Connects and has the robot answer once. Throws std::runtime_error when it doesn't.
  static void connect(Client& client);
  /// Switches both observed streams.
  static void observe(Client& client, bool on);

  /// What every process of the library does before `initial`: loopback, and only what goes wrong
  /// on the console.
  static void prepare(orvane::RobotSdk::IMotionSdkService& service);
};

inline constexpr std::uint32_t kRequestMs = 1000;

}  // namespace bench
