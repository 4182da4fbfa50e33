// The encoded messages: bytes to a structure, to bytes again in every encoding and byte order, and
// to the public records. The first byte says what the rest is taken for.

#include <algorithm>
#include <bit>
#include <cstring>
#include <memory>
#include <span>
#include <type_traits>

#include "FuzzSupport.h"
#include "msg/TypeSupport.h"
#include "observed/ObservedRecords.h"

namespace {

using orvane::msg::Representation;
using orvane::msg::TypeSupport;
using orvane::msg::typeSupport;
using namespace orvane::msg::dds_;

constexpr std::int16_t kRepresentations[] = {0, 2};

/// How the input is to be read. Free bytes almost never have the one right size and header, so most
/// inputs say what they want to be and are padded and cut to it.
struct Shape {
  explicit Shape(std::uint8_t byte)
      : type(byte & 3U),
        representation(kRepresentations[(byte >> 2U) & 1U]),
        littleEndian((byte & 8U) != 0),
        raw((byte & 16U) != 0),
        extra((byte & 32U) != 0 ? 4 : 0) {}

  unsigned type;
  std::int16_t representation;
  bool littleEndian;
  bool raw;           ///< as it is, header and size included
  std::size_t extra;  ///< bytes beyond the size: an array's length in front of it
};

std::vector<std::byte> encodedInput(const TypeSupport& type, const Shape& shape,
                                    std::span<const std::byte> bytes) {
  std::vector<std::byte> input(bytes.begin(), bytes.end());
  if (shape.raw) return input;
  const bool xcdr2 = type.representation() == Representation::kXcdr2;
  const std::byte header[] = {std::byte{0},
                              std::byte(unsigned{xcdr2 ? 6U : 0U} + (shape.littleEndian ? 1 : 0)),
                              std::byte{0}, std::byte{0}};
  input.insert(input.begin(), std::begin(header), std::end(header));
  input.resize(type.maxSize() + shape.extra);
  return input;
}

std::vector<std::byte> encode(const TypeSupport& type, const void* sample, std::endian order) {
  std::vector<std::byte> bytes(type.maxSize());
  fuzz::require(type.serialize(sample, bytes, order) == bytes.size(), "a sample encodes");
  return bytes;
}

template <class T>
void checkSample(const T& sample) {
  const auto plain = encode(*typeSupport<T>(0), &sample, std::endian::little);
  for (const std::int16_t representation : kRepresentations) {
    const TypeSupport& type = *typeSupport<T>(representation);
    for (const std::endian order : {std::endian::little, std::endian::big}) {
      const auto again = std::make_unique<T>();
      std::memset(static_cast<void*>(again.get()), 0x5a, sizeof(T));
      fuzz::require(type.deserialize(encode(type, &sample, order), again.get()),
                    "what was encoded decodes");
      fuzz::require(encode(*typeSupport<T>(0), again.get(), std::endian::little) == plain,
                    "it decodes to the same sample");
    }
  }
}

void checkRecord(const MotionObserved_& sample) {
  const auto record = orvane::RobotSdk::toMotionRecord(sample);
  // Counts beyond the array are passed on as they are.
  fuzz::require(record.motorNum == std::max(sample.motorNum, 0),
                "the number of motors is the sample's, or zero instead of a negative one");
  const orvane::RobotSdk::ObservedMotor none{};
  for (int motor = 0; motor < static_cast<int>(orvane::RobotSdk::kMaxMotors); ++motor) {
    const auto& entry = record.motor[motor];
    if (motor < sample.motorNum) {
      fuzz::require(entry.online == sample.motor[motor].online, "a motor is passed on");
    } else {
      fuzz::require(std::memcmp(&entry, &none, sizeof none) == 0, "the others stay zero");
    }
  }
}

void checkRecord(const SensorObserved_& sample) {
  const auto record = orvane::RobotSdk::toSensorRecord(sample);
  fuzz::require(record.odom.epoch == sample.odom.epoch && record.gps.valid == sample.gps.valid,
                "a sensor sample is passed on");
}

template <class T>
void checkInput(const Shape& shape, std::span<const std::byte> bytes) {
  const TypeSupport& type = *typeSupport<T>(shape.representation);
  const auto input = encodedInput(type, shape, bytes);
  const auto sample = std::make_unique<T>();  // exactly its size, for the address sanitizer
  std::memset(static_cast<void*>(sample.get()), 0xa5, sizeof(T));
  const auto before = std::make_unique<T>(*sample);
  const bool valid = type.deserialize(input, sample.get());
  if (!valid) {
    fuzz::require(std::memcmp(sample.get(), before.get(), sizeof(T)) == 0,
                  "a refused body changes nothing");
    fuzz::require(shape.raw || shape.extra > 0, "a body of the right size is taken");
    return;
  }
  checkSample(*sample);
  if constexpr (std::is_same_v<T, MotionObserved_> || std::is_same_v<T, SensorObserved_>) {
    checkRecord(*sample);
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  if (size == 0) return 0;
  const Shape shape(data[0]);
  const auto bytes = std::as_bytes(std::span(data, size)).subspan(1);
  const TypeSupport& key = *typeSupport<MotionCtrl_>(shape.representation);
  fuzz::require(!key.deserializeKey(bytes) || bytes.size() == key.maxKeySize(),
                "a key is its header alone");
  switch (shape.type) {
    case 0:
      checkInput<MotionObserved_>(shape, bytes);
      break;
    case 1:
      checkInput<SensorObserved_>(shape, bytes);
      break;
    case 2:
      checkInput<MotionCtrl_>(shape, bytes);
      break;
    default:
      checkInput<RemoteControl_>(shape, bytes);
  }
  return 0;
}
