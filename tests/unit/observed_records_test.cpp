// Received samples against the records that applications get, byte by byte.

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <vector>

#include "msg_samples.h"
#include "observed/ObservedRecords.h"

namespace {

using namespace orvane::RobotSdk;
using orvane::msg::dds_::MotionObserved_;
using orvane::msg::dds_::SensorObserved_;

/// A field: where the sample has it, where the record has it, how long it is in the record.
struct Field {
  std::size_t from;
  std::size_t to;
  std::size_t width;
};

template <class Record, class Sample>
std::array<unsigned char, sizeof(Record)> recordBytes(const Sample& sample,
                                                      const std::vector<Field>& fields) {
  std::array<unsigned char, sizeof(Record)> bytes{};
  for (const Field& field : fields) {
    std::memcpy(bytes.data() + field.to, reinterpret_cast<const char*>(&sample) + field.from,
                field.width);
  }
  return bytes;
}

/// An error byte and, three bytes of padding later in the sample, numbers of four bytes.
void addVector(std::vector<Field>& fields, std::size_t from, std::size_t to, std::size_t numbers) {
  fields.push_back({from, to, 1});
  fields.push_back({from + 4, to + 1, 4 * numbers});
}

std::vector<Field> motionFields(std::size_t motors) {
  std::vector<Field> fields{{88, 3, 4}, {0, 7, 4}, {744, 132, 20}};
  for (std::size_t i = 0; i < 4; ++i) addVector(fields, 4 + 16 * i, 11 + 13 * i, 3);
  addVector(fields, 68, 63, 4);
  for (std::size_t i = 0; i < motors; ++i) {
    const std::size_t from = 104 + 40 * i;
    const std::size_t to = 152 + 35 * i;
    fields.push_back({from, to, 3});
    fields.push_back({from + 4, to + 3, 28});
    fields.push_back({from + 32, to + 31, 2});  // the low halves of limb and joint number
    fields.push_back({from + 36, to + 33, 2});
  }
  return fields;
}

TEST(MotionRecord, HoldsWhatTheCountCoversAndZeroElsewhere) {
  const struct {
    std::int32_t motorNum;
    std::size_t copied;
  } cases[] = {{-1, 0}, {INT32_MIN, 0}, {0, 0}, {3, 3}, {16, 16}, {20, 16}, {INT32_MAX, 16}};
  for (const auto& [motorNum, copied] : cases) {
    SCOPED_TRACE(motorNum);
    auto sample = samples::patterned<MotionObserved_>();
    sample.motorNum = motorNum;
    auto expected = recordBytes<ObservedMotionRecord>(sample, motionFields(copied));
    expected[1] = 1;
    if (motorNum < 0) std::fill_n(expected.begin() + 3, 4, 0);
    const ObservedMotionRecord record = toMotionRecord(sample);
    EXPECT_EQ(std::memcmp(&record, expected.data(), expected.size()), 0);
    EXPECT_EQ(std::int32_t{record.motorNum}, std::max(motorNum, 0));
  }
}

TEST(SensorRecord, HoldsTheOdometryInItsOwnOrderAndZeroPadding) {
  const auto sample = samples::patterned<SensorObserved_>();
  const auto expected = recordBytes<ObservedSensorRecord>(sample, {{8, 0, 24},
                                                                   {32, 24, 12},
                                                                   {44, 36, 1},
                                                                   {60, 40, 12},
                                                                   {72, 52, 12},
                                                                   {52, 64, 4},
                                                                   {56, 68, 4},
                                                                   {48, 72, 4}});
  const ObservedSensorRecord record = toSensorRecord(sample);
  EXPECT_EQ(std::memcmp(&record, expected.data(), expected.size()), 0);
}

}  // namespace
