#include "lowlevel/MotionChannels.h"

#include <json/value.h>

#include <utility>

#include "log/Log.h"
#include "lowlevel/LowLevelStatus.h"
#include "shm/ShareMotionDomain.h"

namespace orvane::RobotSdk::lowlevel {
namespace {

using Robot::Motion::MotionChannel;
using Robot::Motion::ObservedBuffer;
using Robot::Motion::ShareMotionDomain;

constexpr std::uint32_t kLongestPauseNs = 100'000;

Json::Value controlChannel() {
  Json::Value config(Json::objectValue);
  config["name"] = "motionCtrlShared";
  config["poolSize"] = 32;
  config["domain"] = "motionControl";
  config["node"] = "motion_control_writer";
  return config;
}

std::shared_ptr<MotionChannels::Reader> openReader(const ObservedBuffer& which) {
  auto reader = MotionChannels::Reader::open(which);
  if (reader == nullptr) MOTION_LOG(kUnit, level::kError, "open %s reader failed", which.name);
  return reader;
}

std::shared_ptr<MotionChannels::Writer> openWriter() {
  const Json::Value config = controlChannel();
  if (!ShareMotionDomain::instance(MotionChannel::kControl).init(config)) {
    MOTION_LOG(kUnit, level::kError, "local low level client init share motion ctrl node failed");
    return nullptr;
  }
  auto writer = std::make_shared<MotionChannels::Writer>();
  if (writer->init(config) && writer->open()) return writer;
  MOTION_LOG(kUnit, level::kError, "local low level client open share motion ctrl writer failed");
  return nullptr;
}

}  // namespace

bool MotionChannels::open() {
  auto observed = openReader(Robot::Motion::kMotionObserved);
  if (observed == nullptr) return false;
  auto sensor = openReader(Robot::Motion::kSensorObserved);
  if (sensor == nullptr) return false;
  auto writer = openWriter();
  if (writer == nullptr) return false;
  {
    const SendGate::Passage passage(gate_);
    observed_ = std::move(observed);
    writer_ = std::move(writer);
  }
  sensorOwner_ = std::move(sensor);
  sensor_ = sensorOwner_.get();
  MOTION_LOG(kUnit, level::kInfo, "local low level client shm channels opened");
  return true;
}

void MotionChannels::close() {
  {
    const SendGate::Passage passage(gate_);
    if (writer_ != nullptr) writer_->close();
    observed_.reset();
    writer_.reset();
  }
  sensor_ = nullptr;
  Pexal::PBase::RTAbsSleep pause;
  while (sensorUses_ != 0) pause.manualBackoff(kLongestPauseNs);
  sensorOwner_.reset();
}

}  // namespace orvane::RobotSdk::lowlevel
