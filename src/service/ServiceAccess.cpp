#include "service/ServiceAccess.h"

#include "service/Boundary.h"
#include "service/IMediaBusClient.h"
#include "service/MotionSdkServiceImpl.h"

namespace orvane::RobotSdk::service {
namespace {

constexpr char kUnit[] = "ServiceAccess";

std::shared_ptr<const ServiceSnapshot> now() {
  return MotionSdkServiceImpl::get().snapshot();
}

bool reachable(const std::string& server) {
  return !server.empty() && now()->initialed;
}

}  // namespace

std::int32_t deployment() noexcept {
  const auto state = now();
  return state->initialed ? state->platform : kNotInitial;
}

std::string clientId() {
  return now()->clientId;
}

std::string networkInterface() {
  return now()->networkInterface;
}

std::string applicationServiceName(bool brain) {
  return brain && now()->platform == kRobotBoard ? "brainAppService" : "robotAppService";
}

Json::Value section(const char* path) {
  return guarded(
      "section", [&] { return MotionSdkServiceImpl::get().section(path); }, Json::Value());
}

std::shared_ptr<Pexal::PDBus::RPCClient> rpcClient(const std::string& server) {
  using Client = std::shared_ptr<Pexal::PDBus::RPCClient>;
  return guarded(
      "rpcClient",
      [&] { return reachable(server) ? Pexal::PDBus::RPCClient::instance(server) : nullptr; },
      Client());
}

std::shared_ptr<Pexal::PDBus::IEventBus> eventBus(const std::string& server) {
  using Bus = std::shared_ptr<Pexal::PDBus::IEventBus>;
  return guarded(
      "eventBus",
      [&] { return reachable(server) ? Pexal::PDBus::IEventBus::instance(server) : nullptr; },
      Bus());
}

std::shared_ptr<IMediaBusClient> createMediaBusClient() {
  MOTION_LOG(kUnit, level::kError, "media bus client is not enabled in this SDK build");
  return nullptr;
}

}  // namespace orvane::RobotSdk::service
