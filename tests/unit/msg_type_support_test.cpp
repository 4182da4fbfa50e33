// The message types as DDS sees them: names, sizes, encodings, type information.

#include "msg/TypeSupport.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include "Variants.h"
#include "msg_samples.h"
#include "pbase/CThread.h"

namespace {

using namespace orvane::msg::dds_;
using orvane::msg::TypeSupport;
using orvane::msg::typeSupport;
using samples::at;
using samples::patterned;
using testing::ElementsAre;
using testing::ElementsAreArray;

constexpr std::int16_t kXcdr1 = 0;
constexpr std::int16_t kXml = 1;
constexpr std::int16_t kXcdr2 = 2;
constexpr std::size_t kHeader = TypeSupport::kEncapsulationSize;

/// Encodes into memory of exactly the encoded size, where a sanitizer sees any step beyond it.
std::vector<std::byte> encode(const TypeSupport& type, const void* sample,
                              std::endian order = std::endian::native) {
  std::vector<std::byte> bytes(type.maxSize());
  EXPECT_EQ(type.serialize(sample, bytes, order), bytes.size());
  return bytes;
}

template <class V>
V bodyAt(const std::vector<std::byte>& bytes, std::size_t offset) {
  return at<V>(bytes.data(), kHeader + offset);
}

struct TypeFacts {
  const char* name;
  std::size_t inMemory;
  std::size_t body1;
  std::size_t body2;
  std::size_t dependencies;
  std::vector<std::uint32_t> offsets1;
  std::vector<std::uint32_t> offsets2;
};

template <class T>
const TypeFacts& facts();

std::vector<std::uint32_t> remoteControlOffsets() {
  std::vector<std::uint32_t> offsets{0, 8};
  for (std::uint32_t key = 16; key < 32; ++key) offsets.push_back(key);
  for (std::uint32_t stick = 32; stick < 56; stick += 4) offsets.push_back(stick);
  return offsets;
}

template <>
const TypeFacts& facts<MotionObserved_>() {
  static const TypeFacts known{"orvane::msg::dds_::MotionObserved_",
                               768,
                               764,
                               760,
                               9,
                               {0, 88, 96, 104, 744},
                               {0, 88, 92, 100, 740}};
  return known;
}
template <>
const TypeFacts& facts<SensorObserved_>() {
  static const TypeFacts known{
      "orvane::msg::dds_::SensorObserved_", 88, 84, 84, 8, {0, 8, 32, 44}, {0, 8, 32, 44}};
  return known;
}
template <>
const TypeFacts& facts<MotionCtrl_>() {
  static const TypeFacts known{
      "orvane::msg::dds_::MotionCtrl_", 464, 464, 460, 3, {0, 8, 16}, {0, 4, 12}};
  return known;
}
template <>
const TypeFacts& facts<RemoteControl_>() {
  static const TypeFacts known{"orvane::msg::dds_::RemoteControl_",
                               56,
                               56,
                               56,
                               0,
                               remoteControlOffsets(),
                               remoteControlOffsets()};
  return known;
}

/// One half, minimal or complete, of an XTypes TypeInformation.
struct TypeInformationHalf {
  std::string identifier;  // equivalence kind and hash
  std::size_t announcedDependencies = 0;
  std::vector<std::string> dependencies;
};

/// Reads TypeInformation: a mutable structure of two members (0x1001 minimal, 0x1002 complete),
/// each one identifier with its size, the number of dependencies, and their identifiers with sizes.
TypeInformationHalf parse(std::span<const unsigned char> blob, bool complete) {
  const auto word = [&](std::size_t offset) {
    return offset + 4 <= blob.size() ? at<std::uint32_t>(blob.data(), offset) : 0;
  };
  constexpr std::uint32_t kIdentifierSize = 15;
  const auto identifier = [&](std::size_t offset) {
    if (offset + kIdentifierSize > blob.size()) return std::string();
    return std::string(reinterpret_cast<const char*>(blob.data() + offset), kIdentifierSize);
  };
  TypeInformationHalf half;
  EXPECT_EQ(word(0), blob.size() - 4);
  std::size_t member = 4;
  const std::uint32_t wanted = complete ? 0x1002 : 0x1001;
  if ((word(member) & 0xffff) != wanted) member += 8 + word(member + 4);
  EXPECT_EQ(word(member) & 0xffff, wanted);
  const std::size_t body = member + 8;  // behind the member's header and length
  half.identifier = identifier(body + 8);
  half.announcedDependencies = word(body + 28);
  for (std::size_t i = 0; i < word(body + 36); ++i) {
    half.dependencies.push_back(identifier(body + 40 + i * 24 + 4));
  }
  return half;
}

TypeInformationHalf minimalOf(const dds_topic_descriptor_t& descriptor) {
  return parse({descriptor.type_information.data, descriptor.type_information.sz}, false);
}

template <class T>
class MessageType : public testing::Test {};
using MessageTypes = testing::Types<MotionObserved_, SensorObserved_, MotionCtrl_, RemoteControl_>;
TYPED_TEST_SUITE(MessageType, MessageTypes);

TYPED_TEST(MessageType, HasOneSupportPerRepresentationAndNoneForOthers) {
  const TypeFacts& known = facts<TypeParam>();
  for (const std::int16_t representation : {kXcdr1, kXcdr2}) {
    const TypeSupport* const type = typeSupport<TypeParam>(representation);
    ASSERT_NE(type, nullptr);
    EXPECT_EQ(static_cast<std::int16_t>(type->representation()), representation);
    EXPECT_EQ(type->registeredName(), known.name);
    EXPECT_TRUE(type->keyless());
    EXPECT_TRUE(type->fixedSize());
    EXPECT_EQ(type->sampleSize(), known.inMemory);
    EXPECT_EQ(type->maxSize(), kHeader + (representation == kXcdr1 ? known.body1 : known.body2));
    EXPECT_EQ(type, typeSupport<TypeParam>(representation));
  }
  for (const int other : {int{kXml}, 3, -1, 32767}) {
    EXPECT_EQ(typeSupport<TypeParam>(static_cast<std::int16_t>(other)), nullptr);
  }
}

TYPED_TEST(MessageType, MembersLieWhereTheBodyHasThem) {
  for (const std::int16_t representation : {kXcdr1, kXcdr2}) {
    const auto members = typeSupport<TypeParam>(representation)->members();
    const auto& offsets =
        representation == kXcdr1 ? facts<TypeParam>().offsets1 : facts<TypeParam>().offsets2;
    ASSERT_EQ(members.size(), offsets.size());
    for (std::size_t i = 0; i < members.size(); ++i) {
      EXPECT_EQ(members[i].id, i);
      EXPECT_EQ(members[i].offset, offsets[i]) << members[i].name;
      EXPECT_EQ(members[i].offset % members[i].alignment, 0U) << members[i].name;
    }
    EXPECT_EQ(kHeader + members.back().offset + members.back().size,
              typeSupport<TypeParam>(representation)->maxSize());
  }
}

TYPED_TEST(MessageType, ComesBackAsItWasFromEitherEncodingAndByteOrder) {
  const auto sent = patterned<TypeParam>();
  const TypeSupport& plain = *typeSupport<TypeParam>(kXcdr1);
  for (const std::int16_t representation : {kXcdr1, kXcdr2}) {
    const TypeSupport& type = *typeSupport<TypeParam>(representation);
    for (const std::endian order : {std::endian::little, std::endian::big}) {
      const auto bytes = encode(type, &sent, order);
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
  for (const std::int16_t representation : {kXcdr1, kXcdr2}) {
    const TypeSupport& type = *typeSupport<TypeParam>(representation);
    const auto whole = encode(type, &sent);
    const auto untouched = patterned<TypeParam>(9);
    auto target = untouched;
    for (std::size_t size = 0; size < whole.size(); ++size) {
      const std::vector<std::byte> cut(whole.begin(), whole.begin() + static_cast<long>(size));
      EXPECT_FALSE(type.deserialize(cut, &target)) << size;
    }
    auto longer = whole;
    longer.resize(whole.size() + 1);
    EXPECT_FALSE(type.deserialize(longer, &target));
    const std::byte own = whole[1] & ~std::byte{1};
    for (int high = 0; high < 256; high += 85) {
      for (int low = 0; low < 256; ++low) {
        auto other = whole;
        other[0] = static_cast<std::byte>(high);
        other[1] = static_cast<std::byte>(low);
        if (high == 0 && (other[1] & ~std::byte{1}) == own) continue;
        EXPECT_FALSE(type.deserialize(other, &target)) << high << ' ' << low;
      }
    }
    EXPECT_EQ(std::memcmp(&target, &untouched, sizeof target), 0);

    std::vector<std::byte> tooSmall(type.maxSize() - 1, std::byte{0x5a});
    EXPECT_EQ(type.serialize(&sent, tooSmall), 0U);
    EXPECT_THAT(tooSmall, testing::Each(std::byte{0x5a}));
  }
}

TYPED_TEST(MessageType, HasAnEmptyKey) {
  for (const std::int16_t representation : {kXcdr1, kXcdr2}) {
    const TypeSupport& type = *typeSupport<TypeParam>(representation);
    std::vector<std::byte> key(type.maxKeySize());
    EXPECT_EQ(type.serializeKey(key), kHeader);
    EXPECT_TRUE(type.deserializeKey(key));
    EXPECT_FALSE(type.deserializeKey(std::span(key).first(3)));
    EXPECT_EQ(type.serializeKey(std::span(key).first(3)), 0U);
    EXPECT_THAT(type.keyHash(), testing::Each(std::byte{}));
  }
}

TYPED_TEST(MessageType, CarriesTypeInformationWithItsDependencies) {
  const TypeSupport& type = *typeSupport<TypeParam>(kXcdr1);
  for (const bool complete : {false, true}) {
    const TypeInformationHalf half = parse(type.typeInformation(), complete);
    EXPECT_EQ(half.announcedDependencies, facts<TypeParam>().dependencies);
    EXPECT_EQ(half.dependencies.size(), facts<TypeParam>().dependencies);
    EXPECT_EQ(half.identifier.front(), complete ? '\xf2' : '\xf1');
    for (const std::string& dependency : half.dependencies) {
      EXPECT_EQ(dependency.front(), half.identifier.front());
    }
  }
  EXPECT_FALSE(type.typeMapping().empty());
  EXPECT_EQ(type.typeInformation().data(),
            typeSupport<TypeParam>(kXcdr2)->typeInformation().data());
}

TEST(MessageEncoding, MotionObservedHasItsNumbersInPlace) {
  auto sample = patterned<MotionObserved_>();
  sample.motorNum = -1;
  sample.timestamp = 0x1122334455667788;
  sample.imu.accel.error = 'e';
  sample.imu.accel.x = 1.5F;
  sample.imu.quaternion.w = -2.0F;
  sample.motor[15].lossRate = 0.25F;
  sample.motor[15].header.jointNo = 0xcafe;
  sample.power.temper = 36.6F;
  for (const std::int16_t representation : {kXcdr1, kXcdr2}) {
    const auto bytes = encode(*typeSupport<MotionObserved_>(representation), &sample);
    const std::size_t shift = representation == kXcdr1 ? 4 : 0;
    EXPECT_EQ(bodyAt<char>(bytes, 4), 'e');
    EXPECT_EQ(bodyAt<float>(bytes, 8), 1.5F);
    EXPECT_EQ(bodyAt<float>(bytes, 72), -2.0F);
    EXPECT_EQ(bodyAt<std::int32_t>(bytes, 88), -1);
    EXPECT_EQ(bodyAt<std::uint64_t>(bytes, 92 + shift), 0x1122334455667788U);
    EXPECT_EQ(bodyAt<float>(bytes, 100 + shift + 15 * 40 + 24), 0.25F);
    EXPECT_EQ(bodyAt<std::uint32_t>(bytes, 100 + shift + 15 * 40 + 36), 0xcafeU);
    EXPECT_EQ(bodyAt<float>(bytes, 740 + shift + 8), 36.6F);
    // Padding goes out as zero, whatever the sample's own padding holds.
    EXPECT_THAT(std::vector(bytes.begin() + kHeader + 5, bytes.begin() + kHeader + 8),
                testing::Each(std::byte{}));
    EXPECT_EQ(bodyAt<std::uint8_t>(bytes, 100 + shift + 3), 0);
  }
  EXPECT_EQ(bodyAt<std::uint32_t>(encode(*typeSupport<MotionObserved_>(kXcdr1), &sample), 92), 0U);
}

TEST(MessageEncoding, MotorCommandsCarryAllSixteenEntriesWhateverTheCount) {
  auto sample = patterned<MotionCtrl_>();
  sample.motorNum = 0;
  sample.motor[15].torque = 12.5F;
  const auto bytes = encode(*typeSupport<MotionCtrl_>(kXcdr2), &sample);
  EXPECT_EQ(bytes.size(), kHeader + 460);
  EXPECT_EQ(bodyAt<float>(bytes, 12 + 15 * 28 + 16), 12.5F);
}

TEST(MessageEncoding, BigEndianBodiesReverseEveryNumber) {
  auto sample = patterned<SensorObserved_>();
  sample.timestamp = 0x0102030405060708;
  sample.uwb.rssi = 0x1234;
  sample.odom.epoch = 0xa1b2c3d4;
  const auto bytes = encode(*typeSupport<SensorObserved_>(kXcdr1), &sample, std::endian::big);
  const auto* const body = reinterpret_cast<const unsigned char*>(bytes.data() + kHeader);
  EXPECT_THAT(std::vector(body, body + 8), ElementsAre(1, 2, 3, 4, 5, 6, 7, 8));
  EXPECT_THAT(std::vector(body + 34, body + 36), ElementsAre(0x12, 0x34));
  EXPECT_THAT(std::vector(body + 48, body + 52), ElementsAre(0xa1, 0xb2, 0xc3, 0xd4));
}

TEST(MessageEncoding, EightByteNumbersAreAlignedToFourInXcdr2) {
  EXPECT_EQ(typeSupport<MotionCtrl_>(kXcdr1)->members()[1].alignment, 8U);
  EXPECT_EQ(typeSupport<MotionCtrl_>(kXcdr2)->members()[1].alignment, 4U);
  EXPECT_EQ(typeSupport<MotionObserved_>(kXcdr1)->members()[3].size, 640U);
  EXPECT_EQ(typeSupport<SensorObserved_>(kXcdr1)->members()[2].alignment, 4U);
}

TEST(MemberTable, BelongsToTheThreadThatAsked) {
  const TypeSupport& type = *typeSupport<MotionObserved_>(kXcdr1);
  const auto mine = type.members();
  EXPECT_EQ(mine.data(), type.members().data());
  constexpr int kThreads = 4;
  std::vector<std::vector<std::uint32_t>> seen(kThreads);
  std::vector<const void*> where(kThreads);
  {
    std::vector<std::unique_ptr<Pexal::PBase::CThreadLite>> threads;
    for (int i = 0; i < kThreads; ++i) {
      threads.push_back(std::make_unique<Pexal::PBase::CThreadLite>("table", 0, 0, 0, [&, i] {
        where[i] = type.members().data();
        for (const auto& member : type.members()) seen[i].push_back(member.offset);
      }));
      ASSERT_TRUE(threads.back()->createThread());
    }
    while (!std::all_of(threads.begin(), threads.end(),
                        [](const auto& thread) { return thread->isThreadOver(); })) {
      Pexal::PBase::CThread::sleep(1);
    }
  }
  for (int i = 0; i < kThreads; ++i) {
    EXPECT_NE(where[i], mine.data());
    EXPECT_THAT(seen[i], ElementsAreArray(facts<MotionObserved_>().offsets1));
  }
}

TEST(TypeIdentity, DependsOnTheTypedefsAndOnSignedness) {
  const auto real = minimalOf(orvane_msg_dds__MotionCtrl__desc);
  EXPECT_EQ(minimalOf(variants_Faithful_desc).identifier, real.identifier);
  const auto withoutTypedef = minimalOf(variants_WithoutTypedef_desc);
  EXPECT_NE(withoutTypedef.identifier, real.identifier);
  EXPECT_EQ(withoutTypedef.dependencies.size(), real.dependencies.size() - 1);
  EXPECT_NE(minimalOf(variants_SignedCount_desc).identifier, real.identifier);
}

}  // namespace
