#pragma once

#include <json/value.h>

#include <atomic>
#include <cstdint>
#include <memory>
#include <string>

#include "highlevel/IHighLevelMotionControl.h"
#include "highlevel/MotionLease.h"
#include "highlevel/RpcEnvelope.h"
#include "observed/IHighLevelObserved.h"
#include "orvane/RobotSdk/IMotionHighLevelClient.h"
#include "pbase/CMutex.h"
#include "pbase/CSemaphore.h"
#include "pbase/CThread.h"
#include "pdbus/IEventBus.h"

namespace orvane::RobotSdk {

struct MediaRequest;

/// The high-level client: its connection, its worker, its events and the application's callbacks.
/// The lease of control is MotionLease, the motion commands go through IHighLevelMotionControl.
///
/// Threading contract: public operations run on any thread, application callbacks included. There
/// are three kinds of SDK thread: the worker of a connection, the event bus's workers and the
/// observed source's threads. The first holds this object strongly while it runs, the others weakly
/// between two deliveries (on the robot board: between two looks at its buffers); so the object may
/// end on any of them, and its destructor waits for none.
/// One worker runs at a time. A connection made while the last one's worker is still on its way out
/// is started by that worker as its last act.
///
/// On a thread that runs an application callback, disconnect and connect return without waiting for
/// SDK threads. After a disconnect made anywhere else has returned, no callback runs or will begin
/// (one that doesn't return within a second is not waited for any longer).
///
/// Lock order: subscriptionMutex_, then mutex_, then a back end's own. layoutMutex_ is a leaf. None
/// is held across a request, a callback or the wait for a thread. The back end's setup, which logs
/// its failure, runs under mutex_; a logger callback doesn't call the SDK.
class MotionHighLevelClientImpl final
    : public IMotionHighLevelClient,
      public std::enable_shared_from_this<MotionHighLevelClientImpl>,
      public IObservedSink,
      private ILeaseHost {
 public:
  enum class Kind { kBoard, kBoardMaster, kRemote };

  /// Made by std::make_shared only. `deviceId`: the target robot of a kRemote client, else empty.
  MotionHighLevelClientImpl(Kind kind, std::string deviceId);
  ~MotionHighLevelClientImpl() override;
  MotionHighLevelClientImpl(const MotionHighLevelClientImpl&) = delete;
  MotionHighLevelClientImpl& operator=(const MotionHighLevelClientImpl&) = delete;

  bool disconnect() override;
  bool releaseMotionControl() override;
  std::uint32_t getState() override;
  std::uint32_t getLastError() override;
  bool connect(std::uint32_t leaseHintMs) override;
  void setSensorObservedCallback(SensorObservedCallback callback) override;
  void setEventCallback(EventCallback callback) override;
  void setConnectCallback(ConnectCallback callback) override;
  std::shared_ptr<IMediaBusClient> createMediaBusClient() override;
  void setMotionObservedCallback(MotionObservedCallback callback) override;
  bool getPowerObserved(ObservedPower* out, std::uint32_t maxAgeUs) override;
  bool getSensorObserved(ObservedSensorRecord* out, std::uint32_t maxAgeMs) override;
  bool stopPlayList(std::uint32_t timeoutMs) override;
  bool pausePlayList(std::uint32_t timeoutMs) override;
  bool getAudioPlayDetail(std::string* outJson, std::uint32_t timeoutMs) override;
  bool getCameraLightBrightness(std::string* outJson, std::uint32_t timeoutMs) override;
  bool setCameraLightBrightness(std::uint32_t brightness, std::uint32_t timeoutMs) override;
  bool startPlayList(const std::string& json, std::uint32_t timeoutMs) override;
  bool addAudioFile(const std::string& json, std::uint32_t timeoutMs) override;
  bool deleteAudioFile(const std::string& json, std::uint32_t timeoutMs) override;
  bool getAudioPlayList(const std::string& json, std::string* outJson,
                        std::uint32_t timeoutMs) override;
  bool stopMotionAction(std::uint32_t timeoutMs) override;
  bool takeMotionControl(std::uint32_t acquireLimitMs) override;
  bool emergencyStopMotion(std::uint32_t timeoutMs) override;
  bool recoveryStand(std::uint32_t timeoutMs) override;
  bool queryMotionState(std::string* outJson, std::uint32_t timeoutMs) override;
  bool getSystemStatus(std::string* outJson, std::uint32_t timeoutMs) override;
  bool getMotorLayout(MotorLayout* out, std::uint32_t timeoutMs) override;
  bool getMotionCapabilities(std::string* outJson, std::uint32_t timeoutMs) override;
  bool setMotionActionParams(const std::string& paramsJson, std::uint32_t timeoutMs) override;
  bool setMotionObservedEnable(const std::string& json, std::string* outJson,
                               std::uint32_t timeoutMs) override;
  bool startMotionAction(const std::string& action, const std::string& paramsJson,
                         std::uint32_t timeoutMs) override;
  bool disableAction(std::uint32_t timeoutMs) override;
  bool laying(std::uint32_t timeoutMs) override;
  bool standing(std::uint32_t timeoutMs) override;
  bool velocityMove(float lineX, float lineY, float velocity, std::uint32_t timeoutMs) override;

  void deliverMotionObserved(const ObservedMotionRecord& record) override;
  void deliverSensorObserved(const ObservedSensorRecord& record) override;

  // What the motion back ends need of their owner.
  [[nodiscard]] std::string clientId() const { return lease_.clientId(); }
  [[nodiscard]] const std::string& deviceId() const { return deviceId_; }
  void recordError(std::uint32_t code) override { lastError_.exchange(code); }

 private:
  /// One connect with its worker. A new wake semaphore each time: what wakes the last connection's
  /// worker can't be lost to the next one.
  struct Connection {
    ConnectionNumber number = 0;
    Pexal::PBase::CSemaphore wake{0};
    // Under mutex_.
    std::unique_ptr<Pexal::PBase::CThreadLite> worker;  // made when it starts
    bool finished = false;                              // the worker is past its last act
  };
  using ConnectionPtr = std::shared_ptr<Connection>;
  template <class Function>
  using Shared = std::shared_ptr<const Function>;  // copied under the mutex without an allocation

  // Connection and worker (MotionHighLevelClientImpl.cpp).
  struct Beginning;
  bool connectNow(std::uint32_t leaseHintMs);
  bool disconnectNow();
  [[nodiscard]] Beginning beginConnection(std::uint32_t leaseMs);
  void makeParts();
  bool startWorker(const ConnectionPtr& connection);
  bool awaitStart(const Connection& connection);
  void runWorker(Connection& connection);
  void serve(Connection& connection);
  void finishWorker();
  void followSubscriptions();

  // Callbacks (ClientCallbacks.cpp).
  template <class Function>
  void setCallback(const char* name, Shared<Function>& slot, Function callback);
  template <class Function, class... Arguments>
  void callBack(const char* name, const Shared<Function>& slot, ConnectionNumber connection,
                const Arguments&... arguments);
  void notifyConnect(ConnectionNumber connection, std::uint32_t state, std::uint32_t code) override;
  void onHostEvent(const std::string& topic, const Json::Value& payload);
  void onControlStatus(const std::string& topic, const Json::Value& payload);
  void awaitCallbacks();

  // Requests (MotionRequests.cpp, MediaRequests.cpp).
  [[nodiscard]] bool require(bool holds, std::uint32_t code);
  [[nodiscard]] bool requireControl();
  [[nodiscard]] bool requireConnection();
  [[nodiscard]] bool parseText(const std::string& text, std::uint32_t code, Json::Value& out);
  bool requestMedia(const MediaRequest& request, const Json::Value& params, std::string* outJson,
                    std::uint32_t timeoutMs);
  bool requestMediaText(const MediaRequest& request, const std::string& json, std::string* outJson,
                        std::uint32_t timeoutMs);
  [[nodiscard]] std::shared_ptr<IHighLevelMotionControl> motionControl();
  [[nodiscard]] std::shared_ptr<IHighLevelObserved> observed();
  [[nodiscard]] RpcRoute route();
  bool rpc(const char* method, const std::string& clientId, const Json::Value& params,
           Json::Value& output, std::uint32_t timeoutMs) override;
  bool sendAction(const char* method, const std::string& clientId,
                  const Json::Value& params) override;
  bool startMotion() override;
  bool claimMasterRole(std::uint32_t timeoutMs) override;
  void wakeWorker() override;

  const Kind kind_;
  const std::string deviceId_;
  const std::string serverName_;
  const std::string serviceName_;

  mutable Pexal::PBase::CMutex
      mutex_;  // guards all down to callbacksRunning_, and lease_'s changes
  std::shared_ptr<IHighLevelObserved> observed_;            // made by the first connect, then kept
  std::shared_ptr<IHighLevelMotionControl> motionControl_;  // made by the first connect, then kept
  std::shared_ptr<Pexal::PDBus::RPCClient> rpcClient_;      // anew at each connect
  std::shared_ptr<Pexal::PDBus::IEventBus> eventBus_;       // anew at each connect
  std::shared_ptr<IMediaBusClient> mediaBusClient_;
  ConnectionPtr current_;  // of the last connect
  ConnectionPtr working_;  // whose worker was started last; not current_ while that waits its turn
  Shared<ConnectCallback> connectCallback_;
  Shared<EventCallback> eventCallback_;
  Shared<MotionObservedCallback> motionCallback_;
  Shared<SensorObservedCallback> sensorCallback_;
  std::uint32_t callbacksRunning_ = 0;

  MotionLease lease_{*this, mutex_};
  std::atomic<std::uint32_t> lastError_{0};

  Pexal::PBase::CMutex subscriptionMutex_;  // guards subscribedBus_ and what is subscribed there
  std::shared_ptr<Pexal::PDBus::IEventBus> subscribedBus_;

  Pexal::PBase::CMutex layoutMutex_;  // guards layout_ and layoutValid_
  MotorLayout layout_{};
  bool layoutValid_ = false;
};

}  // namespace orvane::RobotSdk
