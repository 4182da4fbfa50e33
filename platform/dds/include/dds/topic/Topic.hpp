#pragma once

#include <dds/dds.h>

#include <string>

#include "dds/core/Qos.hpp"
#include "dds/domain/DomainParticipant.hpp"
#include "dds/topic/TypeSupport.hpp"

namespace dds::topic {

/// A topic whose sample type is known at run time.
class AnyTopic : public core::Entity {
 public:
  AnyTopic(core::null_type = core::null) noexcept {}
  AnyTopic(const domain::DomainParticipant& participant, const std::string& name,
           const TypeSupport& type, const qos::TopicQos& qos = {})
      : Entity(dds_create_topic(participant.get_ddsc_entity(), checked(type).descriptor,
                                name.c_str(), qos.to_ddsc(), nullptr),
               "dds_create_topic(" + name + ")", participant.handle()),
        participant_(participant),
        type_(type),
        name_(name) {}

  [[nodiscard]] const std::string& name() const noexcept { return name_; }
  [[nodiscard]] const TypeSupport& type() const noexcept { return type_; }
  [[nodiscard]] const domain::DomainParticipant& participant() const noexcept {
    return participant_;
  }

 private:
  // Samples are read into and written from memory of sampleSize bytes: less would be overrun.
  static const TypeSupport& checked(const TypeSupport& type) {
    if (type.descriptor == nullptr || type.sampleSize < type.descriptor->m_size) {
      throw core::InvalidArgumentError(
          "dds_create_topic: the sample's size isn't its descriptor's");
    }
    return type;
  }

  domain::DomainParticipant participant_;
  TypeSupport type_;
  std::string name_;
};

/// A topic of samples of type T, a type registered with DDS_REGISTER_TYPE.
template <class T>
class Topic : public AnyTopic {
 public:
  Topic(core::null_type = core::null) noexcept {}
  Topic(const domain::DomainParticipant& participant, const std::string& name,
        const qos::TopicQos& qos = {})
      : AnyTopic(participant, name, typeSupport<T>(), qos) {}
};

}  // namespace dds::topic
