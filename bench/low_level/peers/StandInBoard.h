#pragma once

#include <cstdint>
#include <memory>

#include "orvane/RobotSdk/Records.h"
#include "pbase/CShmTripleBuffer.h"
#include "pdbus/IDDSFactory.h"
#include "pdbus/RPC.h"
#include "shared_memory/peers/Channel.h"
#include "shm/ShareMotionReader.h"

namespace bench {

/// A board's motion process reduced to what is measured: it grants every request, takes the
/// control records, and writes an observed record, with the time of writing in it, when one asks
/// for it; while a command keeps its callback, every few microseconds. Besides ReaderRole's,
/// "leave" stops taking records.
///
/// Threading: records come on the channel's delivery thread, which alone writes the observed
/// buffer; requests are answered on the request server's thread.
class StandInBoard final : public ReaderRole {
 public:
  explicit StandInBoard(const Json::Value&);
  ~StandInBoard() override;
  Json::Value handle(const Json::Value& command) override;

 private:
  using Record = Robot::Motion::ShareLowLevelMotionCtrlData;

  void take(const Record& record) noexcept;
  void writeObserved() noexcept;
  void whileHeld() noexcept override;

  Pexal::Memory::CShmTripleBuffer motion_;
  Pexal::Memory::CShmTripleBuffer sensor_;
  orvane::RobotSdk::ObservedMotionRecord observed_{};
  std::int64_t writtenNs_ = 0;
  std::shared_ptr<Robot::Motion::ShareMotionCtrlReader> reader_;
  std::shared_ptr<Pexal::PDBus::IDDSFactory> factory_;
  std::shared_ptr<Pexal::PDBus::RPCServer> server_;
};

}  // namespace bench
