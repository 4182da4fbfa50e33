#include "low_level/peers/StandInBoard.h"

#include <stdexcept>

#include "Board.h"
#include "harness/Clock.h"
#include "low_level/peers/LowLevelClient.h"
#include "shm/ShareMotionDomain.h"
#include "shm/ShareObservedReader.h"
#include "sides/MotorChannels.h"

namespace bench {
namespace {

using namespace Robot::Motion;
using orvane::robot::kBrain;
using orvane::robot::MotorChannels;
using Pexal::Memory::CShmTripleBuffer;
using Pexal::PDBus::IDDSFactory;
using Pexal::PDBus::RpcReply;
using Pexal::PDBus::RpcRequest;
using Pexal::PDBus::RPCServer;

constexpr std::uint32_t kLeaseMs = 3'600'000;  // so that no renewal disturbs
constexpr std::int64_t kHeldPeriodNs = 2000;

void become(CShmTripleBuffer& buffer, const ObservedBuffer& which) {
  if (!buffer.create(which.name, which.recordSize)) throw std::runtime_error("no observed buffer");
}

std::shared_ptr<ShareMotionCtrlReader> makeReader() {
  Json::Value config(Json::objectValue);
  config["domain"] = MotorChannels::kControlDomain;
  config["node"] = MotorChannels::kControlNode;
  config["name"] = MotorChannels::kControlName;
  config["poolSize"] = MotorChannels::kPoolSize;
  auto reader = std::make_shared<ShareMotionCtrlReader>();
  if (!ShareMotionDomain::instance(MotionChannel::kControl).init(config) || !reader->init(config)) {
    throw std::runtime_error("no control channel");
  }
  return reader;
}

/// What the client wants to hear of any of its requests.
RpcReply grant(const RpcRequest&) {
  RpcReply reply;
  reply.document["result"] = true;
  Json::Value& params = reply.document["params"];
  params["sessionId"] = Json::UInt64{1};
  params["leaseTimeout"] = kLeaseMs;
  params["ready"] = true;
  return reply;
}

}  // namespace

StandInBoard::StandInBoard(const Json::Value&) : reader_(makeReader()) {
  become(motion_, kMotionObserved);
  become(sensor_, kSensorObserved);
  observed_.valid = 1;
  if (!reader_->initial([this](const Record* record) { take(*record); })) {
    throw std::runtime_error("no control reader");
  }
  Json::Value document(Json::objectValue);
  document["domain"].append(orvane::robot::domainEntry(kBrain));
  factory_ = IDDSFactory::create();
  if (!factory_->initial(document)) throw std::runtime_error("the DDS layer doesn't start");
  server_ = RPCServer::create(factory_, kBrain.name, "motionServer", {}, grant);
  if (server_ == nullptr) throw std::runtime_error("no server");
}

StandInBoard::~StandInBoard() {
  reader_->close();
  server_->stop();
  factory_->shutdown();
}

Json::Value StandInBoard::handle(const Json::Value& command) {
  if (command["do"] != "leave") return ReaderRole::handle(command);
  reader_->close();
  return Json::Value(Json::objectValue);
}

void StandInBoard::take(const Record& record) noexcept {
  if (record.kind == kRequireObserved) return writeObserved();
  const CommandStamp stamp = CommandStamp::of(record.motors);
  receive(stamp.kind, stamp.sentNs);
}

void StandInBoard::writeObserved() noexcept {
  writtenNs_ = nowNs();
  stamp(observed_, writtenNs_);
  motion_.put(&observed_, sizeof observed_);
}

void StandInBoard::whileHeld() noexcept {
  if (nowNs() - writtenNs_ > kHeldPeriodNs) writeObserved();
}

}  // namespace bench
