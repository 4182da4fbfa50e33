#include "lowlevel/SimulationTransport.h"

#include <exception>
#include <optional>
#include <utility>

#include "pbase/CThread.h"
#include "service/HostProfile.h"
#include "service/ServiceAccess.h"

namespace orvane::RobotSdk::lowlevel {
namespace {

using dds::core::policy::History;
using dds::core::policy::Reliability;
using dds::core::policy::ReliabilityKind;
using Pexal::PBase::CThread;
using Pexal::PBase::CThreadLite;

/// -1 is libddsc's word for "any domain".
std::uint32_t checked(long domain) {
  if (domain >= 0 && domain <= INT32_MAX) return static_cast<std::uint32_t>(domain);
  throw dds::core::InvalidArgumentError("there is no dds domain " + std::to_string(domain));
}

std::optional<std::string> profileOf(std::uint32_t domain) {
  const std::string interface = service::networkInterface();
  if (interface.empty()) return std::nullopt;
  return service::renderHostProfile(static_cast<std::int32_t>(domain), interface);
}

/// What a closing thread needs; it frees its own thread object at its end.
struct Closing {
  std::unique_ptr<SimulationTransport> transport;
  std::unique_ptr<CThread> thread;
};

}  // namespace

std::shared_ptr<SimulationTransport> SimulationTransport::open(const SimulationSettings& settings) {
  return {new SimulationTransport(settings), close};
}

SimulationTransport::SimulationTransport(const SimulationSettings& settings)
    : domain_(checked(settings.domain), profileOf(checked(settings.domain))) {
  openControl(settings);
  observed = openReader<msg::dds_::MotionObserved_>(settings.observedTopic, settings.depth,
                                                    "ORVANE_MOTION_OBSERVED_RELIABILITY");
  remoteControl = openReader<msg::dds_::RemoteControl_>(settings.trcTopic, settings.depth,
                                                        "ORVANE_MOTION_TRC_RELIABILITY");
}

void SimulationTransport::openControl(const SimulationSettings& settings) {
  const Reliability reliability = reliabilityIn("ORVANE_MOTION_CONTROL_RELIABILITY");
  mayLinger_ = reliability.kind() == ReliabilityKind::RELIABLE;
  dds::pub::qos::DataWriterQos qos;
  qos << History::KeepLast(settings.depth) << reliability;
  const auto& participant = domain_.participant();
  control = {dds::pub::Publisher(participant),
             dds::topic::Topic<msg::dds_::MotionCtrl_>(participant, settings.controlTopic), qos};
}

template <class T>
dds::sub::DataReader<T> SimulationTransport::openReader(const std::string& topic,
                                                        std::int32_t depth,
                                                        const char* reliability) const {
  dds::sub::qos::DataReaderQos qos;
  qos << History::KeepLast(depth) << reliabilityIn(reliability);
  const auto& participant = domain_.participant();
  return {dds::sub::Subscriber(participant), dds::topic::Topic<T>(participant, topic), qos};
}

void SimulationTransport::close(SimulationTransport* transport) noexcept {
  std::unique_ptr<SimulationTransport> closed(transport);
  if (!closed->mayLinger_) return;
  closed->domain_.announceEnd();
  std::shared_ptr<Closing> closing;
  try {
    closing = std::make_shared<Closing>();
    closing->transport = std::move(closed);
    closing->thread = std::make_unique<CThreadLite>("robotSdk:LLClose", 0, 0, 0, [closing] {
      {
        const Pexal::PBase::ExternalWait lingering;
        closing->transport.reset();
      }
      closing->thread.reset();
    });
    if (closing->thread->createThread()) return;
  } catch (const std::exception&) {
    // No memory for a thread: this one lingers.
  }
  if (closing == nullptr) return;
  closing->transport.reset();
  closing->thread.reset();
}

}  // namespace orvane::RobotSdk::lowlevel
