#pragma once

#include <json/value.h>

#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "EventOutbox.h"
#include "RobotCore.h"
#include "faults/Faults.h"
#include "pdbus/IDDSFactory.h"
#include "pdbus/RPC.h"
#include "publish/Publisher.h"
#include "servers/EventServer.h"

namespace orvane::robot {

/// The one robot that all sides show.
struct SharedRobot {
  std::string deviceId;
  std::shared_ptr<RobotCore> core;
  std::shared_ptr<Faults> faults;
};

/// A robot as the applications of one deployment meet it: request servers, events, observed state,
/// and the control service for scripted faults. It has a DDS context of its own, so that it can
/// live in the process of its client, and neither side waits for the other's peers.
///
/// Threading contract: all on the owner's thread; but the publisher, once open() has succeeded,
/// belongs to the control loop until that has ended. Each request server has a thread, the event
/// server one more.
class Side {
 public:
  virtual ~Side() = default;
  Side(const Side&) = delete;
  Side& operator=(const Side&) = delete;

  /// Joins DDS and prepares what is observed; nothing is said yet. False: `error` says why.
  [[nodiscard]] bool open(std::string& error);
  /// Once open.
  [[nodiscard]] Publisher& publisher() { return *publisher_; }
  /// Takes requests and tells of events from now on. False: `error` says why.
  [[nodiscard]] bool serve(std::string& error);
  /// Takes no more requests.
  void endRequests();
  /// Sends the events that are left and leaves DDS; bounded at a few seconds, also when no peer
  /// lives. When it wasn't opened nothing happens.
  void close();

 protected:
  struct Server {
    const char* name;
    const char* domain;
    const char* service;
  };
  struct Bus {
    const char* server;
    const char* domain;
  };
  /// What is served, and where.
  struct Plan {
    Json::Value domains;  ///< as in a document for the DDS layer
    std::vector<Server> servers;
    std::vector<Bus> buses;
    const char* controlDomain;  ///< of the control service
    std::string partition;      ///< the device id that clients send their requests to
  };

  Side(SharedRobot robot, std::shared_ptr<EventOutbox> outbox)
      : robot_(std::move(robot)), outbox_(std::move(outbox)) {}
  [[nodiscard]] const SharedRobot& robot() const { return robot_; }

 private:
  /// Why this can't be served here; nothing when it can.
  [[nodiscard]] virtual std::optional<std::string> obstacle() const = 0;
  [[nodiscard]] virtual Plan plan() const = 0;
  /// Why DDS wasn't joined.
  [[nodiscard]] virtual std::string joinFailure() const = 0;
  /// Throws std::exception.
  [[nodiscard]] virtual std::unique_ptr<Publisher> makePublisher(
      Pexal::PDBus::IDDSFactory& factory) = 0;
  /// Takes motor commands from now on, where there are any. False: `error` says why.
  [[nodiscard]] virtual bool openMotors(std::string& /*error*/) { return true; }
  /// Takes no more of them; the publisher still lives.
  virtual void closeMotors() {}

  [[nodiscard]] bool serveEvents(const Plan& plan, std::string& error);
  [[nodiscard]] bool addServer(const Plan& plan, const char* name, const char* domain,
                               Pexal::PDBus::RPCServer::Handler handler, std::string& error);

  const SharedRobot robot_;
  const std::shared_ptr<EventOutbox> outbox_;
  std::shared_ptr<Pexal::PDBus::IDDSFactory> factory_;
  std::unique_ptr<Publisher> publisher_;
  std::shared_ptr<EventServer> events_;
  std::vector<std::shared_ptr<Pexal::PDBus::RPCServer>> servers_;
};

}  // namespace orvane::robot
