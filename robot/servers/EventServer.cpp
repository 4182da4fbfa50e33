#include "servers/EventServer.h"

#include <algorithm>
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

std::string discoverTopic(const EventServer::Bus& bus) {
  return bus.server + ".discoverDevice.request";
}

}  // namespace

EventServer::EventServer(std::shared_ptr<RobotCore> core, std::shared_ptr<EventOutbox> outbox,
                         std::vector<Bus> buses, std::string deviceId, std::shared_ptr<Voice> voice)
    : core_(std::move(core)),
      outbox_(std::move(outbox)),
      buses_(std::move(buses)),
      deviceId_(std::move(deviceId)),
      voice_(std::move(voice)),
      thread_("robot:events", 0, 0, 0, [this] { run(); }) {}

bool EventServer::start() {
  const bool subscribed = std::all_of(buses_.begin(), buses_.end(), [this](const Bus& bus) {
    return bus.bus != nullptr && bus.bus->subscribe(discoverTopic(bus), discoverHandler());
  });
  if (subscribed && thread_.createThread()) return true;
  unsubscribe();
  return false;
}

void EventServer::stop() {
  unsubscribe();
  outbox_->close();
  const std::uint64_t deadline = CTime::getCurrentMilliSecond() + kDrainMs;
  while (!thread_.isThreadOver()) {
    if (CTime::getCurrentMilliSecond() >= deadline) abandon_ = true;
    CThread::sleep(1);
  }
}

void EventServer::unsubscribe() {
  for (const Bus& bus : buses_) {
    if (bus.bus != nullptr) bus.bus->unsubscribe(discoverTopic(bus), discoverHandler());
  }
}

void EventServer::run() {
  while (!abandon_ && !outbox_->finished()) {
    const auto event = outbox_->take(CTime::getCurrentMicroSecond() + kIdleUs);
    if (!event) {
      if (!voice_->talksNonsense()) continue;
      for (const char* topic : kUnasked) tell(topic, Json::Value());
      continue;
    }
    Pexal::ILogger::instance()->log(1, "VirtualRobot", "%s %s\n", event->topic.c_str(),
                                    Pexal::Utils::jsonToString(event->payload).c_str());
    tell(event->topic, event->payload);
  }
}

void EventServer::tell(const std::string& topic, const Json::Value& payload) {
  for (const Bus& bus : buses_) publish(bus, topic, payload);
}

void EventServer::publish(const Bus& bus, const std::string& topic, const Json::Value& payload) {
  if (voice_->isSilent()) return;
  bus.bus->publish(bus.server + topic, voice_->talksNonsense()
                                           ? nonsenseEvent(voice_->nextTurn(), deviceId_)
                                           : payload);
}

Pexal::PDBus::EventHandler EventServer::discoverHandler() {
  return Pexal::PDBus::EventHandler::bind(weak_from_this(), &EventServer::onDiscover);
}

void EventServer::onDiscover(const std::string& topic, const Json::Value&) {
  const auto asked = std::find_if(buses_.begin(), buses_.end(),
                                  [&](const Bus& bus) { return discoverTopic(bus) == topic; });
  if (asked == buses_.end()) return;
  Json::Value response;
  response["deviceNo"] = deviceId_;
  {
    RobotCore::Access robot = core_->access();
    response["detail"] = discoveryDocument(robot);
  }
  publish(*asked, ".discoverDevice.response", response);
}

}  // namespace orvane::robot
