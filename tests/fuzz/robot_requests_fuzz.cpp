// Requests to the virtual robot, on the virtual clock. One step per line:
//
//   <method> <document>             a request; "@" as client id is the controller granted last
//   <service>/<method> <document>
//   pass <milliseconds>             time passes
//   address <device id> <interface> a robot's address as on the command line
//
// Every answer is well formed, the robot stays within its limits, and it goes on answering.

#include <algorithm>
#include <cmath>
#include <memory>
#include <optional>

#include "EventOutbox.h"
#include "FuzzSupport.h"
#include "Network.h"
#include "RobotCore.h"
#include "body/KinematicBody.h"
#include "servers/RequestServer.h"

namespace {

using namespace orvane::robot;
using Pexal::PDBus::RpcReply;
using Pexal::PDBus::RpcStatus;
using Pexal::Utils::jsonToString;

constexpr std::size_t kMostSteps = 64;
constexpr std::uint64_t kLongestPassMs = 700'000;  // longer than any lease
constexpr std::uint32_t kStepMs = 10;              // the longest that a body takes
constexpr std::uint32_t kMostControlSteps = 400;   // per pass: standing up takes 3 s

class FuzzedRobot {
 public:
  void play(std::string_view line) {
    const std::string_view method = fuzz::takeUntil(line, ' ');
    if (method == "pass") {
      pass(fuzz::numberOf(line));
    } else if (method == "address") {
      const std::string_view device = fuzz::takeUntil(line, ' ');
      checkAddress(std::string(device), std::string(line));
    } else {
      request(method, line);
    }
  }

  void checkAlive() {
    Json::Value document;
    document["call"]["clientId"] = "prober";
    const RpcReply reply =
        server_.handle({RequestServer::kService, "queryMotionState", document, false});
    const Json::Value& state = reply.document["params"];
    fuzz::require(reply.document["result"] == Json::Value(true) && state["posture"].isString() &&
                      state["control"]["controlled"].isBool(),
                  "the robot goes on answering", jsonToString(reply.document));
    for (const char* const member : {"x", "y", "yaw"}) {
      fuzz::require(std::isfinite(state["odometry"][member].asDouble()), "odometry is finite");
    }
    RobotCore::Access robot = core_->access();
    fuzz::require(std::abs(robot.body().velocity.x) <= 1.01 &&
                      std::abs(robot.body().velocity.y) <= 0.41 &&
                      std::abs(robot.body().velocity.yaw) <= 1.51,
                  "the robot keeps to its speeds", jsonToString(state));
    fuzz::require(
        robot.arbiter().current().has_value() || robot.motion().posture() != Posture::kWalking,
        "nobody in control means no walk", jsonToString(state));
    checkMedia(robot.media());
  }

 private:
  static void checkMedia(const MediaRoom& media) {
    fuzz::require(media.light.brightness() <= CameraLight::kBrightest, "the light keeps its range");
    std::uint64_t bytes = media.files.freeBytes();
    for (const auto& [name, file] : media.files.all()) {
      fuzz::require(
          !name.empty() && name.front() != '.' && name.find_first_of("/\\") == std::string::npos,
          "a file's name is no path", name);
      bytes += file.sizeBytes;
    }
    fuzz::require(bytes == AudioFiles::kCapacityBytes, "each byte is free or some file's");
    const PlayList& list = media.player.list();
    fuzz::require(list.empty() == (media.player.state() == Player::State::kStopped),
                  "what plays has a track");
    if (list.empty()) return;
    fuzz::require(media.player.positionMs() < list.present().lengthMs, "a track ends in time");
    for (const Track& track : list.tracks()) {
      fuzz::require(media.files.find(track.name) != nullptr, "only what is there is played",
                    track.name);
    }
  }

