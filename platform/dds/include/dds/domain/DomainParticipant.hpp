#pragma once

#include <dds/dds.h>

#include <cstdint>
#include <string>

#include "dds/core/Entity.hpp"
#include "dds/core/Qos.hpp"

namespace dds::domain {

/// A member of a DDS domain; everything else is made from one.
class DomainParticipant : public core::Entity {
 public:
  DomainParticipant(core::null_type = core::null) noexcept {}
  /// Joins domain `id` (0 to 230). The domain's settings are those it was created with in this
  /// process.
  explicit DomainParticipant(std::uint32_t id, const qos::DomainParticipantQos& qos = {})
      : Entity(dds_create_participant(id, qos.to_ddsc(), nullptr),
               "dds_create_participant(" + std::to_string(id) + ")", nullptr) {}

  [[nodiscard]] std::uint32_t domain_id() const {
    dds_domainid_t id = 0;
    core::detail::check(dds_get_domainid(get_ddsc_entity(), &id), "dds_get_domainid");
    return id;
  }
};

}  // namespace dds::domain
