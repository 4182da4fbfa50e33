// A recording from anywhere: whatever stands in it, it can be read and drawn. What is delivered
// lies within the file, less of a file never holds more, and every picture is one document of plain
// elements.

#include <algorithm>
#include <vector>

#include "FuzzSupport.h"
#include "plot/Plot.h"
#include "record/Channels.h"
#include "record/McapReader.h"
#include "record/RecordCodec.h"

namespace {

using namespace robotctl;

/// A record that can be read is written as a message that reads as the same again.
template <class Record>
void checkCodec(mcap::ByteView bytes) {
  Record record;
  if (!codec::decode(bytes, record)) return;
  mcap::ByteBuffer written;
  codec::encode(record, written);
  Record again;
  fuzz::require(codec::decode(written.view(), again), "what was read can be written and read");
  mcap::ByteBuffer twice;
  codec::encode(again, twice);
  fuzz::require(std::ranges::equal(written.view(), twice.view()), "it reads as it was");
}

/// Number of messages, and whether the file is complete.
mcap::Report check(mcap::ByteView bytes) {
  MemorySource source(bytes);
  mcap::McapReader reader(source);
  std::uint64_t delivered = 0;
  const mcap::Report report = reader.read([&](const mcap::Message& message) {
    ++delivered;
    fuzz::require(message.data.size() <= bytes.size(), "a message is no longer than the file");
    fuzz::require(message.channel.schema != nullptr, "a channel has a schema");
    checkCodec<orvane::RobotSdk::ObservedMotionRecord>(message.data);
    checkCodec<orvane::RobotSdk::ObservedSensorRecord>(message.data);
  });
  fuzz::require(delivered == report.messages, "every message that counts is delivered");
  fuzz::require(report.complete == report.damage.empty(), "what is incomplete has a reason");
  return report;
}

void checkPicture(mcap::ByteView bytes) {
  MemorySource source(bytes);
  const std::string picture = drawPlot(
      readPlotData(source),
      {PlotPart::kControl, PlotPart::kPath, PlotPart::kBattery, PlotPart::kImu, PlotPart::kJoints});
  int open = 0;
  for (std::size_t at = 0; at < picture.size(); ++at) {
    const char byte = picture[at];
    fuzz::require(static_cast<unsigned char>(byte) >= ' ' || byte == '\n', "no control characters");
    if (byte == '<') ++open;
    if (byte == '>') --open;
    fuzz::require(open == 0 || open == 1, "no text is taken for an element",
                  picture.substr(at, 80));
  }
}

template <class Fill>
void addRecord(mcap::ByteBuffer& file, mcap::Opcode opcode, Fill&& fill) {
  mcap::ByteBuffer content;
  fill(content);
  file.put(opcode);
  file.put<std::uint64_t>(content.size());
  file.append(content.view());
}

/// The beginning of a file with the channels of a recording.
mcap::ByteBuffer beginningOfFile() {
  mcap::ByteBuffer file;
  file.append(mcap::kMagic);
  for (std::uint16_t id = 1; id <= kChannels; ++id) {
    const ChannelKind& kind = kChannelKinds[id - 1U];
    addRecord(file, mcap::Opcode::kSchema, [&](mcap::ByteBuffer& content) {
      content.put(id);
      content.putText(kind.schemaName);
      content.putText(kind.schemaEncoding);
      content.putText(id == 1   ? codec::motionDefinition()
                      : id == 2 ? codec::sensorDefinition()
                                : "");
    });
    addRecord(file, mcap::Opcode::kChannel, [&](mcap::ByteBuffer& content) {
      content.put(id);
      content.put(id);
      content.putText(kind.topic);
      content.putText(kind.encoding);
      content.put<std::uint32_t>(0);
    });
  }
  return file;
}

/// A file with the messages that the input holds.
mcap::ByteBuffer fileOf(mcap::ByteView input) {
  static const mcap::ByteBuffer beginning = beginningOfFile();
  mcap::ByteBuffer file = beginning;
  std::uint64_t timeNs = 0;
  for (mcap::ByteCursor cursor(input); !cursor.rest().empty();) {
    const auto channel = cursor.take<std::uint8_t>();
    timeNs += cursor.take<std::uint16_t>() * std::uint64_t{100'000'000};
    const auto length = cursor.take<std::uint16_t>();
    const mcap::ByteView data =
        cursor.takeBytes(std::min<std::size_t>(length, cursor.rest().size()));
    addRecord(file, mcap::Opcode::kMessage, [&](mcap::ByteBuffer& content) {
      content.put<std::uint16_t>(channel);
      content.put<std::uint32_t>(0);
      content.put(timeNs);
      content.put(timeNs);
      content.append(data);
    });
  }
  return file;
}

void checkFile(mcap::ByteView bytes) {
  const mcap::Report whole = check(bytes);
  if (whole.messages > 0) checkPicture(bytes);
  const std::size_t size = mcap::kMagic.size() + (bytes.size() - mcap::kMagic.size()) / 2;
  fuzz::require(check(bytes.first(size)).messages <= whole.messages, "half a file holds no more");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const mcap::ByteView input(data, size);
  if (size >= mcap::kMagic.size() &&
      std::ranges::equal(input.first(mcap::kMagic.size()), mcap::kMagic)) {
    checkFile(input);
    return 0;
  }
  try {
    static_cast<void>(check(input));
    fuzz::require(false, "what doesn't begin as MCAP is refused");
  } catch (const mcap::NotMcap&) {
  }
  checkFile(fileOf(input).view());
  return 0;
}
