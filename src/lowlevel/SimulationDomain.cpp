#include "lowlevel/SimulationDomain.h"

#include <map>
#include <mutex>
#include <string>

#include "pbase/CMutex.h"
#include "service/HostProfile.h"
#include "service/ServiceAccess.h"

namespace orvane::RobotSdk::lowlevel {
namespace {

using Lock = std::lock_guard<Pexal::PBase::CMutex>;

/// The domains that were made here. Never destroyed: clients may outlive the process's statics.
struct OwnDomains {
  Pexal::PBase::CMutex mutex;  // guards the map, and making and deleting what is in it
  std::map<std::uint32_t, dds::domain::Domain> byNumber;

  void makeWithInterface(std::uint32_t number, const std::string& interface) {
    if (byNumber.count(number) > 0) return;
    const auto settings = service::renderHostProfile(static_cast<std::int32_t>(number), interface);
    if (auto made = dds::domain::Domain::create(number, settings)) byNumber.emplace(number, made);
  }
  /// Whoever else has a participant in it by now keeps it.
  void deleteUnused(std::uint32_t number) {
    const auto found = byNumber.find(number);
    if (found != byNumber.end() && !found->second.is_used()) byNumber.erase(found);
  }
};

OwnDomains& ownDomains() {
  static auto& domains = *new OwnDomains;
  return domains;
}

/// -1 is libddsc's word for "any domain".
std::uint32_t checked(long number) {
  if (number >= 0 && number <= INT32_MAX) return static_cast<std::uint32_t>(number);
  throw dds::core::InvalidArgumentError("there is no dds domain " + std::to_string(number));
}

}  // namespace

SimulationDomain::SimulationDomain(long number) : number_(checked(number)) {
  const std::string interface = service::networkInterface();
  OwnDomains& domains = ownDomains();
  const Lock lock(domains.mutex);
  if (!interface.empty()) domains.makeWithInterface(number_, interface);
  try {
    participant_ = dds::domain::DomainParticipant(number_);
  } catch (const dds::core::Exception&) {
    domains.deleteUnused(number_);
    throw;
  }
}

SimulationDomain::~SimulationDomain() {
  OwnDomains& domains = ownDomains();
  const Lock lock(domains.mutex);
  participant_ = dds::core::null;
  try {
    domains.deleteUnused(number_);
  } catch (const dds::core::Exception&) {
    // Somebody else has deleted it: that is the wanted state.
  }
}

}  // namespace orvane::RobotSdk::lowlevel
