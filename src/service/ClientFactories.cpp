#include <cstdio>
#include <memory>
#include <mutex>
#include <string>
#include <utility>

#include "highlevel/HighLevelFactory.h"
#include "lowlevel/LowLevelFactory.h"
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

/// The robot board's one client of a kind: it lives as long as the application holds it. Never
/// destroyed: a static of the application may ask for a client while the process ends.
template <class Client>
class BoardClient {
 public:
  template <class Make>
  [[nodiscard]] std::shared_ptr<Client> get(const Make& make) {
    const std::lock_guard lock(mutex_);
    if (auto alive = client_.lock()) return alive;
    auto made = make();
    client_ = made;
    return made;
  }

 private:
  Pexal::PBase::CMutex mutex_;  // guards client_
  std::weak_ptr<Client> client_;
};

HighLevelClient theHighLevelClient(bool asMaster) {
  static auto& client = *new BoardClient<IMotionHighLevelClient>;
  return client.get([&] { return makeBoardHighLevelClient(asMaster); });
}

LowLevelClient theLowLevelClient() {
  static auto& client = *new BoardClient<IMotionLowLevelClient>;
  return client.get(makeLocalLowLevelClient);
}

HighLevelClient createHighLevel(bool asMaster) {
  switch (service::deployment()) {
    case service::kExternalHost:
      std::puts(
          "high level create(asMaster) only for local board, external please use create(deviceId)");
      return nullptr;
    case service::kRobotBoard:
      return theHighLevelClient(asMaster);
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

LowLevelClient createLowLevel() {
  switch (service::deployment()) {
    case service::kExternalHost:
      return makeSimulationLowLevelClient();
    case service::kRobotBoard:
      return theLowLevelClient();
    default:
      MOTION_LOG(kUnit, level::kError,
                 "native low level control only supported on local board deployment");
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
  return guarded("create", createLowLevel, LowLevelClient());
}

}  // namespace orvane::RobotSdk
