// Events of a peer that speaks the wire types itself, to an event bus in the client's role and one
// in the server's. One event per line:
//
//   <publisher> <number> <milliseconds open> <topic> <payload>
//
// "a" and "b" are subscribed to. A model says which events arrive there, and in which order.

#include <algorithm>
#include <array>
#include <map>
#include <mutex>
#include <set>

#include "WireSupport.h"
#include "pbase/CMutex.h"
#include "pbase/CTime.h"
#include "pdbus/IEventBus.h"

namespace {

using namespace Pexal::PDBus;
using Pexal::PBase::CTime;

constexpr std::size_t kMostEvents = 48;
constexpr std::size_t kQueue = 16;
constexpr std::uint64_t kWindow = 512;
constexpr std::size_t kMaxTopic = 255;
constexpr std::array<const char*, 2> kTopics{"a", "b"};

struct Event {
  std::string publisher;
  std::uint64_t number;
  std::uint32_t openMs;
  std::string topic;
  std::string payload;
};

Event parse(std::string_view line) {
  Event event{};
  event.publisher = fuzz::takeUntil(line, ' ').substr(0, 4);
  event.publisher.resize(4);  // it is bytes on the wire: shorter ones end in zeros
  event.number = fuzz::numberOf(fuzz::takeUntil(line, ' '));
  event.openMs = static_cast<std::uint32_t>(fuzz::numberOf(fuzz::takeUntil(line, ' ')));
  event.topic = std::string(fuzz::takeUntil(line, ' ')).c_str();  // on the wire it ends at a zero
  event.payload = line;
  return event;
}

using Log = std::map<std::string, std::vector<Json::Value>>;  // by topic

/// One bus under test, the raw peer that writes to it, and what arrives.
class Side : public std::enable_shared_from_this<Side> {
 public:
  Side(std::shared_ptr<IEventBus> bus, dds_entity_t participant, const std::string& topic)
      : bus_(std::move(bus)),
        topic_(fuzz::rawTopic(participant, Pexal_PDBus_Event_desc, topic)),
        writer_(fuzz::rawWriter(participant, topic_, {})) {
    fuzz::require(bus_ != nullptr, "there is a bus");
  }
  void listen() {
    for (const char* const topic : kTopics) {
      const auto handler = EventHandler::bind(weak_from_this(), &Side::onEvent);
      fuzz::require(bus_->subscribe(topic, handler), "the bus is subscribed to");
    }
  }

  void send(const Event& event, std::uint32_t run) {
    Pexal_PDBus_Event sample{};
    std::copy(event.publisher.begin(), event.publisher.end(), sample.publisher);
    for (unsigned i = 0; i < 4; ++i) {
      sample.publisher[12 + i] = static_cast<std::uint8_t>(run >> (8 * i));
    }
    sample.number = event.number;
    sample.openMs = event.openMs;
    sample.topic = const_cast<char*>(event.topic.c_str());
    sample.payload = fuzz::octets(event.payload);
    fuzz::write(writer_, &sample);
  }

  /// All that arrived up to that last payload on each topic.
  Log take(const Json::Value& last) {
    std::unique_lock lock(mutex_);
    const bool complete =
        changed_.waitUntil(lock, CTime::getCurrentMicroSecond() + 1000ULL * fuzz::kPatienceMs, [&] {
          return std::all_of(kTopics.begin(), kTopics.end(), [&](const char* topic) {
            return !log_[topic].empty() && log_[topic].back() == last;
          });
        });
    fuzz::require(complete, "the bus goes on delivering");
    return std::exchange(log_, {});
  }

 private:
  void onEvent(const std::string& topic, const Json::Value& payload) {
    const std::lock_guard lock(mutex_);
    log_[topic].push_back(payload);
    changed_.notifyAll();
  }

  const std::shared_ptr<IEventBus> bus_;
  const fuzz::RawEntity topic_;
  const fuzz::RawEntity writer_;
  Pexal::PBase::CMutex mutex_;  // guards log_
  Pexal::PBase::CCondition changed_;
  Log log_;
};

/// Two buses, kept for all inputs: a server hands an event on when its sender can hear the answer,
/// so the peer that writes to it is the client's own participant.
struct World {
  static World& get() {
    static auto& world = *new World;
    return world;
  }
  World() {
    for (const auto& side : sides) side->listen();
  }

  const fuzz::Context server{
      R"("eventBus": [{"server": "robotServer", "domain": "host", "role": "server"}])"};
  const fuzz::Context client{R"("eventBus": [{"server": "robotServer", "domain": "host"}])"};
  const std::array<std::shared_ptr<Side>, 2> sides{
      std::make_shared<Side>(server.factory->eventBus(fuzz::kServer), client.participant(),
                             "robotServer/event/server"),
      std::make_shared<Side>(client.factory->eventBus(fuzz::kServer), server.participant(),
                             "robotServer/event/client")};
  std::uint32_t runs = 0;
};

/// What arrives on a bus, from the rules alone.
class Model {
 public:
  void add(const Event& event) {
    if (event.topic.empty() || event.topic.size() > kMaxTopic) return;
    if (!isNew(event)) return;
    Json::Value payload;
    if (std::find(kTopics.begin(), kTopics.end(), event.topic) == kTopics.end()) return;
    ++queued[event.topic];
    if (Pexal::Utils::stringToJson(event.payload, payload))
      arriving[event.topic].push_back(payload);
  }
  Log arriving;
  std::map<std::string, std::size_t> queued;  ///< those that can't be read included

 private:
  bool isNew(const Event& event) {
    auto& seen = seen_[{event.publisher, event.openMs > 0}];
    if (event.number == 0 || seen.count(event.number) > 0) return false;
    const std::uint64_t highest = seen.empty() ? 0 : *seen.rbegin();
    if (highest > event.number && highest - event.number >= kWindow) return false;
    seen.insert(event.number);
    return true;
  }

  std::map<std::pair<std::string, bool>, std::set<std::uint64_t>> seen_;
};

bool isSubsequence(const std::vector<Json::Value>& part, const std::vector<Json::Value>& whole) {
  auto position = whole.begin();
  for (const Json::Value& value : part) {
    position = std::find(position, whole.end(), value);
    if (position == whole.end()) return false;
    ++position;
  }
  return true;
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
  fuzz::silenceLog();
  World::get();
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  World& world = World::get();
  const std::uint32_t run = ++world.runs;
  std::vector<Event> events;
  for (const auto line : fuzz::linesOf(fuzz::textOf(data, size), kMostEvents)) {
    events.push_back(parse(line));
  }
  const std::string last = "the last of run " + std::to_string(run);
  for (std::uint64_t i = 0; i < kTopics.size(); ++i) {
    events.push_back({"last!", i + 1, 0, kTopics[i], '"' + last + '"'});
  }
  Model model;
  for (const Event& event : events) {
    model.add(event);
    for (const auto& side : world.sides) side->send(event, run);
  }
  for (const auto& side : world.sides) {
    Log arrived = side->take(last);
    for (const char* const topic : kTopics) {
      const auto& expected = model.arriving[topic];
      // A queue that is full loses its oldest events.
      fuzz::require(model.queued[topic] <= kQueue ? arrived[topic] == expected
                                                  : isSubsequence(arrived[topic], expected),
                    "the events that count arrive, in order", topic);
    }
  }
  return 0;
}
