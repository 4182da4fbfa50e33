#include <cstdio>
#include <memory>
#include <mutex>
#include <string>
#include <utility>

#include "highlevel/HighLevelFactory.h"
#include "orvane/RobotSdk/IMotionHighLevelClient.h"
#include "orvane/RobotSdk/IMotionLowLevelClient.h"
#include "pbase/CMutex.h"
#include "service/Boundary.h"
#include "service/ServiceAccess.h"

namespace orvane::RobotSdk {
namespace {

constexpr char kUnit[] = "ClientFactories";

using HighLevelClient = std::shared_ptr<IMotionHighLevelClient>;
using LowLevelClient = std::shared_ptr<IMotionLowLevelClient>;

/// The robot board's one high-level client: it lives as long as the application holds it.
HighLevelClient theBoardClient(bool asMaster) {
  // Never destroyed: a static of the application may ask for a client while the process ends.
  static auto& clientMutex = *new Pexal::PBase::CMutex;  // guards boardClient
  static auto& boardClient = *new std::weak_ptr<IMotionHighLevelClient>;
  const std::lock_guard lock(clientMutex);
  if (auto alive = boardClient.lock()) return alive;
  auto made = makeBoardHighLevelClient(asMaster);
  boardClient = made;
  return made;
}

HighLevelClient createHighLevel(bool asMaster) {
  switch (service::deployment()) {
    case service::kExternalHost:
      std::puts(
          "high level create(asMaster) only for local board, external please use create(deviceId)");
      return nullptr;
    case service::kRobotBoard:
      return theBoardClient(asMaster);
    default:
      std::puts("motion sdk service not initial");
      return nullptr;
  }
}

HighLevelClient createHighLevel(std::string deviceId) {
  switch (service::deployment()) {
    case service::kExternalHost:
      if (deviceId.empty()) {
        std::puts("high level sdk must have deviceId,please use discover scan device info");
        return nullptr;
      }
      return makeRemoteHighLevelClient(std::move(deviceId));
    case service::kRobotBoard:
      return nullptr;
    default:
      std::puts("motion sdk service not initial");
      return nullptr;
  }
}

}  // namespace

// Defined here, out of line, so that each interface's tables live in this library only.
IMotionHighLevelClient::~IMotionHighLevelClient() = default;
IMotionLowLevelClient::~IMotionLowLevelClient() = default;

HighLevelClient IMotionHighLevelClient::create(bool asMaster) {
  return guarded(
      "create", [&] { return createHighLevel(asMaster); }, HighLevelClient());
}

HighLevelClient IMotionHighLevelClient::create(std::string deviceId) {
  return guarded(
      "create", [&] { return createHighLevel(std::move(deviceId)); }, HighLevelClient());
}

LowLevelClient IMotionLowLevelClient::create() {
  MOTION_LOG(kUnit, level::kError,
             "native low level control only supported on local board deployment");
  return nullptr;
}

}  // namespace orvane::RobotSdk
