#pragma once

#include <array>
#include <bit>
#include <cstddef>
#include <cstdint>
#include <span>
#include <string_view>

#include "msg/Layout.h"
#include "msg/MotionTypes.h"

namespace orvane::msg {

/// Wire encodings, numbered as in the DDS data-representation policy.
enum class Representation : std::int16_t {
  kXcdr1 = 0,  ///< plain CDR: a member is aligned to its own size
  kXcdr2 = 2,  ///< plain CDR version 2: alignment ends at 4 bytes
};

/// One member of a message type as it lies in the encoded body.
struct MemberProperty {
  std::uint32_t id;  ///< 0, 1, 2, ... in declaration order
  std::string_view name;
  std::uint32_t offset;     ///< bytes from the start of the body
  std::uint32_t size;       ///< bytes, arrays as a whole
  std::uint32_t alignment;  ///< bytes: 1, 2, 4 or 8
};

/// What DDS needs to know about one message type in one encoding.
///
/// Threading contract: objects are constants; every operation may be called from any thread, and
/// none but the first members() on a thread allocates or locks.
class TypeSupport {
 public:
  /// Byte order and representation, in front of every body.
  static constexpr std::size_t kEncapsulationSize = 4;

  TypeSupport(const detail::Structure& structure, const dds_topic_descriptor_t& descriptor,
              Representation representation);

  /// The name under which DDS registers and matches the type.
  [[nodiscard]] std::string_view registeredName() const { return descriptor_.m_typename; }
  [[nodiscard]] Representation representation() const { return representation_; }
  [[nodiscard]] bool keyless() const { return descriptor_.m_nkeys == 0; }
  [[nodiscard]] bool fixedSize() const {
    return (descriptor_.m_flagset & DDS_TOPIC_FIXED_SIZE) != 0;
  }
  /// Bytes of one sample in memory.
  [[nodiscard]] std::size_t sampleSize() const { return descriptor_.m_size; }

  /// XTypes TypeInformation and TypeMapping as they travel in discovery: XCDR2, little-endian.
  [[nodiscard]] std::span<const unsigned char> typeInformation() const;
  [[nodiscard]] std::span<const unsigned char> typeMapping() const;

  /// Bytes of an encoded sample, encapsulation header included. Every sample of the type has this
  /// size.
  [[nodiscard]] std::size_t maxSize() const { return kEncapsulationSize + bodySize_; }

  /// Encodes the sample at `sample` (a structure of this type) into `out`, in the given byte order.
  /// Returns the bytes written: maxSize(), or 0 with `out` untouched when it is shorter than that.
  [[nodiscard]] std::size_t serialize(const void* sample, std::span<std::byte> out,
                                      std::endian order = std::endian::native) const;
  /// Decodes `in`, of either byte order, into the structure at `sample`. False, with `sample`
  /// untouched, when the header names another encoding or the size isn't exactly maxSize().
  ///
  /// In XCDR2 a body is accepted, too, that leads an array of structures in with its length in
  /// bytes: libddsc writes them so.
  [[nodiscard]] bool deserialize(std::span<const std::byte> in, void* sample) const;

  /// The key operations of a keyless type: an encoded key is the encapsulation header alone, and
  /// the key hash is empty (all zero).
  [[nodiscard]] std::size_t maxKeySize() const { return kEncapsulationSize; }
  [[nodiscard]] std::size_t serializeKey(std::span<std::byte> out) const;
  [[nodiscard]] bool deserializeKey(std::span<const std::byte> in) const;
  [[nodiscard]] std::array<std::byte, 16> keyHash() const { return {}; }

  /// The members of the type. The table belongs to the calling thread, which builds it on its first
  /// use (a mutex keeps two first uses apart); it stays valid until that thread ends.
  [[nodiscard]] std::span<const MemberProperty> members() const;

 private:
  void writeHeader(std::byte* out, std::endian order) const;
  [[nodiscard]] bool readHeader(std::span<const std::byte> in, std::endian& order) const;

  const detail::Structure& structure_;
  const dds_topic_descriptor_t& descriptor_;
  const Representation representation_;
  const std::size_t bodySize_;
  const std::size_t markedBodySize_;  // with array lengths; bodySize_ where the encoding has none
};

/// The type support of T (one of the four top-level types) for a data representation, numbered as
/// in Representation; null for any other representation. Lives as long as the process.
template <class T>
[[nodiscard]] const TypeSupport* typeSupport(std::int16_t representation);

template <>
const TypeSupport* typeSupport<dds_::MotionObserved_>(std::int16_t representation);
template <>
const TypeSupport* typeSupport<dds_::SensorObserved_>(std::int16_t representation);
template <>
const TypeSupport* typeSupport<dds_::MotionCtrl_>(std::int16_t representation);
template <>
const TypeSupport* typeSupport<dds_::RemoteControl_>(std::int16_t representation);

}  // namespace orvane::msg
