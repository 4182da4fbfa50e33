#pragma once

#include <json/value.h>

#include <cstdint>
#include <memory>
#include <string>

#include "orvane/RobotSdk/Records.h"
#include "pdbus/IEventBus.h"
#include "pdbus/RPC.h"

/// What the SDK's other rooms may ask of the service. Every function may be called from any thread,
/// SDK threads included: none waits for a running initial() or shutdown(), and none throws.
namespace orvane::RobotSdk {

class IMediaBusClient;

namespace service {

inline constexpr std::int32_t kNotInitial = -1;
inline constexpr std::int32_t kExternalHost = 1;
inline constexpr std::int32_t kRobotBoard = 2;

/// kNotInitial, kExternalHost or kRobotBoard.
[[nodiscard]] std::int32_t deployment() noexcept;
/// The SDK client's name: the identity of a client that holds no control.
[[nodiscard]] std::string clientId();
/// As the application chose it before the last initial(); empty: it didn't.
[[nodiscard]] std::string networkInterface();
/// "brainAppService" for the brain's role on the robot board, else "robotAppService".
[[nodiscard]] std::string applicationServiceName(bool brain);
/// The part of the configuration that `path` ("a.b") selects; see MotionSdkServiceImpl::section.
[[nodiscard]] Json::Value section(const char* path);
/// Null when the service isn't initialed, the name is empty, or the platform has no such client.
[[nodiscard]] std::shared_ptr<Pexal::PDBus::RPCClient> rpcClient(const std::string& server);
[[nodiscard]] std::shared_ptr<Pexal::PDBus::IEventBus> eventBus(const std::string& server);
/// Disabled in this build: logs that and returns empty.
[[nodiscard]] std::shared_ptr<IMediaBusClient> createMediaBusClient();
/// Turns a "getMotorLayout" answer into the record; false (record untouched) when it is not valid.
[[nodiscard]] bool parseMotorLayout(const Json::Value& document, MotorLayout& out);

}  // namespace service
}  // namespace orvane::RobotSdk
