#pragma once

#include <dds/dds.h>

#include <memory>
#include <new>

#include "dds/core/Policy.hpp"

namespace dds::core {

/// A set of QoS policies, copied by value. What isn't in the set is DDS's default.
/// `Defaults::apply` puts in what the entity's kind takes by default.
template <class Defaults>
class TEntityQos {
 public:
  TEntityQos() : qos_(make()) { Defaults::apply(qos_.get()); }
  TEntityQos(const TEntityQos& other) : qos_(make()) { copyFrom(other); }
  TEntityQos(TEntityQos&& other) : TEntityQos(static_cast<const TEntityQos&>(other)) {}
  TEntityQos& operator=(const TEntityQos& other) {
    if (this != &other) {
      qos_ = make();
      copyFrom(other);
    }
    return *this;
  }
  TEntityQos& operator=(TEntityQos&& other) {
    return *this = static_cast<const TEntityQos&>(other);
  }
  ~TEntityQos() = default;

  template <class P>
  TEntityQos& policy(const P& value) {
    value.apply(qos_.get());
    return *this;
  }
  template <class P>
  TEntityQos& operator<<(const P& value) {
    return policy(value);
  }
  template <class P>
  [[nodiscard]] P policy() const {
    return P::from(qos_.get());
  }

  [[nodiscard]] const dds_qos_t* to_ddsc() const noexcept { return qos_.get(); }

 private:
  struct Deleter {
    void operator()(dds_qos_t* qos) const noexcept { dds_delete_qos(qos); }
  };
  using Pointer = std::unique_ptr<dds_qos_t, Deleter>;

  static Pointer make() {
    Pointer qos(dds_create_qos());
    if (!qos) throw std::bad_alloc();
    return qos;
  }
  void copyFrom(const TEntityQos& other) {
    static_cast<void>(dds_copy_qos(qos_.get(), other.qos_.get()));
  }

  Pointer qos_;
};

namespace detail {

struct NoDefaults {
  static void apply(dds_qos_t*) noexcept {}
};
struct ReaderDefaults {
  static void apply(dds_qos_t* qos) {
    policy::History::KeepLast(1).apply(qos);
    policy::Reliability::BestEffort().apply(qos);
    policy::Durability::Volatile().apply(qos);
  }
};
struct WriterDefaults {
  static void apply(dds_qos_t* qos) {
    policy::History::KeepLast(1).apply(qos);
    policy::Reliability::Reliable().apply(qos);
    policy::Durability::Volatile().apply(qos);
  }
};

}  // namespace detail
}  // namespace dds::core

namespace dds::domain::qos {
using DomainParticipantQos = core::TEntityQos<core::detail::NoDefaults>;
}
namespace dds::topic::qos {
using TopicQos = core::TEntityQos<core::detail::NoDefaults>;
}
namespace dds::sub::qos {
using SubscriberQos = core::TEntityQos<core::detail::NoDefaults>;
/// Starts with keep-last 1, best effort, volatile.
using DataReaderQos = core::TEntityQos<core::detail::ReaderDefaults>;
}  // namespace dds::sub::qos
namespace dds::pub::qos {
using PublisherQos = core::TEntityQos<core::detail::NoDefaults>;
/// Starts with keep-last 1, reliable (100 ms), volatile.
using DataWriterQos = core::TEntityQos<core::detail::WriterDefaults>;
}  // namespace dds::pub::qos
