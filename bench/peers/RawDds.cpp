#include "peers/RawDds.h"

#include <stdexcept>

namespace bench {
namespace {

constexpr dds_duration_t kBlocking = DDS_MSECS(100);

QosPtr qosOf(dds_reliability_kind_t reliability, dds_history_kind_t history,
             dds_durability_kind_t durability) {
  QosPtr qos(dds_create_qos());
  dds_qset_reliability(qos.get(), reliability, kBlocking);
  dds_qset_history(qos.get(), history, 1);
  dds_qset_durability(qos.get(), durability);
  return qos;
}

}  // namespace

std::string rawProfile(std::uint32_t domain) {
  return "<CycloneDDS><Domain Id=\"" + std::to_string(domain) +
         "\"><General><Interfaces><NetworkInterface name=\"lo\" priority=\"3\" "
         "multicast=\"default\" presence_required=\"true\"/></Interfaces>"
         "<AllowMulticast>true</AllowMulticast><MaxMessageSize>65500B</MaxMessageSize></General>"
         "<Tracing><Verbosity>none</Verbosity></Tracing></Domain></CycloneDDS>";
}

dds_entity_t checked(dds_entity_t handle, const char* what) {
  if (handle < 0) throw std::runtime_error(std::string(what) + ": " + dds_strretcode(handle));
  return handle;
}

QosPtr requestQos() {
  return qosOf(DDS_RELIABILITY_RELIABLE, DDS_HISTORY_KEEP_ALL, DDS_DURABILITY_VOLATILE);
}

QosPtr startQos() {
  return qosOf(DDS_RELIABILITY_RELIABLE, DDS_HISTORY_KEEP_LAST, DDS_DURABILITY_TRANSIENT_LOCAL);
}

QosPtr observedQos() {
  return qosOf(DDS_RELIABILITY_BEST_EFFORT, DDS_HISTORY_KEEP_LAST, DDS_DURABILITY_VOLATILE);
}

RawParticipant::RawParticipant(std::uint32_t domain)
    : domain_(checked(dds_create_domain(domain, rawProfile(domain).c_str()), "domain")),
      participant_(checked(dds_create_participant(domain, nullptr, nullptr), "participant")) {}

RawParticipant::~RawParticipant() {
  dds_delete(domain_);
}

bench_Text textSample(std::uint64_t number, std::string_view text) {
  bench_Text sample{};
  sample.number = number;
  sample.content._length = sample.content._maximum = static_cast<std::uint32_t>(text.size());
  // libddsc only reads what is written.
  sample.content._buffer = reinterpret_cast<std::uint8_t*>(const_cast<char*>(text.data()));
  sample.content._release = false;
  return sample;
}

}  // namespace bench
