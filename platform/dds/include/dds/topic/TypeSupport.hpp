#pragma once

#include <dds/dds.h>

#include <cstddef>

namespace dds::topic {

/// What DDS needs to know of a sample type: idlc's descriptor and the size of one sample in memory.
struct TypeSupport {
  const dds_topic_descriptor_t* descriptor = nullptr;
  std::size_t sampleSize = 0;  ///< bytes

  /// The name under which the type is registered and matched.
  [[nodiscard]] const char* typeName() const noexcept { return descriptor->m_typename; }
};

/// Names the descriptor of T. Specialised per sample type with DDS_REGISTER_TYPE.
template <class T>
struct topic_type_descriptor;

/// The type support of T, a type registered with DDS_REGISTER_TYPE.
template <class T>
[[nodiscard]] TypeSupport typeSupport() noexcept {
  return {topic_type_descriptor<T>::descriptor(), sizeof(T)};
}

}  // namespace dds::topic

/// Makes TYPE a sample type: DESCRIPTOR is the dds_topic_descriptor_t that idlc generated for it,
/// and TYPE has the layout that idlc gave it. Use at namespace scope, outside any namespace.
#define DDS_REGISTER_TYPE(TYPE, DESCRIPTOR)                                              \
  template <>                                                                            \
  struct dds::topic::topic_type_descriptor<TYPE> {                                       \
    static const dds_topic_descriptor_t* descriptor() noexcept { return &(DESCRIPTOR); } \
  }
