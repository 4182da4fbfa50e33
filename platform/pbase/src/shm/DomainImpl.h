#pragma once

#include <memory>
#include <string>
#include <vector>

#include "pbase/CMutex.h"
#include "pbase/SharedMem.h"
#include "shm/RingSubscriber.h"

namespace Pexal::PBase {

/// What a node needs to know of its domain: as it was when the node was made.
struct DomainSettings {
  std::string name;
  std::vector<SharedMemPool> pools;
  Schedule schedule;

  /// By name, an empty one being the first; null when there is none.
  [[nodiscard]] const SharedMemPool* find(const std::string& pool) const;
};

class DomainImpl final : public SharedMemDomain {
 public:
  explicit DomainImpl(std::string name) { settings_.name = std::move(name); }

  bool declarePools(const std::vector<SharedMemPool>& pools) override;
  [[nodiscard]] bool initial(const Json::Value& schedule) override;
  [[nodiscard]] std::shared_ptr<SharedMemNode> createNode(const std::string& name) override;

 private:
  CMutex mutex_;  // guards what follows
  bool initialised_ = false;
  DomainSettings settings_;
};

/// Threading contract: nothing changes after construction.
class NodeImpl final : public SharedMemNode {
 public:
  /// One that is never ready.
  NodeImpl() = default;
  NodeImpl(std::string name, DomainSettings settings);

  [[nodiscard]] bool isReady() const noexcept override { return !name_.empty(); }
  [[nodiscard]] std::shared_ptr<SharedMemPublisher> publisher(const std::string& name,
                                                              const std::string& pool) override;
  [[nodiscard]] std::shared_ptr<SharedMemSubscriber> subscriber(const std::string& name) override;

 private:
  [[nodiscard]] bool allows(const std::string& channel) const;
  [[nodiscard]] std::string fileNameOf(const std::string& channel) const;

  const std::string name_;  // empty: not ready
  const DomainSettings settings_{};
};

}  // namespace Pexal::PBase
