#include "msg/TypeSupport.h"

#include <algorithm>
#include <cstring>
#include <map>
#include <mutex>
#include <vector>

#include "msg/LayoutTables.h"
#include "pbase/CMutex.h"

namespace orvane::msg {
namespace {

using detail::Member;
using detail::Structure;

/// Copies one number, the bytes reversed when the body isn't in this machine's order.
void copyNumber(std::byte* to, const std::byte* from, std::uint32_t width, bool reversed) {
  if (reversed) {
    std::reverse_copy(from, from + width, to);
  } else {
    std::memcpy(to, from, width);
  }
}

/// Lays a structure out in the body, member after member, and hands every number to
/// `visitor.number(body offset, memory offset, width)`. Sizing, encoding and decoding are this one
/// walk. Offsets depend on the type alone, never on the data, so whoever has checked the size once
/// stays inside the body.
///
/// With `marks`, every array of structures is led in by its length in bytes, handed to
/// `visitor.mark(body offset, length)`.
template <class Visitor>
class Walk {
 public:
  Walk(std::uint32_t maxAlignment, bool marks, Visitor visitor)
      : maxAlignment_(maxAlignment), marks_(marks), visitor_(visitor) {}

  void structure(const Structure& type, std::uint32_t memory) {
    for (const Member& member : type.members) {
      this->member(member, memory + member.offset);
    }
  }

  void member(const Member& member, std::uint32_t memory) {
    const bool marked = marks_ && member.nested != nullptr && member.count > 1;
    if (marked) {
      align(kMarkSize);
      body_ += kMarkSize;
    }
    const std::uint32_t start = body_;
    for (std::uint32_t i = 0; i < member.count; ++i, memory += member.width) {
      element(member, memory);
    }
    if (marked) {
      visitor_.mark(start - kMarkSize, body_ - start);
    }
  }

  [[nodiscard]] std::uint32_t end() const { return body_; }

 private:
  static constexpr std::uint32_t kMarkSize = 4;

  void element(const Member& member, std::uint32_t memory) {
    if (member.nested != nullptr) {
      structure(*member.nested, memory);
      return;
    }
    align(std::min(member.width, maxAlignment_));
    visitor_.number(body_, memory, member.width);
    body_ += member.width;
  }

  void align(std::uint32_t alignment) { body_ = (body_ + alignment - 1) / alignment * alignment; }

  const std::uint32_t maxAlignment_;
  const bool marks_;
  Visitor visitor_;
  std::uint32_t body_ = 0;
};

struct Measure {
  void number(std::uint32_t, std::uint32_t, std::uint32_t) const {}
  void mark(std::uint32_t, std::uint32_t) const {}
};

struct Encode : Measure {
  void number(std::uint32_t offset, std::uint32_t memoryOffset, std::uint32_t width) const {
    copyNumber(body + offset, memory + memoryOffset, width, reversed);
  }
  std::byte* body;
  const std::byte* memory;
  bool reversed;
};

struct Decode : Measure {
  void number(std::uint32_t offset, std::uint32_t memoryOffset, std::uint32_t width) const {
    copyNumber(memory + memoryOffset, body + offset, width, reversed);
  }
  const std::byte* body;
  std::byte* memory;
  bool reversed;
};

struct CheckMarks : Measure {
  void mark(std::uint32_t offset, std::uint32_t length) const {
    std::uint32_t announced = 0;
    copyNumber(reinterpret_cast<std::byte*>(&announced), body + offset, sizeof announced, reversed);
    *valid = *valid && announced == length;
  }
  const std::byte* body;
  bool reversed;
  bool* valid;
};

/// Where a member begins and how it is aligned.
struct Place : Measure {
  void number(std::uint32_t offset, std::uint32_t, std::uint32_t width) const {
    property->offset = std::min(property->offset, offset);
    property->alignment = std::max(property->alignment, std::min(width, maxAlignment));
  }
  MemberProperty* property;
  std::uint32_t maxAlignment;
};

constexpr std::uint32_t maxAlignment(Representation representation) {
  return representation == Representation::kXcdr1 ? 8 : 4;
}

std::uint32_t bodySizeOf(const Structure& type, Representation representation, bool marks) {
  Walk walk(maxAlignment(representation), marks, Measure{});
  walk.structure(type, 0);
  return walk.end();
}

std::vector<MemberProperty> buildMembers(const Structure& type, Representation representation) {
  constexpr std::uint32_t kUnplaced = ~std::uint32_t{0};
  std::vector<MemberProperty> table;
  table.reserve(type.members.size());
  MemberProperty property{};
  Walk walk(maxAlignment(representation), false,
            Place{{}, &property, maxAlignment(representation)});
  for (const Member& member : type.members) {
    property = {static_cast<std::uint32_t>(table.size()), member.name, kUnplaced, 0, 0};
    walk.member(member, member.offset);
    property.size = walk.end() - property.offset;
    table.push_back(property);
  }
  return table;
}

/// The two bytes that open an encapsulation header, always big-endian: the second one's lowest bit
/// says little-endian.
constexpr std::byte kIdentifierHigh{0x00};
constexpr std::byte kLittleEndianBit{0x01};

constexpr std::byte identifierLow(Representation representation) {
  return representation == Representation::kXcdr1 ? std::byte{0x00} : std::byte{0x06};
}

/// Both type supports of one type.
struct Pair {
  Pair(const Structure& structure, const dds_topic_descriptor_t& descriptor)
      : xcdr1(structure, descriptor, Representation::kXcdr1),
        xcdr2(structure, descriptor, Representation::kXcdr2) {}

