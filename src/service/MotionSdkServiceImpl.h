#pragma once

#include <json/value.h>
#include <sys/types.h>

#include <cstdint>
#include <memory>
#include <string>

#include "orvane/RobotSdk/IMotionSdkService.h"
#include "pbase/CMutex.h"
#include "pdbus/IEventBus.h"
#include "service/LogSink.h"
#include "service/RobotDiscovery.h"
#include "service/ServiceGate.h"

namespace orvane::RobotSdk {

/// What the rest of the SDK may know of the service at one moment. Never changed once published.
struct ServiceSnapshot {
  bool initialed = false;
  std::int32_t platform = 0;
  pid_t startedBy = 0;  // the process that called initial; a forked child is another one
  std::string clientId;
  std::string networkInterface;
  std::string hostProfilePath;
  std::shared_ptr<const Json::Value> config;
};

/// The process-wide service behind IMotionSdkService.
///
/// The object is never destroyed, so that whatever runs late in the process (static destructors,
/// SDK threads) still finds it. A static object made with it shuts the service down when the
/// process ends without shutdown().
///
/// Threading contract: every public operation but isMultiDevice holds the service gate for its
/// whole length, so they run one after the other. section() and snapshot() never wait for the gate:
/// they read an immutable snapshot that the operations publish. Log lines of an operation are
/// written under the gate, so a logger callback must not call the SDK; if it does, the gate
/// refuses. Lock order: gate, then one leaf at a time (snapshotMutex, the discovery's, the
/// logger's). The gate is held while the DDS layer stops, which waits for handlers in flight; what
/// a handler calls meanwhile is refused by the gate.
class MotionSdkServiceImpl final : public IMotionSdkService {
 public:
  static MotionSdkServiceImpl& get();

  void shutdown() override;
  bool isMultiDevice() override;
  void attachLoggerCallback(LoggerCallback callback) override;
  void setNetworkInterface(const char* name) override;
  void attachRobotDiscoverCallback(RobotDiscoverCallback callback) override;
  bool discoverRobotDevice(std::uint32_t windowMs) override;
  bool initial(const char* configPath, const char* clientId,
               std::uint32_t roudiWaitSeconds) override;

  /// Never null. Any thread.
  [[nodiscard]] std::shared_ptr<const ServiceSnapshot> snapshot() const;

  /// The part of the configuration that `path` selects, in the syntax of Json::Path ("a.b" reaches
  /// into "a"); null when it selects nothing. The whole document when the service isn't initialed
  /// or the path is null or empty. What Json::Path can't read of a path it leaves out. Any thread.
  [[nodiscard]] Json::Value section(const char* path) const;

 private:
  MotionSdkServiceImpl();
  ~MotionSdkServiceImpl() = default;
  struct ExitHook;

  bool start(const char* configPath, const std::string& name, std::uint32_t roudiWaitSeconds);
  void detectPlatform(const std::string& name);
  [[nodiscard]] bool loadConfig(const char* configPath);
  [[nodiscard]] bool enterBoard(std::uint32_t roudiWaitSeconds);
  [[nodiscard]] Json::Value prepareHost();
  void openDiscovery();
  void stop();
  void removeHostProfile() noexcept;
  void publishSnapshot();
  void stopAtExit();

  // Guarded by gate:
  bool initialed = false;
  std::int32_t platform = 0;      // 1: external host, 2: robot board; 0 before the first detection
  std::int32_t brainDomain = -1;  // DDS domain of the brain board
  std::int32_t cereDomain = -1;   // DDS domain of the cerebellum board, or of the host
  std::int32_t lockFd = -1;       // the board's single-instance lock while it is held
  std::string clientId = "motionSdk";
  std::string networkInterface;  // empty: the DDS library picks one
  std::string hostProfilePath;   // empty: no profile of this process exists
  std::shared_ptr<const Json::Value> config;
  LoggerCallback loggerCallback;
  std::shared_ptr<Pexal::PDBus::IEventBus> eventBus;  // "robotServer"; external host only
  service::LogSink logSink;
  pid_t startedBy = 0;

  const std::shared_ptr<service::RobotDiscovery> discovery;
  service::ServiceGate gate;
  mutable Pexal::PBase::CMutex snapshotMutex;  // guards published
  std::shared_ptr<const ServiceSnapshot> published;
};

}  // namespace orvane::RobotSdk
