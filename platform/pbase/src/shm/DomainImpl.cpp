#include "shm/DomainImpl.h"

#include <algorithm>
#include <map>
#include <mutex>
#include <optional>
#include <utility>

#include "pbase/ILogger.h"
#include "shm/RingPublisher.h"
#include "shm/Segment.h"
#include "shm/ShmFile.h"

namespace Pexal::PBase {
namespace {

using Memory::ShmFile;

bool isFullName(const std::string& name) {
  return !name.empty() && ShmFile::isName(name);
}

bool isSound(const SharedMemPool& pool) {
  return !pool.name.empty() && pool.chunkSize >= 1 && pool.chunkSize <= kLargestChunk &&
         pool.count >= 1 && static_cast<std::uint32_t>(pool.count) <= kMostChunks;
}

/// A whole number from 0 to `most`; 0 when the key is absent.
std::optional<int> numberIn(const Json::Value& object, const char* key, int most) {
  const Json::Value& value = object[key];
  if (value.isNull()) return 0;
  if (!value.isInt() || value.asInt() < 0 || value.asInt() > most) return std::nullopt;
  return value.asInt();
}

std::optional<Schedule> scheduleFrom(const Json::Value& value) {
  if (value.isNull()) return Schedule{};
  if (!value.isObject()) return std::nullopt;
  const auto policy = numberIn(value, "policy", 2);
  const auto priority = numberIn(value, "priority", 99);
  if (!policy || !priority || (*policy == 0) != (*priority == 0)) return std::nullopt;
  return Schedule{*policy, *priority};
}

}  // namespace

SharedMemNode::~SharedMemNode() = default;
SharedMemDomain::~SharedMemDomain() = default;

std::shared_ptr<SharedMemDomain> SharedMemDomain::instance(const std::string& name) {
  if (!ShmFile::isName(name)) return nullptr;
  static auto* const mutex = new CMutex;  // guards domains
  static auto* const domains = new std::map<std::string, std::shared_ptr<DomainImpl>>;
  const std::lock_guard lock(*mutex);
  std::shared_ptr<DomainImpl>& domain = (*domains)[name];
  if (domain == nullptr) domain = std::make_shared<DomainImpl>(name);
  return domain;
}

bool DomainImpl::declarePools(const std::vector<SharedMemPool>& pools) {
  const char* refusal = nullptr;
  {
    const std::lock_guard lock(mutex_);
    for (const SharedMemPool& pool : pools) {
      if (!isSound(pool)) {
        refusal = "a figure is out of its range";
      } else if (const auto* const former = settings_.find(pool.name); former == nullptr) {
        continue;
      } else if (former->chunkSize != pool.chunkSize || former->count != pool.count) {
        refusal = "it was declared with other figures";
      }
      if (refusal != nullptr) break;
    }
    if (refusal == nullptr) {
      for (const SharedMemPool& pool : pools) {
        if (settings_.find(pool.name) == nullptr) settings_.pools.push_back(pool);
      }
      return true;
    }
  }
  ILogger::instance()->log(4, "pbase", "[SharedMem]no pool declared in domain \"%s\": %s\n",
                           settings_.name.c_str(), refusal);
  return false;
}

const SharedMemPool* DomainSettings::find(const std::string& pool) const {
  const auto found = std::find_if(pools.begin(), pools.end(), [&](const SharedMemPool& one) {
    return pool.empty() || one.name == pool;
  });
  return found == pools.end() ? nullptr : &*found;
}

bool DomainImpl::initial(const Json::Value& schedule) {
  const auto wanted = scheduleFrom(schedule);
  {
    const std::lock_guard lock(mutex_);
    if (initialised_) return true;
    if (wanted) {
      settings_.schedule = *wanted;
      initialised_ = true;
      return true;
    }
  }
  ILogger::instance()->log(4, "pbase", "[SharedMem]the schedule of a domain is invalid\n");
  return false;
}

std::shared_ptr<SharedMemNode> DomainImpl::createNode(const std::string& name) {
  const std::lock_guard lock(mutex_);
  if (!initialised_ || !isFullName(name)) return std::make_shared<NodeImpl>();
  return std::make_shared<NodeImpl>(name, settings_);
}

NodeImpl::NodeImpl(std::string name, DomainSettings settings)
    : name_(std::move(name)), settings_(std::move(settings)) {}

bool NodeImpl::allows(const std::string& channel) const {
  if (isReady() && isFullName(channel)) return true;
  ILogger::instance()->log(4, "pbase", "[SharedMem]no channel \"%.64s\" in domain \"%s\": %s\n",
                           channel.c_str(), settings_.name.c_str(),
                           isReady() ? "not a name" : "the node isn't ready");
  return false;
}

/// The separator is in no name: two channels never have one file, nor a channel and a buffer.
std::string NodeImpl::fileNameOf(const std::string& channel) const {
  return settings_.name + ":" + channel;
}

std::shared_ptr<SharedMemPublisher> NodeImpl::publisher(const std::string& name,
                                                        const std::string& pool) {
  if (!allows(name)) return std::make_shared<RingPublisher>();
  Geometry geometry;
  if (const SharedMemPool* const found = settings_.find(pool); found != nullptr) {
    geometry = {found->chunkSize, static_cast<std::uint32_t>(found->count)};
  }
  return std::make_shared<RingPublisher>(fileNameOf(name), geometry);
}

std::shared_ptr<SharedMemSubscriber> NodeImpl::subscriber(const std::string& name) {
  if (!allows(name)) return std::make_shared<RingSubscriber>();
  return std::make_shared<RingSubscriber>(name, fileNameOf(name), settings_.schedule);
}

}  // namespace Pexal::PBase
