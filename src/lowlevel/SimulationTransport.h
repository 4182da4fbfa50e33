#pragma once

#include <cstdint>
#include <dds/dds.hpp>
#include <memory>
#include <string>

#include "lowlevel/SimulationSettings.h"
#include "msg/MotionTypes.h"
#include "pdbus/DomainMember.h"

namespace orvane::RobotSdk::lowlevel {

/// The DDS entities of one connection of the simulation client, with a participant of their own.
///
/// Where the process has the domain already (the service's is 42), its settings hold. A domain that
/// it hasn't gets those of the service's profile when the application chose a network interface, so
/// that the choice holds whatever the domain's number; else the DDS library's (CYCLONEDDS_URI).
///
/// Threading: the writer is used by any thread, each reader by one. Dropping the last reference
/// takes some milliseconds at most: a reliable writer lingers for up to a second when samples of it
/// haven't been acknowledged, and is then closed on a thread of its own.
class SimulationTransport {
 public:
  /// Opens them; the reliabilities are read from the environment now. Throws dds::core::Exception.
  static std::shared_ptr<SimulationTransport> open(const SimulationSettings& settings);

  SimulationTransport(const SimulationTransport&) = delete;
  SimulationTransport& operator=(const SimulationTransport&) = delete;
  ~SimulationTransport() = default;

 private:
  explicit SimulationTransport(const SimulationSettings& settings);
  static void close(SimulationTransport* transport) noexcept;
  void openControl(const SimulationSettings& settings);
  template <class T>
  [[nodiscard]] dds::sub::DataReader<T> openReader(const std::string& topic, std::int32_t depth,
                                                   const char* reliability) const;

  bool mayLinger_ = false;
  Pexal::PDBus::DomainMember domain_;  // goes after what is made in it

 public:
  dds::pub::DataWriter<msg::dds_::MotionCtrl_> control = dds::core::null;
  dds::sub::DataReader<msg::dds_::MotionObserved_> observed = dds::core::null;
  dds::sub::DataReader<msg::dds_::RemoteControl_> remoteControl = dds::core::null;
};

}  // namespace orvane::RobotSdk::lowlevel
