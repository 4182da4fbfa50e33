#pragma once

#include <json/value.h>

#include <functional>
#include <memory>

#include "pbase/PrioMutex.h"
#include "pbase/SharedMem.h"
#include "shm/MotionChannel.h"
#include "shm/MotionRecords.h"

namespace Robot::Motion {

/// The reading end of a channel: made (by std::make_shared), initialised, open, closed. A closed
/// one isn't opened again; another one is made.
///
/// Threading contract: any thread. The callback runs on the platform's delivery thread, with no
/// lock held; that thread holds this object weakly between two records and strongly during one, so
/// the object may end there. close, and the destructor, wait for the end of a callback, unless they
/// run inside it. lock_ guards all below it; nothing but the platform's own locks is taken under
/// it.
template <class Record>
class ShareMotionReader : public std::enable_shared_from_this<ShareMotionReader<Record>> {
 public:
  /// The record lives for the length of the call. Must not throw.
  using Callback = std::function<void(const Record*)>;

  ShareMotionReader() = default;
  ShareMotionReader(const ShareMotionReader&) = delete;
  ShareMotionReader& operator=(const ShareMotionReader&) = delete;

  /// Subscribes to the channel that `config` names under "name"; there need be no publisher. False:
  /// was initialised before, there is no such text, the channel's ShareMotionDomain isn't
  /// initialised, or the platform can't switch the subscriber on.
  [[nodiscard]] bool init(const Json::Value& config);
  /// Opens: from now on the callback gets every record. Once open, it replaces the callback. False
  /// before init and after close.
  bool initial(Callback callback);
  /// No callback begins once this has returned.
  void close();

 private:
  void deliver(const Pexal::PBase::SharedMemBuffer& chunk);

  Pexal::PBase::PrioMutex lock_;
  bool initialised_ = false;
  bool open_ = false;
  std::shared_ptr<Pexal::PBase::SharedMemSubscriber> subscriber_;
  std::shared_ptr<const Callback> callback_;  // shared: copied per record without an allocation
};

/// The motion process's end of the control channel.
using ShareMotionCtrlReader = ShareMotionReader<ShareLowLevelMotionCtrlData>;
/// The client's end of the data channel.
using ShareMotionDataReader = ShareMotionReader<ShareLowLevelMotionData>;

extern template class ShareMotionReader<ShareLowLevelMotionCtrlData>;
extern template class ShareMotionReader<ShareLowLevelMotionData>;

}  // namespace Robot::Motion
