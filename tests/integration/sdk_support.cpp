#include "sdk_support.h"

#include <json/json.h>

#include <algorithm>
#include <sstream>

namespace sdk_test {
namespace {

constexpr std::uint32_t kDaemonSeconds = 30;  // on the robot board only

Json::Value stateMember(const Client& client, const char* path) {
  std::string text;
  if (!client->queryMotionState(&text, kRequestMs)) return {};
  Json::Value document;
  std::istringstream stream(text);
  if (!Json::parseFromStream(Json::CharReaderBuilder(), stream, &document, nullptr)) return {};
  return Json::Path(path).resolve(document);
}

Client connected(std::shared_ptr<IMotionHighLevelClient> handle, std::uint32_t leaseMs) {
  Client client{std::move(handle), nullptr};
  if (!client.handle) return client;
  client.seen = Seen::watch(*client.handle);
  if (!client->connect(leaseMs)) client.handle.reset();
  return client;
}

}  // namespace

Sdk::Sdk(std::function<void()> onAnswer) {
  auto* service = IMotionSdkService::instance();
  service->setNetworkInterface("lo");
  service->attachRobotDiscoverCallback(
      [answers = answers_, onAnswer](const std::string& deviceNo, const std::string&) {
        {
          const std::lock_guard lock(answers->mutex);
          ++answers->count[deviceNo];
        }
        if (onAnswer) onAnswer();
      });
  initialised_ = service->initial(nullptr, "sdkTest", kDaemonSeconds);
}

Sdk::~Sdk() {
  IMotionSdkService::instance()->shutdown();
}

std::map<std::string, int> Sdk::answers() const {
  const std::lock_guard lock(answers_->mutex);
  return answers_->count;
}

std::shared_ptr<Seen> Seen::watch(IMotionHighLevelClient& client) {
  auto seen = std::make_shared<Seen>();
  client.setConnectCallback([seen](std::uint32_t state, std::uint32_t code) {
    const std::lock_guard lock(seen->mutex_);
    seen->states_.emplace_back(state, code);
  });
  client.setEventCallback([seen](const std::string&, const std::string& detail) {
    const std::lock_guard lock(seen->mutex_);
    seen->events_.push_back(detail);
  });
  client.setMotionObservedCallback([seen](const orvane::RobotSdk::ObservedMotionRecord& record) {
    const std::lock_guard lock(seen->mutex_);
    seen->motion_.push_back(record);
  });
  client.setSensorObservedCallback([seen](const orvane::RobotSdk::ObservedSensorRecord& record) {
    const std::lock_guard lock(seen->mutex_);
    seen->sensor_.push_back(record);
  });
  return seen;
}

std::shared_ptr<Seen> Seen::watch(IMotionLowLevelClient& client) {
  auto seen = std::make_shared<Seen>();
  client.setStateCallback([seen](std::uint32_t state, std::uint32_t code) {
    const std::lock_guard lock(seen->mutex_);
    seen->states_.emplace_back(state, code);
  });
  return seen;
}

std::vector<Seen::State> Seen::states() const {
  const std::lock_guard lock(mutex_);
  return states_;
}

bool Seen::reported(State state) const {
  const std::lock_guard lock(mutex_);
  return std::find(states_.begin(), states_.end(), state) != states_.end();
}

std::vector<std::string> Seen::events() const {
  const std::lock_guard lock(mutex_);
  return events_;
}

std::vector<orvane::RobotSdk::ObservedMotionRecord> Seen::motion() const {
  const std::lock_guard lock(mutex_);
  return motion_;
}

std::vector<orvane::RobotSdk::ObservedSensorRecord> Seen::sensor() const {
  const std::lock_guard lock(mutex_);
  return sensor_;
}

void Seen::forgetStates() {
  const std::lock_guard lock(mutex_);
  states_.clear();
}

Client connectTo(const std::string& device, std::uint32_t leaseMs) {
  return connected(IMotionHighLevelClient::create(device), leaseMs);
}

Client connectOnBoard(bool asMaster, std::uint32_t leaseMs) {
  return connected(IMotionHighLevelClient::create(asMaster), leaseMs);
}

bool takeControl(const Client& client, std::uint32_t limitMs) {
  client.seen->forgetStates();
  if (!client->takeMotionControl(limitMs)) return false;
  static_cast<void>(waitUntil([&] { return !client.seen->states().empty(); }, limitMs + kLimitMs));
  return client.seen->reported({kInControl, 0});
}

bool enableStreams(const Client& client) {
  std::string accepted;
  return client->setMotionObservedEnable(R"({"motionEnable":true,"sensorEnable":true})", &accepted,
                                         kRequestMs);
}

bool seesMore(const Client& client) {
  const auto motion = client.seen->motion().size();
  const auto sensor = client.seen->sensor().size();
  return waitUntil([&] {
    return client.seen->motion().size() > motion + 5 && client.seen->sensor().size() > sensor + 5;
  });
}

std::string stateText(const Client& client, const char* path) {
  const Json::Value value = stateMember(client, path);
  return value.isString() ? value.asString() : std::string();
}

double stateNumber(const Client& client, const char* path) {
  const Json::Value value = stateMember(client, path);
  return value.isNumeric() ? value.asDouble() : -1;
}

}  // namespace sdk_test
