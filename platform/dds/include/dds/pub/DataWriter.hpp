#pragma once

#include <dds/dds.h>

#include <cstdint>

#include "dds/core/Duration.hpp"
#include "dds/core/Qos.hpp"
#include "dds/domain/DomainParticipant.hpp"
#include "dds/topic/Topic.hpp"

namespace dds::pub {

/// A group of writers; carries their partitions.
class Publisher : public core::Entity {
 public:
  Publisher(core::null_type = core::null) noexcept {}
  explicit Publisher(const domain::DomainParticipant& participant,
                     const qos::PublisherQos& qos = {})
      : Entity(dds_create_publisher(participant.get_ddsc_entity(), qos.to_ddsc(), nullptr),
               "dds_create_publisher", participant.handle()) {}
};

/// A writer of samples of type T.
template <class T>
class DataWriter : public core::Entity {
 public:
  DataWriter(core::null_type = core::null) noexcept {}
  DataWriter(const Publisher& publisher, const topic::Topic<T>& topic,
             const qos::DataWriterQos& qos = {})
      : Entity(dds_create_writer(publisher.get_ddsc_entity(), topic.get_ddsc_entity(),
                                 qos.to_ddsc(), nullptr),
               "dds_create_writer(" + topic.name() + ")", publisher.handle(), topic.handle()) {}

  /// A reliable writer waits for room (keep-all history) at most its maximum blocking time, then
  /// throws TimeoutError.
  void write(const T& sample) {
    core::detail::check(dds_write(get_ddsc_entity(), &sample), "dds_write");
  }
  /// Waits until all matched readers have everything; TimeoutError when they haven't in time.
  void wait_for_acknowledgments(const core::Duration& timeout) {
    core::detail::check(dds_wait_for_acks(get_ddsc_entity(), timeout.to_ddsc()),
                        "dds_wait_for_acks");
  }
  /// Readers matched at present.
  [[nodiscard]] std::uint32_t matched_subscriptions() const {
    dds_publication_matched_status_t status{};
    core::detail::check(dds_get_publication_matched_status(get_ddsc_entity(), &status),
                        "dds_get_publication_matched_status");
    return status.current_count;
  }
};

}  // namespace dds::pub
