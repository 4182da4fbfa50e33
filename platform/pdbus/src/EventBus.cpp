#include <algorithm>
#include <atomic>
#include <exception>
#include <utility>
#include <vector>

#include "EndpointLife.h"
#include "Endpoints.h"
#include "EventBusCore.h"
#include "EventBusDispatcher.h"
#include "pbase/ILogger.h"
#include "pbase/Utils.h"

namespace Pexal::PDBus {
namespace {

/// Threading: any thread calls anything, handlers included. The workers and the housekeeping thread
/// hold what they work on by themselves, so that a worker which is stuck in a handler can be left
/// behind at the stop; it then ends by itself and calls nothing any more.
class EventBus final : public EventBusEndpoint {
 public:
  explicit EventBus(const EventBusSettings& settings)
      : server_(settings.server),
        dispatcher_(std::make_shared<EventBusDispatcher>(
            settings.server, settings.maxTopics,
            std::clamp<std::size_t>(settings.queuePerTopic, 1, kMaxQueue))),
        core_(std::make_shared<EventBusCore>(settings, dispatcher_)) {}
  ~EventBus() override { EventBus::finishStop(); }

  bool open(dds_entity_t participant, std::size_t workers) {
    if (!core_->open(participant)) return false;
    if (!housekeeper_.start("pdbus:bus", [core = core_] { core->housekeep(); })) return false;
    for (std::size_t i = 0; i < std::clamp<std::size_t>(workers, 1, kMaxWorkers); ++i) {
      workers_.push_back(std::make_unique<EndpointThread>());
      if (!workers_.back()->start("pdbus:event", [work = dispatcher_] { work->work(); }))
        return false;
    }
    return true;
  }

  bool publish(const std::string& topic, const Json::Value& payload,
               std::uint32_t openMs) override {
    try {
      return core_->publish(topic, Utils::jsonToString(payload), openMs);
    } catch (const std::exception& failure) {  // a payload that can't be printed, no memory
      ILogger::instance()->log(4, kLogTag, "event bus %s: publish: %s\n", server_.c_str(),
                               failure.what());
      return false;
    }
  }
  bool subscribe(const std::string& topic, const EventHandler& handler) override {
    return dispatcher_->subscribe(topic, handler);
  }
  bool unsubscribe(const std::string& topic, const EventHandler& handler) override {
    return dispatcher_->unsubscribe(topic, handler);
  }

  void beginStop() override {
    dispatcher_->beginStop();
    core_->beginStop();
  }

  void finishStop() override {
    beginStop();
    if (finished_.exchange(true)) return;
    const std::uint64_t deadlineUs = deadlineAfter(kHandlerMs);
    for (const auto& worker : workers_) {
      if (!worker->awaitEnd(deadlineUs) && !worker->isCurrentThread()) {
        ILogger::instance()->log(
            3, kLogTag, "event bus %s: left a handler behind that doesn't end\n", server_.c_str());
      }
    }
    housekeeper_.awaitEnd(deadlineAfter(kHousekeepingMs));
  }

 private:
  static constexpr std::size_t kMaxWorkers = 16;
  static constexpr std::size_t kMaxQueue = 4096;
  static constexpr std::uint64_t kHandlerMs = 1000;
  static constexpr std::uint64_t kHousekeepingMs = 4000;  // a lingering writer, senders that leave

  const std::string server_;
  const std::shared_ptr<EventBusDispatcher> dispatcher_;
  const std::shared_ptr<EventBusCore> core_;
  EndpointThread housekeeper_;
  std::vector<std::unique_ptr<EndpointThread>> workers_;  // as open() left it
  std::atomic<bool> finished_{false};
};

}  // namespace

std::shared_ptr<EventBusEndpoint> makeEventBus(dds_entity_t participant,
                                               const EventBusSettings& settings) {
  auto bus = std::make_shared<EventBus>(settings);
  if (!bus->open(participant, settings.workers)) return nullptr;
  return bus;
}

}  // namespace Pexal::PDBus
