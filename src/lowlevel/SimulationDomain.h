#pragma once

#include <cstdint>
#include <dds/dds.hpp>

namespace orvane::RobotSdk::lowlevel {

/// A participant of its own in a DDS domain.
///
/// Where the process has the domain already (the service's is 42), its settings hold. A domain that
/// it hasn't gets those of the service's profile when the application chose a network interface, so
/// that the choice holds whatever the domain's number; else the DDS library's (CYCLONEDDS_URI).
///
/// Threading: any thread; construction and destruction of all of them exclude each other, under a
/// lock that is a leaf.
class SimulationDomain {
 public:
  /// Throws dds::core::Exception, e.g. for a number that no domain can have.
  explicit SimulationDomain(long number);
  /// When all that was made from the participant is gone.
  ~SimulationDomain();
  SimulationDomain(const SimulationDomain&) = delete;
  SimulationDomain& operator=(const SimulationDomain&) = delete;

  [[nodiscard]] const dds::domain::DomainParticipant& participant() const { return participant_; }

 private:
  const std::uint32_t number_;
  dds::domain::DomainParticipant participant_ = dds::core::null;
};

}  // namespace orvane::RobotSdk::lowlevel