  void request(std::string_view method, std::string_view text) {
    Pexal::PDBus::RpcRequest request{RequestServer::kService, std::string(method), {}, false};
    if (method.find('/') != std::string_view::npos) {
      request.service = fuzz::takeUntil(method, '/');
      request.method = method;
    }
    // What the platform doesn't hand on, the robot needn't take.
    if (!Pexal::Utils::stringToJson(text, request.document) || !request.document.isObject()) return;
    Json::Value& call = request.document["call"];
    if (call.isObject() && call["clientId"] == Json::Value("@")) call["clientId"] = controller_;
    const bool holds = holdsControl(request.document);
    const bool session = request.service == RequestServer::kMotionService;
    const RpcReply reply =
        server_.handle(request, session ? RequestServer::kMotionService : RequestServer::kService);
    const Json::Value& document = reply.document;
    fuzz::require(fuzz::isJson(jsonToString(document)), "an answer can be sent");
    if (reply.status != RpcStatus::kOk) {
      fuzz::require(reply.status == RpcStatus::kNoService || reply.status == RpcStatus::kNoMethod,
                    "only an unknown service or method has no answer");
      return;
    }
    fuzz::require(document["result"].isBool(), "an answer says yes or no", jsonToString(document));
    const bool done = document["result"].asBool();
    fuzz::require(done == (reply.reason == 0), "a refusal has a number", jsonToString(document));
    fuzz::require(done || !document["reason"].asString().empty(), "a refusal has a reason");
    fuzz::require(!done || holds || !needsControl(request.method),
                  "who isn't in control moves nothing", request.method);
    if (const Json::Value& given = document["params"]; done && given.isMember("controller")) {
      fuzz::require(given["controller"] != Json::Value(controller_), "each grant has a new id");
      controller_ = given["controller"].asString();
    }
  }

  static bool needsControl(const std::string& method) {
    return method == "startMotionAction" || method == "stopMotionAction" ||
           method == "emergencyStopMotion" || method == "setMotionActionParams" ||
           method == "startPlayList" || method == "stopPlayList" || method == "addAudioFile" ||
           method == "deleteAudioFile" || method == "setCameraLightBrightness" ||
           method == "getCameraLightBrightness";
  }
  [[nodiscard]] bool holdsControl(const Json::Value& document) {
    RobotCore::Access robot = core_->access();
    const auto& grant = robot.arbiter().current();
    return grant.has_value() && document["call"].isObject() &&
           document["call"]["clientId"] == Json::Value(grant->controller);
  }

  /// Time, the last part of it in the steps of the control loop.
  void pass(std::uint64_t ms) {
    ms = std::min(ms, kLongestPassMs);
    const auto steps = std::min(static_cast<std::uint32_t>(ms / kStepMs), kMostControlSteps);
    fuzz::virtualClock().advance(static_cast<std::uint32_t>(ms) - kStepMs * steps);
    for (std::uint32_t i = 0; i < steps; ++i) {
      fuzz::virtualClock().advance(kStepMs);
      core_->access().step(0.001 * kStepMs);
    }
  }

  static std::string profileFor(const std::string& interface) {
    return ddsDocument(interface, 42)["domain"][0]["url"].asString();
  }
  static void checkAddress(const std::string& device, const std::string& interface) {
    if (settingsError(device, interface, 42)) return;
    const std::string profile = profileFor(interface);
    const std::string plain = profileFor("lo");
    for (const char c : {'<', '>', '"', '&'}) {
      fuzz::require(std::count(profile.begin(), profile.end(), c) ==
                        std::count(plain.begin(), plain.end(), c),
                    "an interface's name adds no markup", profile);
    }
    fuzz::require(!device.empty() && device.find_first_of("*?[]<>&\"'/ ") == std::string::npos,
                  "a device id holds no wildcards", device);
  }

  std::string controller_ = "none yet";
  std::shared_ptr<EventOutbox> outbox_ = std::make_shared<EventOutbox>("VR-7");
  std::shared_ptr<RobotCore> core_ =
      std::make_shared<RobotCore>(std::make_unique<KinematicBody>(), outbox_);
  RequestServer server_{core_, "VR-7"};
};

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
  return fuzz::startOnVirtualClock();
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  FuzzedRobot robot;
  for (const std::string_view line : fuzz::linesOf(fuzz::textOf(data, size), kMostSteps)) {
    robot.play(line);
    robot.checkAlive();
  }
  robot.checkAlive();
  return 0;
}
