// The message types as DDS sees them: names, sizes, encodings, type information.

#include "msg/TypeSupport.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstring>
#include <future>
#include <string>
#include <vector>

#include "msg_samples.h"

namespace {

using namespace orvane::msg::dds_;
using orvane::msg::TypeSupport;
using orvane::msg::typeSupport;
using samples::at;
using samples::patterned;
using testing::Each;
using testing::ElementsAre;
using testing::HasSubstr;
using Bytes = std::vector<std::byte>;

constexpr std::int16_t kXcdr1 = 0;
constexpr std::int16_t kXcdr2 = 2;
constexpr std::int16_t kRepresentations[] = {kXcdr1, kXcdr2};
constexpr std::size_t kHeader = TypeSupport::kEncapsulationSize;

/// Encodes into memory of exactly the encoded size, where a sanitizer sees any step beyond it.
Bytes encode(const TypeSupport& type, const void* sample, std::endian order = std::endian::native) {
  Bytes bytes(type.maxSize(), std::byte{0x5a});
  EXPECT_EQ(type.serialize(sample, bytes, order), bytes.size());
  return bytes;
}

template <class V>
V bodyAt(const Bytes& bytes, std::size_t offset) {
  return at<V>(bytes.data(), kHeader + offset);
}

/// In a given representation: the size of the body, and where it has the members.
struct Body {
  std::size_t size;
  std::vector<std::uint32_t> offsets;
};

struct TypeFacts {
  const char* name;
  std::size_t inMemory;
  Body xcdr1;
  Body xcdr2;
  /// Of the type and all that it is made of; peers of another make compare it.
  const char* minimalIdentifier;
};

std::vector<std::uint32_t> remoteControlOffsets() {
  std::vector<std::uint32_t> offsets{0, 8};
  for (std::uint32_t key = 16; key < 32; ++key) offsets.push_back(key);
  for (std::uint32_t stick = 32; stick < 56; stick += 4) offsets.push_back(stick);
  return offsets;
}

template <class T>
TypeFacts facts() {
  if constexpr (std::is_same_v<T, MotionObserved_>) {
    return {"orvane::msg::dds_::MotionObserved_",
            768,
            {764, {0, 88, 96, 104, 744}},
            {760, {0, 88, 92, 100, 740}},
            "f1023d11c6c89901e5fd5e7684ea82"};
  } else if constexpr (std::is_same_v<T, SensorObserved_>) {
    return {"orvane::msg::dds_::SensorObserved_",
            88,
            {84, {0, 8, 32, 44}},
            {84, {0, 8, 32, 44}},
            "f1c32678bccf1d27d8f229acfc7de9"};
  } else if constexpr (std::is_same_v<T, MotionCtrl_>) {
    return {"orvane::msg::dds_::MotionCtrl_",
            464,
            {464, {0, 8, 16}},
            {460, {0, 4, 12}},
            "f1b5385a93744c6cdd8a05e298ecf0"};
  } else {
    return {"orvane::msg::dds_::RemoteControl_",
            56,
            {56, remoteControlOffsets()},
            {56, remoteControlOffsets()},
            "f1a88010a222440ee7791aa7285e7e"};
  }
}

std::string hexadecimal(std::span<const unsigned char> bytes) {
  std::string digits;
  for (const unsigned char byte : bytes) {
    for (const int digit : {byte >> 4, byte & 15}) digits += "0123456789abcdef"[digit];
  }
  return digits;
}

template <class T>
class MessageType : public testing::Test {};
using MessageTypes = testing::Types<MotionObserved_, SensorObserved_, MotionCtrl_, RemoteControl_>;
TYPED_TEST_SUITE(MessageType, MessageTypes);

TYPED_TEST(MessageType, IsWhatPeersKnow) {
  const TypeFacts known = facts<TypeParam>();
  for (const std::int16_t representation : kRepresentations) {
    const TypeSupport* const type = typeSupport<TypeParam>(representation);
    ASSERT_NE(type, nullptr);
    EXPECT_EQ(static_cast<std::int16_t>(type->representation()), representation);
    EXPECT_EQ(type->registeredName(), known.name);
    EXPECT_TRUE(type->keyless() && type->fixedSize());
    EXPECT_EQ(type->sampleSize(), known.inMemory);
    const Body& body = representation == kXcdr1 ? known.xcdr1 : known.xcdr2;
    EXPECT_EQ(type->maxSize(), kHeader + body.size);
    const auto members = type->members();
    ASSERT_EQ(members.size(), body.offsets.size());
    for (std::size_t i = 0; i < members.size(); ++i) {
      EXPECT_EQ(members[i].id, i);
      EXPECT_EQ(members[i].offset, body.offsets[i]) << members[i].name;
      EXPECT_EQ(members[i].offset % members[i].alignment, 0U) << members[i].name;
    }
    EXPECT_EQ(members.back().offset + members.back().size, body.size);

    Bytes key(type->maxKeySize());
    EXPECT_EQ(type->serializeKey(key), kHeader);
    EXPECT_TRUE(type->deserializeKey(key));
    EXPECT_FALSE(type->deserializeKey(std::span(key).first(3)));
    EXPECT_EQ(type->serializeKey(std::span(key).first(3)), 0U);
    EXPECT_THAT(type->keyHash(), Each(std::byte{}));

    EXPECT_THAT(hexadecimal(type->typeInformation()), HasSubstr(known.minimalIdentifier));
    EXPECT_FALSE(type->typeMapping().empty());
  }
  for (const std::int16_t other : {1, 3, -1, 32767}) {
    EXPECT_EQ(typeSupport<TypeParam>(other), nullptr);
  }
}

TYPED_TEST(MessageType, ComesBackAsItWasFromEitherEncodingAndByteOrder) {
  const auto sent = patterned<TypeParam>();
  const TypeSupport& plain = *typeSupport<TypeParam>(kXcdr1);
  for (const std::int16_t representation : kRepresentations) {
    const TypeSupport& type = *typeSupport<TypeParam>(representation);
    for (const std::endian order : {std::endian::little, std::endian::big}) {
      const Bytes bytes = encode(type, &sent, order);
      EXPECT_EQ(std::to_integer<int>(bytes[1]),
                (representation == kXcdr1 ? 0 : 6) + (order == std::endian::little ? 1 : 0));
      auto received = patterned<TypeParam>(50);
      ASSERT_TRUE(type.deserialize(bytes, &received));
      EXPECT_EQ(encode(plain, &received), encode(plain, &sent));
    }
  }
}

TYPED_TEST(MessageType, RefusesWhatIsNotExactlyOneEncodedSample) {
  const auto sent = patterned<TypeParam>();
  for (const std::int16_t representation : kRepresentations) {
    const TypeSupport& type = *typeSupport<TypeParam>(representation);
    const Bytes whole = encode(type, &sent);
    const auto untouched = patterned<TypeParam>(9);
    auto target = untouched;
    for (std::size_t size = 0; size <= whole.size() + 1; ++size) {
      Bytes other = whole;
      other.resize(size);
      if (size == whole.size()) continue;
      EXPECT_FALSE(type.deserialize(other, &target)) << size;
    }
    for (int header = 0; header < 0x10000; ++header) {
      Bytes other = whole;
      other[0] = static_cast<std::byte>(header >> 8);
      other[1] = static_cast<std::byte>(header);
      const std::byte kind = (other[1] ^ whole[1]) & ~std::byte{1};
      if (other[0] == whole[0] && kind == std::byte{}) continue;  // its own, in either byte order
      ASSERT_FALSE(type.deserialize(other, &target)) << header;
    }
    EXPECT_EQ(std::memcmp(&target, &untouched, sizeof target), 0);

    Bytes tooSmall(type.maxSize() - 1, std::byte{0x5a});
    EXPECT_EQ(type.serialize(&sent, tooSmall), 0U);
    EXPECT_THAT(tooSmall, Each(std::byte{0x5a}));
  }
}

TEST(MessageEncoding, HasItsNumbersInPlaceAndZeroPadding) {
  auto sample = patterned<MotionObserved_>();
  sample.motorNum = -1;  // all sixteen entries are carried whatever the count
  sample.timestamp = 0x1122334455667788;
  sample.imu.accel.error = 'e';
  sample.imu.accel.x = 1.5F;
  sample.imu.quaternion.w = -2.0F;
  sample.motor[15].lossRate = 0.25F;
  sample.motor[15].header.jointNo = 0xcafe;
  sample.power.temper = 36.6F;
  for (const std::int16_t representation : kRepresentations) {
    const Bytes bytes = encode(*typeSupport<MotionObserved_>(representation), &sample);
    const std::size_t shift = representation == kXcdr1 ? 4 : 0;
    EXPECT_EQ(bodyAt<char>(bytes, 4), 'e');
    EXPECT_EQ(bodyAt<float>(bytes, 8), 1.5F);
    EXPECT_EQ(bodyAt<float>(bytes, 72), -2.0F);
    EXPECT_EQ(bodyAt<std::int32_t>(bytes, 88), -1);
    EXPECT_EQ(bodyAt<std::uint64_t>(bytes, 92 + shift), 0x1122334455667788U);
    EXPECT_EQ(bodyAt<float>(bytes, 100 + shift + 15 * 40 + 24), 0.25F);
    EXPECT_EQ(bodyAt<std::uint32_t>(bytes, 100 + shift + 15 * 40 + 36), 0xcafeU);
    EXPECT_EQ(bodyAt<float>(bytes, 740 + shift + 8), 36.6F);
    EXPECT_EQ(bodyAt<std::uint32_t>(bytes, 4) >> 8, 0U);
    EXPECT_EQ(bodyAt<std::uint8_t>(bytes, 100 + shift + 3), 0);
  }
}

TEST(MessageEncoding, BigEndianBodiesReverseEveryNumber) {
  auto sample = patterned<SensorObserved_>();
  sample.timestamp = 0x0102030405060708;
  sample.uwb.rssi = 0x1234;
  sample.odom.epoch = 0xa1b2c3d4;
  const Bytes bytes = encode(*typeSupport<SensorObserved_>(kXcdr1), &sample, std::endian::big);
  const auto* const body = reinterpret_cast<const unsigned char*>(bytes.data() + kHeader);
  EXPECT_THAT(std::vector(body, body + 8), ElementsAre(1, 2, 3, 4, 5, 6, 7, 8));
  EXPECT_THAT(std::vector(body + 34, body + 36), ElementsAre(0x12, 0x34));
  EXPECT_THAT(std::vector(body + 48, body + 52), ElementsAre(0xa1, 0xb2, 0xc3, 0xd4));
}

TEST(MemberTable, BelongsToTheThreadThatAskedAndTellsSizesAndAlignments) {
  const TypeSupport& type = *typeSupport<MotionObserved_>(kXcdr1);
  const auto mine = type.members();
  EXPECT_EQ(mine.data(), type.members().data());
  auto others = std::async(std::launch::async, [&] { return type.members().data(); });
  EXPECT_NE(others.get(), mine.data());
  EXPECT_EQ(mine[3].size, 640U);
  EXPECT_EQ(typeSupport<MotionCtrl_>(kXcdr1)->members()[1].alignment, 8U);
  EXPECT_EQ(typeSupport<MotionCtrl_>(kXcdr2)->members()[1].alignment, 4U);
}

}  // namespace
