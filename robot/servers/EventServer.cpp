#include "servers/EventServer.h"

#include <utility>

#include "faults/Nonsense.h"
#include "pbase/CTime.h"
#include "pbase/ILogger.h"
#include "pbase/Utils.h"
#include "servers/Documents.h"

namespace orvane::robot {
namespace {

using Pexal::PBase::CThread;
using Pexal::PBase::CTime;

constexpr std::uint64_t kIdleUs = 200'000;
constexpr const char* kUnasked[] = {".control.status", ".host.event"};
constexpr std::uint64_t kDrainMs = 800;

}  // namespace

EventServer::EventServer(std::shared_ptr<RobotCore> core, std::shared_ptr<EventOutbox> outbox,
                         std::shared_ptr<Pexal::PDBus::IEventBus> bus, std::string server,
                         std::string deviceId, std::shared_ptr<Voice> voice)
    : core_(std::move(core)),
      outbox_(std::move(outbox)),
      bus_(std::move(bus)),
      server_(std::move(server)),
      deviceId_(std::move(deviceId)),
      voice_(std::move(voice)),
      thread_("robot:events", 0, 0, 0, [this] { run(); }) {}

bool EventServer::start() {
  const std::string topic = server_ + ".discoverDevice.request";
  if (!bus_->subscribe(topic, discoverHandler())) return false;
  if (thread_.createThread()) return true;
  bus_->unsubscribe(topic, discoverHandler());
  return false;
}

void EventServer::stop() {
  bus_->unsubscribe(server_ + ".discoverDevice.request", discoverHandler());
  outbox_->close();
  const std::uint64_t deadline = CTime::getCurrentMilliSecond() + kDrainMs;
  while (!thread_.isThreadOver()) {
    if (CTime::getCurrentMilliSecond() >= deadline) abandon_ = true;
    CThread::sleep(1);
  }
}

void EventServer::run() {
  while (!abandon_ && !outbox_->finished()) {
    const auto event = outbox_->take(CTime::getCurrentMicroSecond() + kIdleUs);
    if (!event) {
      if (!voice_->talksNonsense()) continue;
      for (const char* topic : kUnasked) publish(topic, Json::Value());
      continue;
    }
    Pexal::ILogger::instance()->log(1, "VirtualRobot", "%s %s\n", event->topic.c_str(),
                                    Pexal::Utils::jsonToString(event->payload).c_str());
    publish(event->topic, event->payload);
  }
}

void EventServer::publish(const std::string& topic, const Json::Value& payload) {
  if (voice_->isSilent()) return;
  bus_->publish(server_ + topic,
                voice_->talksNonsense() ? nonsenseEvent(voice_->nextTurn(), deviceId_) : payload);
}

Pexal::PDBus::EventHandler EventServer::discoverHandler() {
  return Pexal::PDBus::EventHandler::bind(weak_from_this(), &EventServer::onDiscover);
}

void EventServer::onDiscover(const std::string&, const Json::Value&) {
  Json::Value response;
  response["deviceNo"] = deviceId_;
  {
    RobotCore::Access robot = core_->access();
    response["detail"] = discoveryDocument(robot);
  }
  publish(".discoverDevice.response", response);
}

}  // namespace orvane::robot
