#include "peers/SdkSession.h"

#include <cstdio>
#include <stdexcept>

namespace bench {
namespace {

using orvane::RobotSdk::IMotionSdkService;

constexpr std::uint32_t kFirstRequestMs = 10000;
constexpr std::uint32_t kRefusals = 3;

}  // namespace

void SdkSession::prepare(IMotionSdkService& service) {
  service.setNetworkInterface("lo");
  service.attachLoggerCallback([](std::uint32_t level, const char* text, int length) {
    if (level >= kRefusals) std::fprintf(stderr, "%.*s", length, text);
  });
}

SdkSession::SdkSession() {
  IMotionSdkService& service = *IMotionSdkService::instance();
  prepare(service);
  if (!service.initial(nullptr, "bench", 0)) throw std::runtime_error("the service doesn't start");
}

SdkSession::~SdkSession() {
  IMotionSdkService::instance()->shutdown();
}

std::shared_ptr<SdkSession::Client> SdkSession::client(const std::string& device) {
  auto client = Client::create(device);
  if (client == nullptr) throw std::runtime_error("no client");
  return client;
}

void SdkSession::connect(Client& client) {
  std::string state;
  if (!client.connect(0)) throw std::runtime_error("the client doesn't connect");
  if (!client.queryMotionState(&state, kFirstRequestMs)) {
    throw std::runtime_error("the robot doesn't answer");
  }
}

void SdkSession::observe(Client& client, bool on) {
  const std::string switches = on ? R"({"motionEnable": true, "sensorEnable": true})"
                                  : R"({"motionEnable": false, "sensorEnable": false})";
  std::string understood;
  if (!client.setMotionObservedEnable(switches, &understood, kFirstRequestMs)) {
    throw std::runtime_error("the observed streams can't be switched");
  }
}

}  // namespace bench
