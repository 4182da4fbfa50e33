#include "peers/StandInRobot.h"

#include <dds/dds.hpp>
#include <stdexcept>
#include <string>
#include <vector>

#include "harness/Clock.h"
#include "msg/MotionTypes.h"
#include "peers/RpcPair.h"
#include "peers/Stamp.h"
#include "publish/ObservedPublisher.h"

namespace bench {
namespace {

using orvane::msg::dds_::MotionObserved_;
using orvane::msg::dds_::SensorObserved_;
using Pexal::PDBus::RpcReply;
using Pexal::PDBus::RpcRequest;
using Pexal::PDBus::RPCServer;

constexpr std::int64_t kPeriodNs = 2'000'000;
constexpr const char* kServer = "robotServer";

void stamp(SensorObserved_& sample) {
  const auto parts = stampFrom(nowNs());
  sample.odom.position[0] = parts[0];
  sample.odom.position[1] = parts[1];
  sample.odom.position[2] = parts[2];
  sample.odom.velocity[0] = parts[3];
}

}  // namespace

StandInRobot::StandInRobot(const Json::Value& arguments)
    : sensorEvery_(arguments.get("sensorEvery", 10).asUInt()),
      factory_(startFactory(arguments["domain"].asUInt(), kServer)) {
  const std::string device = arguments["device"].asString();
  server_ = RPCServer::create(factory_, "host", kServer, device, [](const RpcRequest&) {
    RpcReply reply;
    reply.document["result"] = true;
    reply.document["params"]["posture"] = "lying";
    return reply;
  });
  if (server_ == nullptr) throw std::runtime_error("no server");
  writer_ = std::make_unique<Pexal::PBase::CThreadLite>(
      "bench:writer", 0, 0, 0,
      [this, participant = factory_->participant("host"), device] { write(participant, device); });
  if (!writer_->createThread()) throw std::runtime_error("no thread");
}

StandInRobot::~StandInRobot() {
  stopping_ = true;
  writer_.reset();
  server_->stop();
  factory_->shutdown();
}

void StandInRobot::write(const dds::domain::DomainParticipant& participant,
                         const std::string& device) const {
  const dds::pub::Publisher publisher(participant);
  const dds::topic::Topic<MotionObserved_> motionTopic(participant, "motion/observed");
  const dds::topic::Topic<SensorObserved_> sensorTopic(participant, "sensor/observed");
  dds::pub::DataWriter<MotionObserved_> motion(publisher, motionTopic,
                                               orvane::robot::observedWriterQos(device));
  dds::pub::DataWriter<SensorObserved_> sensor(publisher, sensorTopic,
                                               orvane::robot::observedWriterQos(device));
  MotionObserved_ motionSample{};
  motionSample.motorNum = 12;
  SensorObserved_ sensorSample{};
  sensorSample.odom.valid = 1;
  std::int64_t due = nowNs();
  for (std::uint32_t count = 0; !stopping_; ++count) {
    sleepUntilNs(due += kPeriodNs);
    stampMotion(motionSample, nowNs());
    motion.write(motionSample);
    if (count % sensorEvery_ != 0) continue;
    sleepUntilNs(due + kPeriodNs / 2);
    stamp(sensorSample);
    sensor.write(sensorSample);
  }
}

}  // namespace bench
