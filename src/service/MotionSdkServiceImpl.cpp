#include "service/MotionSdkServiceImpl.h"

#include <unistd.h>

#include <cstdio>
#include <exception>
#include <mutex>
#include <string_view>
#include <utility>

#include "log/Log.h"
#include "pbase/CConfigLoader.h"
#include "pbase/System.h"
#include "pdbus/IDDSFactory.h"
#include "service/BoardGuard.h"
#include "service/Boundary.h"
#include "service/CallbackScope.h"
#include "service/DdsDocuments.h"
#include "service/HostProfile.h"
#include "service/ServiceAccess.h"

namespace orvane::RobotSdk {
namespace {

using Pexal::Config::CConfigLoader;
using Pexal::PDBus::IDDSFactory;
using Pexal::PDBus::IEventBus;

constexpr char kUnit[] = "MotionSdkServiceImpl";
constexpr char kVersion[] = "1.0.0 (commit a66e0f52)";
constexpr char kDefaultClientId[] = "motionSdk";
constexpr char kDiscoveryServer[] = "robotServer";
constexpr char kVersionFile[] = "/version";
constexpr std::string_view kBoardVersionPrefix = "DEVELOPMENT_ROBOTIC_";
constexpr std::uint32_t kLogRecordBytes = 4096;
constexpr std::uint64_t kExitWaitMs =
    3000;  // for another thread's operation, when the process ends

bool namesFile(const char* configPath) {
  if (configPath == nullptr) return false;
  const std::string_view path(configPath);
  return !path.empty() && path != "0" && path != "-";
}

bool runsOnBoard() {
  std::string version;
  const bool marked = Pexal::PBase::File::exist(service::kMotionProfile);
  return CConfigLoader::readFile(kVersionFile, version) && marked &&
         version.starts_with(kBoardVersionPrefix);
}

}  // namespace

struct MotionSdkServiceImpl::ExitHook {
  explicit ExitHook(MotionSdkServiceImpl& owner) : service(owner) {}
  ~ExitHook() {
    guarded("exit", [this] { service.stopAtExit(); });
  }
  ExitHook(const ExitHook&) = delete;
  ExitHook& operator=(const ExitHook&) = delete;
  MotionSdkServiceImpl& service;
};

MotionSdkServiceImpl::MotionSdkServiceImpl()
    : config(std::make_shared<const Json::Value>()),
      discovery(std::make_shared<service::RobotDiscovery>()) {
  publishSnapshot();
}

MotionSdkServiceImpl& MotionSdkServiceImpl::get() {
  static MotionSdkServiceImpl* const instance = new MotionSdkServiceImpl;
  static const ExitHook hook(*instance);
  return *instance;
}

// ---------------------------------------------------------------------------------------- setters

void MotionSdkServiceImpl::setNetworkInterface(const char* name) {
  guarded("setNetworkInterface", [&] {
    const auto entry = gate.enter();
    if (!entry) return;
    if (initialed) {
      std::puts("setNetworkInterface must be called before initial");
      return;
    }
    networkInterface = name != nullptr ? name : "";
  });
}

void MotionSdkServiceImpl::attachLoggerCallback(LoggerCallback callback) {
  guarded("attachLoggerCallback", [&] {
    const auto entry = gate.enter();
    if (!entry) return;
    if (initialed) {
      std::puts("attach logger callback before initial");
      return;
    }
    loggerCallback.swap(callback);  // the former one is destroyed behind the gate
  });
}

void MotionSdkServiceImpl::attachRobotDiscoverCallback(RobotDiscoverCallback callback) {
  guarded("attachRobotDiscoverCallback", [&] {
    const auto entry = gate.enter();
    if (!entry) return;
    if (initialed) {
      std::puts("attach robot discover callback before initial");
      return;
    }
    discovery->setCallback(std::move(callback));
  });
}

// ------------------------------------------------------------------------------------- initialise

bool MotionSdkServiceImpl::initial(const char* configPath, const char* clientName,
                                   std::uint32_t roudiWaitSeconds) {
  const auto body = [&] {
    const auto entry = gate.enter();
    if (!entry) return false;
    if (initialed) return true;
    try {
      return start(configPath, clientName != nullptr ? clientName : kDefaultClientId,
                   roudiWaitSeconds);
    } catch (...) {
      initialed = false;
      eventBus.reset();
      IDDSFactory::instance()->shutdown();
      removeHostProfile();
      throw;
    }
  };
  return guarded("initial", body, false);
}

bool MotionSdkServiceImpl::start(const char* configPath, const std::string& name,
                                 std::uint32_t roudiWaitSeconds) {
  startedBy = ::getpid();
  detectPlatform(name);
  if (!loadConfig(configPath)) return false;
  clientId = name;

  Json::Value document;
  if (platform == service::kRobotBoard) {
    if (!enterBoard(roudiWaitSeconds)) return false;
    document = service::boardDdsDocument(brainDomain, cereDomain);
  } else {
    document = prepareHost();
  }
  // Not checked: without the DDS layer the clients report that no server can be reached.
  IDDSFactory::instance()->initial(document);
  if (platform != service::kRobotBoard) openDiscovery();

  initialed = true;
  publishSnapshot();  // last of what can throw: until then the SDK counts as not initialed
  MOTION_LOG(kUnit, level::kInfo, "motion sdk initialized, clientId=%s, multiDevice=%d, config=%s",
             name.c_str(), platform != service::kRobotBoard ? 1 : 0,
             configPath != nullptr ? configPath : "");
  return true;
}

void MotionSdkServiceImpl::detectPlatform(const std::string& name) {
  {
    // A failed attempt leaves its sink in place; the next one replaces it, and so ends calls of a
    // callback that may be in flight.
    const service::ServiceGate::Draining draining(gate);
    logSink.attach(loggerCallback);
  }
  platform = service::kExternalHost;
  cereDomain = 42;
  if (runsOnBoard()) {
    platform = service::kRobotBoard;
    brainDomain = 2;
    cereDomain = 1;
  }
  auto* const logger = Pexal::ILogger::instance();
  logger->configure(name.c_str(), kLogRecordBytes);
  logger->setImmediateFlush(1);
  logger->enableConsole(!loggerCallback);
  publishSnapshot();
  MOTION_LOG(kUnit, level::kInfo, "motion sdk platform detected: %d brain domain=%d,cere domain=%d",
             platform, brainDomain, cereDomain);
}

bool MotionSdkServiceImpl::loadConfig(const char* configPath) {
  auto loaded = std::make_shared<Json::Value>();
  if (namesFile(configPath) && !CConfigLoader::instance()->loadConfig(configPath, *loaded)) {
    MOTION_LOG(kUnit, level::kError, "motion sdk: load config(%s) failed", configPath);
    return false;
  }
  config = std::move(loaded);
  return true;
}

bool MotionSdkServiceImpl::enterBoard(std::uint32_t roudiWaitSeconds) {
  if (!service::waitForRoudi(roudiWaitSeconds)) return false;
  // A lock that an earlier attempt took is kept: a second descriptor would be refused by the first.
  if (lockFd < 0) lockFd = service::takeBoardLock();
  return lockFd >= 0;
}

Json::Value MotionSdkServiceImpl::prepareHost() {
  hostProfilePath = service::writeHostProfile(cereDomain, networkInterface);
  publishSnapshot();
  if (hostProfilePath.empty()) {
    MOTION_LOG(kUnit, level::kError, "render host dds profile failed, abort dds init");
    return {};
  }
  MOTION_LOG(kUnit, level::kInfo, "dds inited with host xml=%s, iface=%s", hostProfilePath.c_str(),
             networkInterface.empty() ? "(auto)" : networkInterface.c_str());
  return service::hostDdsDocument(cereDomain, hostProfilePath);
}

void MotionSdkServiceImpl::openDiscovery() {
  eventBus = IEventBus::instance(kDiscoveryServer);
  if (eventBus == nullptr) {
    MOTION_LOG(kUnit, level::kConfiguration, "discover robot device is null");
    return;
  }
  if (discovery->hasCallback()) service::RobotDiscovery::listen(discovery, *eventBus);
}

// ---------------------------------------------------------------------------------------- discover

bool MotionSdkServiceImpl::discoverRobotDevice(std::uint32_t windowMs) {
  const auto body = [&] {
    const auto entry = gate.enter();
    if (!entry) return false;
    if (!initialed || eventBus == nullptr) {
      MOTION_LOG(kUnit, level::kError, "motion sdk service %s %s",
                 initialed ? "initialed" : "not initial",
                 eventBus == nullptr ? ",not support discover" : "");
      return false;
    }
    if (!discovery->hasCallback()) {
      MOTION_LOG(kUnit, level::kError, "discover robot device,discover callback must valid");
      return false;
    }
    return discovery->request(*eventBus, windowMs);
  };
  return guarded("discoverRobotDevice", body, false);
}

// ---------------------------------------------------------------------------------------- shutdown

void MotionSdkServiceImpl::shutdown() {
  guarded("shutdown", [&] {
    if (CallbackScope::active()) {
      // It would wait for this very callback to return. Not logged: a logger callback may be it.
      std::puts("shutdown must not be called from inside an sdk callback");
      return;
    }
    const auto entry = gate.enter();
    if (entry && initialed) stop();
  });
}

void MotionSdkServiceImpl::stop() {
  const service::ServiceGate::Draining draining(gate);
  logSink.detach();
  initialed = false;
  config = std::make_shared<const Json::Value>();
  publishSnapshot();
  loggerCallback = nullptr;
  discovery->setCallback({});
  discovery->closeWindow();
  // The subscription isn't taken back: it ends with the DDS layer, and the closed window drops what
  // still arrives.
  eventBus.reset();
  guarded("dds shutdown", [] { IDDSFactory::instance()->shutdown(); });
  removeHostProfile();
  if (lockFd >= 0) ::close(lockFd);
  lockFd = -1;
  MOTION_LOG(kUnit, level::kInfo, "motion sdk service shutdown");
}

void MotionSdkServiceImpl::removeHostProfile() noexcept {
  if (hostProfilePath.empty()) return;
  ::unlink(hostProfilePath.c_str());
  hostProfilePath.clear();
}

void MotionSdkServiceImpl::stopAtExit() {
  const auto last = snapshot();
  if (last->startedBy != ::getpid()) return;  // never started here; a forked child owns nothing
  if (!CallbackScope::active()) {
    if (const auto entry = gate.enter(kExitWaitMs)) {
      if (initialed) stop();
      return;
    }
  }
  // The process ends inside a callback, or during another thread's operation: the layers below
  // can't be stopped from here, but no file is left.
  if (!last->hostProfilePath.empty()) ::unlink(last->hostProfilePath.c_str());
}

// --------------------------------------------------------------------------------------- accessors

bool MotionSdkServiceImpl::isMultiDevice() {
  return guarded(
      "isMultiDevice", [&] { return snapshot()->platform != service::kRobotBoard; }, true);
}

std::shared_ptr<const ServiceSnapshot> MotionSdkServiceImpl::snapshot() const {
  const std::lock_guard lock(snapshotMutex);
  return published;
}

void MotionSdkServiceImpl::publishSnapshot() {
  std::shared_ptr<const ServiceSnapshot> next =
      std::make_shared<const ServiceSnapshot>(ServiceSnapshot{
          initialed, platform, startedBy, clientId, networkInterface, hostProfilePath, config});
  const std::lock_guard lock(snapshotMutex);
  published.swap(next);
}

Json::Value MotionSdkServiceImpl::section(const char* path) const {
  const auto now = snapshot();
  if (!now->initialed || path == nullptr || *path == '\0') return *now->config;
  return Json::Path(path).resolve(*now->config, Json::Value());
}

// ---------------------------------------------------------------------------------- public statics

IMotionSdkService* IMotionSdkService::instance() {
  return &MotionSdkServiceImpl::get();
}

const char* IMotionSdkService::version() {
  return kVersion;
}

}  // namespace orvane::RobotSdk
