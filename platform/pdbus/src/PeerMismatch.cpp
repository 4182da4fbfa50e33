#include "PeerMismatch.h"

#include <utility>

#include "DDSContextLog.h"

namespace Pexal::PDBus {
namespace {

const char* policyName(std::uint32_t policy) {
  switch (policy) {
    case DDS_DURABILITY_QOS_POLICY_ID:
      return "durability";
    case DDS_DEADLINE_QOS_POLICY_ID:
      return "deadline";
    case DDS_OWNERSHIP_QOS_POLICY_ID:
      return "ownership";
    case DDS_LIVELINESS_QOS_POLICY_ID:
      return "liveliness";
    case DDS_RELIABILITY_QOS_POLICY_ID:
      return "reliability";
    case DDS_TYPE_CONSISTENCY_ENFORCEMENT_QOS_POLICY_ID:
      return "type";
    case DDS_DATA_REPRESENTATION_QOS_POLICY_ID:
      return "data representation";
    default:
      return "quality of service";
  }
}

}  // namespace

PeerMismatch::PeerMismatch(std::string ours, std::function<void()> wake)
    : ours_(std::move(ours)), wake_(std::move(wake)) {}

void PeerMismatch::listenWith(dds_listener_t* listener) {
  dds_lset_requested_incompatible_qos_arg(
      listener,
      [](dds_entity_t, dds_requested_incompatible_qos_status_t status, void* self) {
        static_cast<PeerMismatch*>(self)->noteWriter(status.last_policy_id);
      },
      this, true);
  dds_lset_offered_incompatible_qos_arg(
      listener,
      [](dds_entity_t, dds_offered_incompatible_qos_status_t status, void* self) {
        static_cast<PeerMismatch*>(self)->noteReader(status.last_policy_id);
      },
      this, true);
}

void PeerMismatch::note(Policies& policies, std::uint32_t policy) noexcept {
  // libddsc tells of partitions that differ too, but that is how clients and robots are kept apart.
  if (policy == DDS_PARTITION_QOS_POLICY_ID) return;
  const std::uint32_t bit = 1U << (policy % 32);
  if ((policies.noted.fetch_or(bit) & bit) == 0 && wake_) wake_();
}

void PeerMismatch::report() {
  if (!pending()) return;
  report(writers_, "writer", "nothing of it is received");
  report(readers_, "reader", "nothing is sent to it");
}

void PeerMismatch::report(Policies& policies, const char* peer, const char* consequence) {
  const std::uint32_t noted = policies.noted;
  const std::uint32_t fresh = noted & ~policies.reported.fetch_or(noted);
  for (std::uint32_t policy = 0; policy < 32; ++policy) {
    if ((fresh >> policy & 1U) == 0) continue;
    PDBUS_LOG(3, "PeerMismatch", "%s: a %s's %s doesn't match, %s\n", ours_.c_str(), peer,
              policyName(policy), consequence);
  }
}

}  // namespace Pexal::PDBus
