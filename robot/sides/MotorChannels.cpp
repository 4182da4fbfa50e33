#include "sides/MotorChannels.h"

#include <json/value.h>

#include <utility>

#include "shm/ShareMotionDomain.h"

namespace orvane::robot {
namespace {

using namespace Robot::Motion;

constexpr int kOnce = -1;  // a client that stands still must not hold up the next command

/// Of a channel's domain and its ends alike. The control channel has a pool here too, for a client
/// that lives in this process.
Json::Value configuration(const char* domain, const char* node, const char* name) {
  Json::Value config;
  config["domain"] = domain;
  config["node"] = node;
  config["name"] = name;
  config["poolSize"] = MotorChannels::kPoolSize;
  return config;
}

}  // namespace

MotorChannels::MotorChannels(std::shared_ptr<RobotCore> core, std::shared_ptr<Voice> voice,
                             BufferPublisher& observed)
    : core_(std::move(core)), voice_(std::move(voice)), observed_(observed) {}

MotorChannels::~MotorChannels() {
  if (reader_ != nullptr) reader_->close();
  if (publisher_ != nullptr) publisher_->close();
}

bool MotorChannels::open() {
  const Json::Value control = configuration(kControlDomain, kControlNode, kControlName);
  const Json::Value data = configuration(kDataDomain, kDataNode, kDataName);
  if (!ShareMotionDomain::instance(MotionChannel::kControl).init(control) ||
      !ShareMotionDomain::instance(MotionChannel::kData).init(data)) {
    return false;
  }
  publisher_ = std::make_shared<ShareMotionDataPublisher>();
  if (!publisher_->init(data) || !publisher_->open()) return false;
  reader_ = std::make_shared<ShareMotionCtrlReader>();
  return reader_->init(control) &&
         reader_->initial([this](const Record* record) { take(*record); });
}

// The client could change its chunk while it is looked at, hence the copy.
void MotorChannels::take(const Record& shared) {
  if (voice_->isSilent()) return;
  const Record record = shared;
  RobotSdk::ObservedMotionRecord observed;
  bool answered = false;
  RecordFate fate = RecordFate::kTaken;
  {
    RobotCore::Access robot = core_->access();
    fate = robot.take(record);
    if (fate == RecordFate::kTaken && record.kind == kRequireObserved) {
      answered = observed_.answer(robot, observed);
    }
  }
  // Who listens to the channel alone; without a listener it costs no system call.
  if (answered) {
    static_cast<void>(publisher_->publishMotionData(kRequireObserved, observed, kOnce));
  }
  refusals_.note(fate, record.seq);
}

}  // namespace orvane::robot