  [[nodiscard]] const TypeSupport* find(std::int16_t representation) const {
    switch (static_cast<Representation>(representation)) {
      case Representation::kXcdr1:
        return &xcdr1;
      case Representation::kXcdr2:
        return &xcdr2;
    }
    return nullptr;
  }

  TypeSupport xcdr1;
  TypeSupport xcdr2;
};

/// Never destroyed: SDK threads may still encode while the process exits.
template <class T>
const TypeSupport* find(const dds_topic_descriptor_t& descriptor, std::int16_t representation) {
  static const Pair& pair = *new Pair(detail::structureOf<T>, descriptor);
  return pair.find(representation);
}

}  // namespace

TypeSupport::TypeSupport(const Structure& structure, const dds_topic_descriptor_t& descriptor,
                         Representation representation)
    : structure_(structure),
      descriptor_(descriptor),
      representation_(representation),
      bodySize_(bodySizeOf(structure, representation, false)),
      markedBodySize_(
          bodySizeOf(structure, representation, representation == Representation::kXcdr2)) {}

std::span<const unsigned char> TypeSupport::typeInformation() const {
  return {descriptor_.type_information.data, descriptor_.type_information.sz};
}

std::span<const unsigned char> TypeSupport::typeMapping() const {
  return {descriptor_.type_mapping.data, descriptor_.type_mapping.sz};
}

std::size_t TypeSupport::serialize(const void* sample, std::span<std::byte> out,
                                   std::endian order) const {
  if (out.size() < maxSize()) {
    return 0;
  }
  writeHeader(out.data(), order);
  std::byte* const body = out.data() + kEncapsulationSize;
  std::memset(body, 0, bodySize_);  // alignment padding goes out as zero
  Walk walk(maxAlignment(representation_), false,
            Encode{{}, body, static_cast<const std::byte*>(sample), order != std::endian::native});
  walk.structure(structure_, 0);
  return maxSize();
}

bool TypeSupport::deserialize(std::span<const std::byte> in, void* sample) const {
  std::endian order{};
  const bool marked = in.size() != maxSize() && in.size() == kEncapsulationSize + markedBodySize_;
  if ((in.size() != maxSize() && !marked) || !readHeader(in, order)) {
    return false;
  }
  const std::byte* const body = in.data() + kEncapsulationSize;
  const bool reversed = order != std::endian::native;
  if (marked) {
    bool valid = true;
    Walk check(maxAlignment(representation_), true, CheckMarks{{}, body, reversed, &valid});
    check.structure(structure_, 0);
    if (!valid) {
      return false;
    }
  }
  Walk walk(maxAlignment(representation_), marked,
            Decode{{}, body, static_cast<std::byte*>(sample), reversed});
  walk.structure(structure_, 0);
  return true;
}

std::size_t TypeSupport::serializeKey(std::span<std::byte> out) const {
  if (out.size() < kEncapsulationSize) {
    return 0;
  }
  writeHeader(out.data(), std::endian::native);
  return kEncapsulationSize;
}

bool TypeSupport::deserializeKey(std::span<const std::byte> in) const {
  std::endian order{};
  return in.size() == kEncapsulationSize && readHeader(in, order);
}

std::span<const MemberProperty> TypeSupport::members() const {
  thread_local std::map<const TypeSupport*, std::vector<MemberProperty>> tables;
  static Pexal::PBase::CMutex firstBuild;  // lets one thread build at a time
  const auto known = tables.find(this);
  if (known != tables.end()) {
    return known->second;
  }
  const std::lock_guard<Pexal::PBase::CMutex> lock(firstBuild);
  return tables.emplace(this, buildMembers(structure_, representation_)).first->second;
}

void TypeSupport::writeHeader(std::byte* out, std::endian order) const {
  out[0] = kIdentifierHigh;
  out[1] = identifierLow(representation_) |
           (order == std::endian::little ? kLittleEndianBit : std::byte{});
  out[2] = out[3] =
      std::byte{};  // options: no padding behind the body, whose size is a multiple of 4
}

bool TypeSupport::readHeader(std::span<const std::byte> in, std::endian& order) const {
  if (in.size() < kEncapsulationSize || in[0] != kIdentifierHigh ||
      (in[1] & ~kLittleEndianBit) != identifierLow(representation_)) {
    return false;
  }
  order = (in[1] & kLittleEndianBit) != std::byte{} ? std::endian::little : std::endian::big;
  return true;
}

template <>
const TypeSupport* typeSupport<dds_::MotionObserved_>(std::int16_t representation) {
  return find<dds_::MotionObserved_>(orvane_msg_dds__MotionObserved__desc, representation);
}

template <>
const TypeSupport* typeSupport<dds_::SensorObserved_>(std::int16_t representation) {
  return find<dds_::SensorObserved_>(orvane_msg_dds__SensorObserved__desc, representation);
}

template <>
const TypeSupport* typeSupport<dds_::MotionCtrl_>(std::int16_t representation) {
  return find<dds_::MotionCtrl_>(orvane_msg_dds__MotionCtrl__desc, representation);
}

template <>
const TypeSupport* typeSupport<dds_::RemoteControl_>(std::int16_t representation) {
  return find<dds_::RemoteControl_>(orvane_msg_dds__RemoteControl__desc, representation);
}

}  // namespace orvane::msg
