// The library between an application and a robot that answers and sends whatever it likes, on the
// virtual clock. One step per line:
//
//   reply <method> <text>   from now on the robot answers that method so; no JSON: it doesn't
//   reason <number>         the reason code that goes with the answers
//   event <text>            ".host.event"
//   control <text>          ".control.status"
//   found <text>            a discovery response
//   take | release | pass <milliseconds>
//   ask <operation> <text>  a call of the application, with that JSON text where it takes one
//
// In the end the robot behaves again, and the client must be able to take control, walk and let go.

#include <algorithm>
#include <cstring>
#include <iterator>
#include <map>
#include <memory>
#include <variant>

#include "FuzzSupport.h"
#include "highlevel/HighLevelFactory.h"
#include "highlevel/RpcEnvelope.h"
#include "orvane/RobotSdk/IMotionSdkService.h"
#include "scripted/ScriptedBus.h"
#include "service/ServiceAccess.h"

namespace {

using namespace orvane::RobotSdk;
using Pexal::Utils::stringToJson;

constexpr std::size_t kMostSteps = 48;
constexpr std::uint64_t kLongestPassMs = 120'000;
constexpr std::uint32_t kTimeoutMs = 1000;
constexpr std::uint32_t kHighestError = 10;
constexpr const char* kServer = "robotServer";

using Client = IMotionHighLevelClient;
using Commands = bool (Client::*)(std::uint32_t);
using Gives = bool (Client::*)(std::string*, std::uint32_t);
using Takes = bool (Client::*)(const std::string&, std::uint32_t);
using TakesAndGives = bool (Client::*)(const std::string&, std::string*, std::uint32_t);

/// The operations of the public interface that take JSON text, give some, or neither.
struct Operation {
  std::string_view name;
  std::variant<Commands, Gives, Takes, TakesAndGives> call;
};
constexpr Operation kOperations[] = {
    {"standing", &Client::standing},
    {"stopMotionAction", &Client::stopMotionAction},
    {"emergencyStopMotion", &Client::emergencyStopMotion},
    {"stopPlayList", &Client::stopPlayList},
    {"queryMotionState", &Client::queryMotionState},
    {"getMotionCapabilities", &Client::getMotionCapabilities},
    {"getSystemStatus", &Client::getSystemStatus},
    {"getAudioPlayDetail", &Client::getAudioPlayDetail},
    {"getCameraLightBrightness", &Client::getCameraLightBrightness},
    {"setMotionActionParams", &Client::setMotionActionParams},
    {"startPlayList", &Client::startPlayList},
    {"addAudioFile", &Client::addAudioFile},
    {"deleteAudioFile", &Client::deleteAudioFile},
    {"setMotionObservedEnable", &Client::setMotionObservedEnable},
    {"getAudioPlayList", &Client::getAudioPlayList},
};

/// Answers as the input says, and else as a robot that agrees to everything.
class ScriptedRobot {
 public:
  explicit ScriptedRobot(scripted::Bus& bus) {
    bus.onRequest([this](const scripted::Request& request) { return answer(request); });
  }
  void reply(std::string_view method, std::string_view text) {
    replies_[std::string(method)] = text;
  }
  void reason(std::uint32_t number) { reason_ = number; }
  void behave() {
    replies_.clear();
    reason_ = 0;
  }

 private:
  // The client's threads ask, but one at a time runs on the virtual clock.
  scripted::Reply answer(const scripted::Request& request) {
    checkRequest(request);
    const auto scripted = replies_.find(request.method);
    if (scripted == replies_.end()) return usual(request);
    scripted::Reply reply;
    reply.reason = reason_;
    constexpr auto kMalformed =
        static_cast<std::uint32_t>(Pexal::PDBus::RpcStatus::kMalformedReply);
    if (!stringToJson(scripted->second, reply.document)) reply.status = kMalformed;
    return reply;
  }
  scripted::Reply usual(const scripted::Request& request) {
    if (request.method != "takeMotionControl") return scripted::accepted();
    Json::Value grant(Json::objectValue);
    grant["controller"] = "controller-" + std::to_string(++grants_);
    grant["leaseTimeout"] = 30000;
    return scripted::accepted(grant);
  }
  static void checkRequest(const scripted::Request& request) {
    fuzz::require(request.document["call"]["clientId"].isString(), "a request says who asks");
    fuzz::require(fuzz::isJson(Pexal::Utils::jsonToString(request.document)), "a request is JSON");
  }

  std::map<std::string, std::string> replies_;
  std::uint32_t reason_ = 0;
  int grants_ = 0;
};

class Application {
 public:
  Application() {
    auto* const service = IMotionSdkService::instance();
    service->attachLoggerCallback([](std::uint32_t, const char*, int) {});
    service->attachRobotDiscoverCallback([](const std::string& device, const std::string& detail) {
      fuzz::require(!device.empty(), "a robot that was found has a name");
      fuzz::require(detail.empty() || fuzz::isJson(detail), "its details are JSON", detail);
    });
    fuzz::require(service->initial(nullptr, "fuzzer", 0), "the service starts");
    fuzz::require(service->discoverRobotDevice(1'000'000), "a discovery starts");
    client_ = makeRemoteHighLevelClient("dog-7");
    client_->setEventCallback([](const std::string&, const std::string& detail) {
      fuzz::require(fuzz::isJson(detail), "an event's details are JSON", detail);
    });
    client_->setConnectCallback([](std::uint32_t state, std::uint32_t code) {
      fuzz::require(state <= 2 && code <= kHighestError, "states and errors are known ones");
    });
    fuzz::require(client_->connect(60000), "the client connects");
    fuzz::virtualClock().advance(0);
  }
  ~Application() {
    fuzz::require(client_->disconnect(), "the client disconnects");
    client_.reset();
    fuzz::virtualClock().advance(100);
    IMotionSdkService::instance()->shutdown();
  }
  Application(const Application&) = delete;
  Application& operator=(const Application&) = delete;

