#pragma once

#include <dds/dds.h>

#include "dds/core/Qos.hpp"
#include "dds/domain/DomainParticipant.hpp"

namespace dds::sub {

/// A group of readers; carries their partitions.
class Subscriber : public core::Entity {
 public:
  Subscriber(core::null_type = core::null) noexcept {}
  explicit Subscriber(const domain::DomainParticipant& participant,
                      const qos::SubscriberQos& qos = {})
      : Entity(dds_create_subscriber(participant.get_ddsc_entity(), qos.to_ddsc(), nullptr),
               "dds_create_subscriber", participant.handle()) {}
};

}  // namespace dds::sub
