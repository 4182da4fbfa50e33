#include "shm/ShareMotionDomain.h"

#include <cstdint>
#include <mutex>
#include <utility>

#include "log/Log.h"

namespace Robot::Motion {
namespace {

namespace level = orvane::RobotSdk::level;
using Pexal::PBase::PrioMutex;
using Pexal::PBase::SharedMemDomain;
using Pexal::PBase::SharedMemNode;

Json::Value memberOf(const Json::Value& config, const char* name) {
  return config.isObject() ? config[name] : Json::Value();
}

std::string textOf(const Json::Value& value) {
  return value.isConvertibleTo(Json::stringValue) ? value.asString() : "";
}

std::int32_t poolSizeOf(const Json::Value& config) {
  const Json::Value size = memberOf(config, "poolSize");
  return size.isInt() ? size.asInt() : 0;
}

}  // namespace

ShareMotionDomain& ShareMotionDomain::instance(MotionChannel channel) {
  static auto& control = *new ShareMotionDomain(MotionChannel::kControl);
  static auto& data = *new ShareMotionDomain(MotionChannel::kData);
  return channel == MotionChannel::kControl ? control : data;
}

bool ShareMotionDomain::init(const Json::Value& config) {
  const std::lock_guard<PrioMutex> lock(lock_);
  if (!initialised_) initialised_ = join(config);
  return initialised_;
}

/// With the lock held. A name that isn't a text is told and used all the same, as far as it yields
/// one: a board's old configuration goes on working.
bool ShareMotionDomain::join(const Json::Value& config) {
  const Json::Value domainName = memberOf(config, "domain");
  const Json::Value nodeName = memberOf(config, "node");
  if (!domainName.isString()) {
    MOTION_LOG(kChannelUnit, level::kConfiguration, "%s node domain invalid", row_.longName);
  }
  if (!nodeName.isString()) {
    MOTION_LOG(kChannelUnit, level::kConfiguration, "%s node domain node invalid", row_.longName);
  }
  auto domain = SharedMemDomain::instance(textOf(domainName));
  if (domain == nullptr) return false;
  if (const std::int32_t poolSize = poolSizeOf(config); poolSize > 0) {
    domain->declarePools({{row_.pool, row_.recordSize, poolSize}});
  }
  if (!domain->initial(memberOf(config, "schedule"))) {
    MOTION_LOG(kChannelUnit, level::kWarning, " init share %s domain %s failed", row_.shortName,
               textOf(domainName).c_str());
    return false;
  }
  auto node = domain->createNode(textOf(nodeName));
  if (node == nullptr || !node->isReady()) {
    MOTION_LOG(kChannelUnit, level::kWarning, " init share %s node %s failed", row_.shortName,
               textOf(nodeName).c_str());
    return false;
  }
  domain_ = std::move(domain);
  node_ = std::move(node);
  return true;
}

std::shared_ptr<SharedMemNode> ShareMotionDomain::node() {
  const std::lock_guard<PrioMutex> lock(lock_);
  return node_;
}

ChannelStart startOn(MotionChannel channel, const Json::Value& config) {
  const Json::Value name = memberOf(config, "name");
  if (!name.isString()) return {};
  return {name.asString(), ShareMotionDomain::instance(channel).node()};
}

}  // namespace Robot::Motion