  void play(std::string_view line) {
    const std::string_view verb = fuzz::takeUntil(line, ' ');
    if (verb == "reply") {
      const std::string_view method = fuzz::takeUntil(line, ' ');
      if (method == "getMotorLayout") checkLayout(line);
      robot_.reply(method, line);
    } else if (verb == "reason") {
      robot_.reason(static_cast<std::uint32_t>(fuzz::numberOf(line)));
    } else if (verb == "event") {
      inject("robotServer.host.event", line);
    } else if (verb == "control") {
      inject("robotServer.control.status", line);
    } else if (verb == "found") {
      inject("robotServer.discoverDevice.response", line);
    } else if (verb == "take") {
      fuzz::require(client_->takeMotionControl(0), "control can be asked for");
      fuzz::virtualClock().advance(3000);
    } else if (verb == "release") {
      static_cast<void>(client_->releaseMotionControl());
      fuzz::virtualClock().advance(0);
    } else if (verb == "pass") {
      fuzz::virtualClock().advance(
          static_cast<std::uint32_t>(std::min(fuzz::numberOf(line), kLongestPassMs)));
    } else if (verb == "ask") {
      const std::string_view method = fuzz::takeUntil(line, ' ');
      ask(method, std::string(line));
    }
    const std::uint32_t state = client_->getState();
    fuzz::require(state == 1 || state == 2, "a connected client stays connected");
    fuzz::require(client_->getLastError() <= kHighestError, "an error is a known one");
  }

  /// Everything works again once the robot does.
  void checkAlive() {
    robot_.behave();
    inject("robotServer.control.status", R"({"controlled": false, "controller": ""})");
    static_cast<void>(client_->releaseMotionControl());
    fuzz::virtualClock().advance(kLongestPassMs);  // whatever was going on has ended
    static_cast<void>(client_->releaseMotionControl());
    fuzz::virtualClock().advance(0);
    fuzz::require(client_->getState() == 1, "control ends");
    fuzz::require(client_->takeMotionControl(0), "control can be asked for");
    fuzz::virtualClock().advance(3000);
    fuzz::require(client_->getState() == 2, "a robot that behaves gives control");
    fuzz::require(client_->velocityMove(0.1F, 0, 0, kTimeoutMs), "and walks");
  }

 private:
  void inject(const char* topic, std::string_view text) {
    Json::Value payload;
    if (stringToJson(text, payload)) bus_.inject(kServer, topic, payload);
    fuzz::virtualClock().advance(0);
  }

  void ask(std::string_view name, const std::string& text) {
    if (name == "startMotionAction") {
      checkSent(client_->startMotionAction("walking", text, kTimeoutMs), text);
      return;
    }
    const auto operation = std::find_if(std::begin(kOperations), std::end(kOperations),
                                        [&](const Operation& row) { return row.name == name; });
    if (operation == std::end(kOperations)) return;
    if (const auto* command = std::get_if<Commands>(&operation->call)) {
      static_cast<void>((*client_.*(*command))(kTimeoutMs));
    } else if (const auto* takes = std::get_if<Takes>(&operation->call)) {
      checkSent((*client_.*(*takes))(text, kTimeoutMs), text);
    } else {
      const auto* gives = std::get_if<Gives>(&operation->call);
      std::string out = "untouched";
      const bool done = gives != nullptr ? (*client_.*(*gives))(&out, kTimeoutMs)
                                         : (*client_.*std::get<TakesAndGives>(operation->call))(
                                               text, &out, kTimeoutMs);
      if (gives == nullptr) checkSent(done, text);
      fuzz::require(done ? fuzz::isJson(out) : out == "untouched", "an answer is JSON", out);
    }
  }
  static void checkSent(bool sent, const std::string& text) {
    fuzz::require(!sent || text.empty() || fuzz::isJson(text), "what is no JSON isn't sent", text);
  }

  static void checkLayout(std::string_view text) {
    Json::Value reply;
    Json::Value document;
    if (!stringToJson(text, reply) || !readRpcReply(reply, document)) return;
    MotorLayout layout;
    std::memset(static_cast<void*>(&layout), 0x5a, sizeof layout);
    if (!service::parseMotorLayout(document, layout)) return;
    fuzz::require(layout.motorNum <= kMaxMotors && layout.motorNum == document["motors"].size(),
                  "a layout has as many motors as it says");
    for (const MotorLayoutEntry& motor : layout.motors) {
      fuzz::require(std::memchr(motor.name, 0, sizeof motor.name) != nullptr, "a name ends");
    }
  }

  scripted::Bus bus_;
  ScriptedRobot robot_{bus_};
  std::shared_ptr<IMotionHighLevelClient> client_;
};

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
  return fuzz::startOnVirtualClock();
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  return fuzz::playSteps<Application>(fuzz::textOf(data, size), kMostSteps);
}
