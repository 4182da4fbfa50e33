#pragma once

#include <gtest/gtest.h>
#include <json/json.h>

#include <cstdint>
#include <fstream>
#include <iterator>
#include <sstream>
#include <string>
#include <vector>

#include "record/Channels.h"
#include "record/McapReader.h"
#include "record/McapWriter.h"
#include "record/RecordCodec.h"
#include "sdk_process.h"
#include "sdk_support.h"

/// What the tests of recordings and pictures share.
namespace robotctl_test {

using namespace robotctl;
using orvane::RobotSdk::ObservedMotionRecord;
using orvane::RobotSdk::ObservedSensorRecord;
using Bytes = std::vector<std::uint8_t>;

inline Bytes contentsOf(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  return Bytes(std::istreambuf_iterator<char>(file), {});
}

inline Json::Value parsed(const std::string& text) {
  Json::Value document;
  std::istringstream stream(text);
  std::string errors;
  EXPECT_TRUE(Json::parseFromStream(Json::CharReaderBuilder(), stream, &document, &errors)) << text;
  return document;
}

/// What one of the independent checkers (check_*.py) prints; null, and a failure, when it objects.
inline Json::Value checked(const std::string& script, const std::vector<std::string>& arguments) {
  std::vector<std::string> command = {"python3", CHECKERS "/" + script};
  command.insert(command.end(), arguments.begin(), arguments.end());
  sdk_test::Process checker(command);
  const auto status = checker.finish(2 * sdk_test::kLimitMs);
  EXPECT_EQ(status, 0) << script << ": " << checker.output();
  return status == 0 ? parsed(checker.output()) : Json::Value();
}

/// A recording made by hand, message by message; times in seconds.
class HandMade {
 public:
  static constexpr std::uint64_t kStartNs = 1'700'000'000'000'000'000;

  explicit HandMade(const std::string& path)
      : file_(path, OutputFile::Existing::kReplace), writer_(file_, "by hand") {
    for (const ChannelKind& kind : kChannelKinds) {
      std::string schema(kind.schema);
      if (kind.topic == "/motion") schema = codec::motionDefinition();
      if (kind.topic == "/sensor") schema = codec::sensorDefinition();
      static_cast<void>(writer_.addChannel(kind.topic, kind.encoding, kind.schemaName,
                                           kind.schemaEncoding, schema));
    }
  }
  template <class Record>
  void add(ChannelNumber channel, double time, const Record& record) {
    codec::encode(record, buffer_);
    write(channel, time, buffer_.view());
  }
  void add(ChannelNumber channel, double time, const std::string& json) {
    write(channel, time, {reinterpret_cast<const std::uint8_t*>(json.data()), json.size()});
  }
  void flush() { writer_.flush(); }
  void finish() {
    writer_.finish();
    file_.close();
  }

 private:
  void write(ChannelNumber channel, double time, mcap::ByteView data) {
    const auto timeNs = kStartNs + static_cast<std::uint64_t>(time * 1e9);
    writer_.message(static_cast<std::uint16_t>(static_cast<unsigned>(channel) + 1), timeNs, data);
  }

  OutputFile file_;
  mcap::McapWriter writer_;
  mcap::ByteBuffer buffer_;
};

}  // namespace robotctl_test
