#pragma once

#include <json/value.h>

#include <atomic>
#include <memory>
#include <string>
#include <vector>

#include "EventOutbox.h"
#include "RobotCore.h"
#include "faults/Voice.h"
#include "pbase/CThread.h"
#include "pdbus/IEventBus.h"

namespace orvane::robot {

/// The robot's side of one deployment's event buses: answers discovery requests and sends what the
/// outbox holds to all of them, in order, from one thread ("robot:events"). What happens while the
/// robot is silent is never told; a robot that talks nonsense does so without being asked, too.
///
/// Threading contract: start and stop on the owner's thread, once each, start first. Discovery
/// requests arrive on the bus's workers; they take the robot mutex and release it before they
/// publish. Held by shared pointer, for the buses know it weakly.
class EventServer : public std::enable_shared_from_this<EventServer> {
 public:
  struct Bus {
    std::string server;  ///< topics begin with its name
    std::shared_ptr<Pexal::PDBus::IEventBus> bus;
  };

  EventServer(std::shared_ptr<RobotCore> core, std::shared_ptr<EventOutbox> outbox,
              std::vector<Bus> buses, std::string deviceId, std::shared_ptr<Voice> voice);

  /// False: a bus refuses the subscription or no thread could be had.
  [[nodiscard]] bool start();
  /// Sends what is still in the outbox (which it closes), then ends; bounded at about a second.
  void stop();

 private:
  void run();
  void tell(const std::string& topic, const Json::Value& payload);
  void publish(const Bus& bus, const std::string& topic, const Json::Value& payload);
  void unsubscribe();
  void onDiscover(const std::string& topic, const Json::Value& payload);
  [[nodiscard]] Pexal::PDBus::EventHandler discoverHandler();

  const std::shared_ptr<RobotCore> core_;
  const std::shared_ptr<EventOutbox> outbox_;
  const std::vector<Bus> buses_;
  const std::string deviceId_;
  const std::shared_ptr<Voice> voice_;
  std::atomic<bool> abandon_{false};  // stop waited long enough
  Pexal::PBase::CThreadLite thread_;
};

}  // namespace orvane::robot
