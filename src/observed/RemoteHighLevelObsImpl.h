#pragma once

#include <cstdint>
#include <dds/dds.hpp>
#include <functional>
#include <memory>
#include <string>

#include "msg/MotionTypes.h"
#include "observed/IHighLevelObserved.h"
#include "pbase/CThread.h"
#include "pdbus/IDDSSubcriber.h"

namespace orvane::RobotSdk {

/// The observed state of a robot on the network, from the topics "motion/observed" and
/// "sensor/observed".
///
/// Threading contract: three kinds of thread come here.
///  - The owner's worker calls start and stop, one at a time. stop may also run inside one of this
///    source's deliveries.
///  - The thread "robotSdk:HLRObs" runs the wait loop. It touches the loop's own shared state only,
///    never this object.
///  - Each reader's thread stores and delivers samples. It holds this object weakly between samples
///    and strongly during one, so the last reference may well end there.
/// `mutex` is the only lock of this object and a leaf: readers are made, removed and destroyed
/// outside it, and deliveries and log lines happen outside it.
class RemoteHighLevelObsImpl final : public IHighLevelObserved,
                                     public std::enable_shared_from_this<RemoteHighLevelObsImpl> {
 public:
  /// Made by makeRemoteObserved, as part of a shared pointer.
  RemoteHighLevelObsImpl(std::weak_ptr<IObservedSink> owner, std::string deviceId);
  ~RemoteHighLevelObsImpl() override;
  RemoteHighLevelObsImpl(const RemoteHighLevelObsImpl&) = delete;
  RemoteHighLevelObsImpl& operator=(const RemoteHighLevelObsImpl&) = delete;

  /// Makes both readers. Needs no peer: samples come when one appears.
  bool start() override;
  /// Returns within a few milliseconds when no delivery is under way; else waits for its end,
  /// unless called from inside it.
  void stop() override;

 private:
  using MotionSample = msg::dds_::MotionObserved_;
  using SensorSample = msg::dds_::SensorObserved_;

  /// A topic's reader with the subscriber that made it.
  template <class T>
  struct Channel {
    std::shared_ptr<Pexal::PDBus::MSGDDSReader<T>> reader;
    std::shared_ptr<Pexal::PDBus::IDDSSubcriber> subscriber;

    /// Ends the reader's callbacks.
    void close();
  };
  class WaitLoop;

  template <class T>
  [[nodiscard]] Channel<T> openChannel(const Json::Value& configuration, const char* defaultTopic,
                                       std::function<void(const T&)> onData) const;
  /// Keeps the readers and starts the wait loop; false when the system can't.
  bool beginWaiting(const Channel<MotionSample>& motion, const Channel<SensorSample>& sensor);

  void takeMotion(const MotionSample& sample);
  void takeSensor(const SensorSample& sample);

  const std::string deviceId_;
  Channel<MotionSample> motion_;  // changed under mutex
  Channel<SensorSample> sensor_;  // changed under mutex
  const std::shared_ptr<WaitLoop> loop_;
  std::unique_ptr<Pexal::PBase::CThread> thread_;
};

}  // namespace orvane::RobotSdk
