#include "highlevel/HighLevelFactory.h"

#include <utility>

#include "highlevel/MotionHighLevelClientImpl.h"

namespace orvane::RobotSdk {
namespace {

using Kind = MotionHighLevelClientImpl::Kind;

std::shared_ptr<IMotionHighLevelClient> makeHandle(Kind kind, std::string deviceId) {
  auto client = std::make_shared<MotionHighLevelClientImpl>(kind, std::move(deviceId));
  auto* const face = client.get();
  return {face, [held = std::move(client)](IMotionHighLevelClient*) mutable {
            static_cast<void>(held->disconnect());
            held.reset();
          }};
}

}  // namespace

std::shared_ptr<IMotionHighLevelClient> makeBoardHighLevelClient(bool asMaster) {
  return makeHandle(asMaster ? Kind::kBoardMaster : Kind::kBoard, {});
}

std::shared_ptr<IMotionHighLevelClient> makeRemoteHighLevelClient(std::string deviceId) {
  return makeHandle(Kind::kRemote, std::move(deviceId));
}

}  // namespace orvane::RobotSdk
