#include "VirtualRobot.h"

#include <utility>

#include "Network.h"
#include "body/KinematicBody.h"
#include "pbase/ILogger.h"

namespace orvane::robot {
namespace {

using Pexal::PDBus::IDDSFactory;
using Pexal::PDBus::RpcRequest;
using Pexal::PDBus::RPCServer;

constexpr const char* kEventServer = "robotServer";
constexpr const char* kRequestServers[] = {"robotServer", "cerebellumServer"};

Json::Value robotDocument(const RobotSettings& settings) {
  Json::Value document = ddsDocument(settings.interface, settings.domain, settings.lossPercent);
  Json::Value bus;
  bus["server"] = kEventServer;
  bus["domain"] = kHostDomain;
  bus["role"] = "server";
  bus["topics"] = 16;
  bus["workers"]["count"] = 1;
  bus["workers"]["task"] = 16;
  document["eventBus"].append(std::move(bus));
  return document;
}

}  // namespace

VirtualRobot::VirtualRobot(RobotSettings settings)
    : settings_(std::move(settings)),
      outbox_(std::make_shared<EventOutbox>(settings_.deviceId)),
      core_(std::make_shared<RobotCore>(std::make_unique<KinematicBody>(settings_.chargePercent),
                                        outbox_)),
      faults_(std::make_shared<Faults>(
          core_, std::make_shared<RequestServer>(core_, settings_.deviceId))) {}

VirtualRobot::~VirtualRobot() {
  stop();
}

bool VirtualRobot::start(std::string& error) {
  if (used_) {
    error = "this robot was started before";
    return false;
  }
  if (auto wrong = settingsError(settings_.deviceId, settings_.interface, settings_.domain)) {
    error = *std::move(wrong);
    return false;
  }
  if (auto wrong = lossError(settings_.lossPercent)) {
    error = *std::move(wrong);
    return false;
  }
  used_ = true;
  factory_ = IDDSFactory::create();
  if (!factory_->initial(robotDocument(settings_))) {
    error = joinFailure(settings_.interface, settings_.domain);
    factory_.reset();
    return false;
  }
  if (serve(error)) return true;
  stop();
  return false;
}

// Before anything is served: a robot that is to be silent from the start says nothing at all.
bool VirtualRobot::applyFaults(std::string& error) {
  Faults::Outcome outcome = faults_->applyAll(settings_.faults);
  error = std::move(outcome.error);
  if (!outcome.done) return false;
  if (faults_->start()) return true;
  error = "no thread for scripted faults";
  return false;
}

bool VirtualRobot::serve(std::string& error) {
  if (!applyFaults(error)) return false;
  try {
    publisher_ = std::make_unique<ObservedPublisher>(factory_->participant(kHostDomain),
                                                     settings_.deviceId, faults_->voice());
  } catch (const dds::core::Exception& failure) {
    error = std::string("can't publish: ") + failure.what();
    return false;
  }
  auto bus = factory_->eventBus(kEventServer);
  if (bus == nullptr) {
    error = "no event bus";
    return false;
  }
  auto events = std::make_shared<EventServer>(core_, outbox_, std::move(bus), kEventServer,
                                              settings_.deviceId, faults_->voice());
  if (!events->start()) {
    error = "can't serve events";
    return false;
  }
  events_ = std::move(events);
  loop_ = std::make_unique<ControlLoop>(*core_, *publisher_);
  if (!loop_->start()) {
    error = "no thread for the control loop";
    return false;
  }
  return serveRequests(error);
}

bool VirtualRobot::serveRequests(std::string& error) {
  for (const char* name : kRequestServers) {
    const auto handle = [faults = faults_](const RpcRequest& request) {
      return faults->requests().handle(request);
    };
    if (!addServer(name, handle, error)) return false;
  }
  const auto handle = [service = FaultService(faults_)](const RpcRequest& request) {
    return service.handle(request);
  };
  return addServer(FaultService::kServer, handle, error);
}

bool VirtualRobot::addServer(const char* name, RPCServer::Handler handler, std::string& error) {
  auto server =
      RPCServer::create(factory_, kHostDomain, name, settings_.deviceId, std::move(handler));
  if (server == nullptr) {
    error = std::string("can't serve ") + name;
    return false;
  }
  servers_.push_back(std::move(server));
  return true;
}

void VirtualRobot::stop() {
  if (factory_ == nullptr) return;
  faults_->stop();
  for (const auto& server : servers_) server->stop();
  servers_.clear();
  {
    RobotCore::Access robot = core_->access();
    robot.arbiter().revoke(robot.nowMs());
  }
  loop_.reset();
  if (events_ != nullptr) events_->stop();
  publisher_.reset();
  factory_->shutdown();
  events_.reset();
  factory_.reset();
}

RobotStatus VirtualRobot::status() {
  RobotCore::Access robot = core_->access();
  RobotStatus status;
  status.posture = robot.motion().posture();
  if (const auto& grant = robot.arbiter().current()) {
    status.holder = grant->holder;
    status.controller = grant->controller;
    status.remainingMs = grant->untilMs - robot.nowMs();
  }
  status.velocity = robot.body().velocity;
  status.position = robot.body().position;
  status.yaw = robot.body().yaw;
  status.chargePercent = robot.body().battery.chargePercent;
  status.lastRefusal = robot.lastRefusal();
  return status;
}

}  // namespace orvane::robot
