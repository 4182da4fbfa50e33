#pragma once

#include <atomic>
#include <memory>
#include <string>
#include <thread>

#include "harness/Collector.h"
#include "harness/Role.h"
#include "orvane/RobotSdk/Records.h"
#include "peers/RawDds.h"
#include "peers/SdkSession.h"

namespace bench {

/// A reader of the observed topics. Commands:
///  - "attach", "detach": begins and ends to read;
///  - "collect", with "count": {"ns": [...] from the robot's write to the entry into the receiving
///    code, "allocations": of the process per sample, "threadAllocations": of the receiving thread
///    per sample}. Attached.
class ObserverRole : public Role {
 public:
  Json::Value handle(const Json::Value& command) override;

 protected:
  static constexpr std::uint32_t kMostSamples = 100'000;

  virtual void attach() = 0;
  virtual void detach() = 0;

  Collector collector_{kMostSamples};

 private:
  Json::Value collect(std::uint32_t count);
};

/// Through the library: its motion observed callback. {"device"}. Knows "connect" besides, which
/// connects without switching the streams on.
class SdkObserver final : public ObserverRole {
 public:
  explicit SdkObserver(const Json::Value& arguments);
  ~SdkObserver() override;
  Json::Value handle(const Json::Value& command) override;

 private:
  void attach() override;
  void detach() override;

  SdkSession session_;
  std::shared_ptr<SdkSession::Client> client_;
};

/// Through libddsc: for each of the two topics a reader and a thread that waits in a wait set of
/// its own. {"domain"}.
class RawObserver final : public ObserverRole {
 public:
  explicit RawObserver(const Json::Value& arguments);
  ~RawObserver() override;

 private:
  struct Stream {
    dds_entity_t topic = 0;
    dds_entity_t reader = 0;
    dds_entity_t waitSet = 0;
    dds_entity_t stop = 0;
    std::thread thread;
  };

  void attach() override;
  void detach() override;
  template <class Sample, class Use>
  void open(Stream& stream, const dds_topic_descriptor_t& type, const char* name, Use use);
  static void close(Stream& stream);

  RawParticipant participant_;
  Stream motion_;
  Stream sensor_;
  std::atomic<std::uint64_t> sensorSamples_{0};
};

/// A client of the library whose motion callback can be made to block, while its sensor stream and
/// its requests are measured. {"device"}: a StandInRobot with "sensorEvery" 2; {"do": "measure",
/// "ms", "blocked"} gives {"sensorNs", "requestNs", "blockedCalls"}. It asks as long after a motion
/// sample as the sensor samples are written, in the periods without one.
class BlockedObserver final : public Role {
 public:
  explicit BlockedObserver(const Json::Value& arguments);
  ~BlockedObserver() override;
  Json::Value handle(const Json::Value& command) override;

 private:
  SdkSession session_;
  std::shared_ptr<SdkSession::Client> client_;
  Collector sensor_{1'000'000};
  std::atomic<bool> blocked_{false};
  std::atomic<std::uint32_t> blockedCalls_{0};
  std::atomic<std::int64_t> sensorWrittenNs_{0};
};

}  // namespace bench
