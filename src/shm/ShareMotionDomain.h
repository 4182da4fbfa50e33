#pragma once

#include <json/value.h>

#include <memory>
#include <string>

#include "pbase/PrioMutex.h"
#include "pbase/SharedMem.h"
#include "shm/MotionChannel.h"

namespace Robot::Motion {

/// This process's place in a channel's shared-memory domain. instance() gives the one per channel
/// that the ends use; it is never destroyed, so that no thread meets a dead one while the process
/// ends.
///
/// Threading contract: any thread. lock_ guards all below it and is held for the whole of init,
/// which makes system calls only; below it lie the platform's own locks and the log's.
class ShareMotionDomain {
 public:
  /// The process's own.
  [[nodiscard]] static ShareMotionDomain& instance(MotionChannel channel);

  explicit ShareMotionDomain(MotionChannel channel) : row_(rowOf(channel)) {}
  ShareMotionDomain(const ShareMotionDomain&) = delete;
  ShareMotionDomain& operator=(const ShareMotionDomain&) = delete;

  /// Joins the domain. `config`: "domain" and "node" (texts; without one a line warns and the
  /// name is empty), "poolSize" (chunks for this process's publishers; none are declared unless it
  /// is a whole number above 0), "schedule" (see SharedMemDomain::initial). Once it has succeeded
  /// it is true at once, whatever the configuration; after a failure, told in the log, it may be
  /// tried again.
  [[nodiscard]] bool init(const Json::Value& config);
  /// Empty before init succeeded.
  [[nodiscard]] std::shared_ptr<Pexal::PBase::SharedMemNode> node();

 private:
  [[nodiscard]] bool join(const Json::Value& config);

  const MotionChannelRow& row_;

  Pexal::PBase::PrioMutex lock_;
  bool initialised_ = false;
  std::shared_ptr<Pexal::PBase::SharedMemDomain> domain_;
  std::shared_ptr<Pexal::PBase::SharedMemNode> node_;
};

/// What both ends of a channel begin with. `node` is empty when the configuration has no text
/// "name", or the channel's domain hasn't been joined.
struct ChannelStart {
  std::string name;
  std::shared_ptr<Pexal::PBase::SharedMemNode> node;
};
[[nodiscard]] ChannelStart startOn(MotionChannel channel, const Json::Value& config);

}  // namespace Robot::Motion
