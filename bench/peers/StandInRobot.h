#pragma once

#include <atomic>
#include <cstdint>
#include <memory>

#include "harness/Role.h"
#include "pbase/CThread.h"
#include "pdbus/IDDSFactory.h"
#include "pdbus/RPC.h"

namespace bench {

/// A robot reduced to what is measured: it answers every request with {"result": true} and some
/// parameters, and writes its observed topics as the virtual robot does, 500 motion samples a
/// second, with the time of writing in them; the sensor samples half a period after a motion
/// sample, so that neither waits for the other's delivery. {"device", "domain", "sensorEvery": one
/// sensor sample to so many motion samples}.
///
/// Threading: one thread writes; requests are answered on the request server's own.
class StandInRobot final : public ServerRole {
 public:
  explicit StandInRobot(const Json::Value& arguments);
  ~StandInRobot() override;

 private:
  void write(const dds::domain::DomainParticipant& participant, const std::string& device) const;

  const std::uint32_t sensorEvery_;
  std::shared_ptr<Pexal::PDBus::IDDSFactory> factory_;
  std::shared_ptr<Pexal::PDBus::RPCServer> server_;
  std::atomic<bool> stopping_{false};
  std::unique_ptr<Pexal::PBase::CThreadLite> writer_;
};

}  // namespace bench
