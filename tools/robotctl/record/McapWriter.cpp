#include "record/McapWriter.h"

#include <algorithm>

#include "record/Crc32.h"

namespace robotctl::mcap {
namespace {

constexpr std::size_t kChunkBytes = 768U << 10;  // a chunk is written at the latest at this size
constexpr std::size_t kMessagesPerChunk = 4096;  // room for the indexes of that
constexpr std::size_t kChunksExpected = 16384;   // two hours
constexpr std::size_t kChunkHead = kRecordHead + 40;  // up to the first record in a chunk
constexpr std::size_t kIndexHead = 6;                 // channel and length of the entries
constexpr std::size_t kIndexEntry = 16;

/// Appends a record whose content `fill` appends.
template <class Fill>
void appendRecord(ByteBuffer& out, Opcode opcode, Fill&& fill) {
  out.put(opcode);
  const std::size_t lengthAt = out.size();
  out.put<std::uint64_t>(0);
  fill();
  out.putAt<std::uint64_t>(lengthAt, out.size() - lengthAt - sizeof(std::uint64_t));
}

/// The summary, with the groups that its offsets tell of.
class Summary {
 public:
  explicit Summary(std::uint64_t start) : start_(start) {}

  /// Records of one kind, which `fill` appends.
  template <class Fill>
  void group(Opcode opcode, Fill&& fill) {
    const std::size_t before = bytes.size();
    fill(bytes);
    if (bytes.size() == before) return;
    appendRecord(offsets_, Opcode::kSummaryOffset, [&] {
      offsets_.put(opcode);
      offsets_.put<std::uint64_t>(start_ + before);
      offsets_.put<std::uint64_t>(bytes.size() - before);
    });
  }

  /// Appends the offsets, the footer and the magic.
  void end() {
    const std::uint64_t offsetsStart = start_ + bytes.size();
    bytes.append(offsets_.view());
    bytes.put(Opcode::kFooter);
    bytes.put<std::uint64_t>(kFooterSize);
    bytes.put(start_);
    bytes.put(offsetsStart);
    bytes.put(crc32(bytes.view()));  // of the summary, and of the footer up to here
    bytes.append(kMagic);
  }

  ByteBuffer bytes;

 private:
  const std::uint64_t start_;
  ByteBuffer offsets_;
};

}  // namespace

McapWriter::McapWriter(OutputFile& file, std::string_view library) : file_(file) {
  ByteBuffer head;
  head.append(kMagic);
  appendRecord(head, Opcode::kHeader, [&] {
    head.putText("");  // profile: none, the channels speak for themselves
    head.putText(library);
  });
  file_.append(head.view());
  chunk_.prepare(2 * kChunkBytes);  // the indexes come behind the messages
  chunks_.resize(kChunksExpected);
  chunks_.clear();
  beginChunk();
}

std::uint16_t McapWriter::addChannel(std::string_view topic, std::string_view messageEncoding,
                                     std::string_view schemaName, std::string_view schemaEncoding,
                                     std::string_view schema) {
  Channel& channel = perChannel_.emplace_back();
  channel.index.resize(kMessagesPerChunk);
  channel.index.clear();
  indexed_.resize(kChunksExpected * perChannel_.size());
  indexed_.clear();
  const auto id = static_cast<std::uint16_t>(perChannel_.size());
  ByteBuffer records;
  appendRecord(records, Opcode::kSchema, [&] {
    records.put(id);
    records.putText(schemaName);
    records.putText(schemaEncoding);
    records.putText(schema);
  });
  schemas_.append(records.view());
  const std::size_t channelAt = records.size();
  appendRecord(records, Opcode::kChannel, [&] {
    records.put(id);
    records.put(id);  // its schema
    records.putText(topic);
    records.putText(messageEncoding);
    records.put<std::uint32_t>(0);  // no metadata
  });
  channels_.append(records.view().subspan(channelAt));
  chunk_.append(records.view());
  return id;
}

void McapWriter::message(std::uint16_t id, std::uint64_t timeNs, ByteView data) {
  if (chunk_.size() + data.size() > kChunkBytes) flush();
  Channel& channel = perChannel_[id - 1U];
  channel.index.push_back({timeNs, chunk_.size() - kChunkHead});
  chunk_.put(Opcode::kMessage);
  chunk_.put<std::uint64_t>(kMessageHead + data.size());
  chunk_.put(id);
  chunk_.put(channel.sequence++);
  chunk_.put(timeNs);
  chunk_.put(timeNs);
  chunk_.append(data);
  firstNs_ = chunkMessages_ == 0 ? timeNs : std::min(firstNs_, timeNs);
  lastNs_ = chunkMessages_ == 0 ? timeNs : std::max(lastNs_, timeNs);
  ++chunkMessages_;
}

void McapWriter::flush() {
  if (chunk_.size() == kChunkHead) return;
  const std::size_t end = chunk_.size();
  const std::uint64_t records = end - kChunkHead;
  chunk_.putAt<std::uint64_t>(1, end - kRecordHead);
  std::size_t at = kRecordHead;
  for (const std::uint64_t number : {firstNs_, lastNs_, records}) {
    chunk_.putAt(at, number);
    at += sizeof(number);
  }
  chunk_.putAt(at, crc32(chunk_.view().subspan(kChunkHead)));
  // Behind the CRC: no compression, an empty text; it is zero already.
  chunk_.putAt(at + 8, records);
  appendMessageIndexes();
  const ChunkEntry entry{firstNs_, lastNs_, file_.size(), end};
  try {
    file_.append(chunk_.view());
  } catch (...) {
    beginChunk();
    throw;
  }
  chunks_.push_back(entry);
  for (const Channel& channel : perChannel_) {
    indexed_.push_back(static_cast<std::uint32_t>(channel.index.size()));
  }
  beginChunk();
}

void McapWriter::beginChunk() {
  chunk_.clear();
  chunk_.put(Opcode::kChunk);
  chunk_.appendZeros(kChunkHead - 1);
  chunkMessages_ = 0;
  firstNs_ = lastNs_ = 0;
  for (Channel& channel : perChannel_) channel.index.clear();
}

void McapWriter::appendMessageIndexes() {
  for (std::size_t number = 0; number < perChannel_.size(); ++number) {
    std::vector<IndexEntry>& index = perChannel_[number].index;
    if (index.empty()) continue;
    appendRecord(chunk_, Opcode::kMessageIndex, [&] {
      chunk_.put(static_cast<std::uint16_t>(number + 1));
      chunk_.put(static_cast<std::uint32_t>(index.size() * kIndexEntry));
      for (const IndexEntry& entry : index) {
        chunk_.put(entry.timeNs);
        chunk_.put(entry.offset);
      }
    });
  }
}

void McapWriter::finish() {
  flush();
  ByteBuffer dataEnd;
  appendRecord(dataEnd, Opcode::kDataEnd, [&] {
    dataEnd.put<std::uint32_t>(0);  // no CRC of the whole: every chunk has its own
  });
  Summary summary(file_.size() + dataEnd.size());
  summary.group(Opcode::kSchema, [&](ByteBuffer& out) { out.append(schemas_.view()); });
  summary.group(Opcode::kChannel, [&](ByteBuffer& out) { out.append(channels_.view()); });
  summary.group(Opcode::kStatistics, [&](ByteBuffer& out) { appendStatistics(out); });
  summary.group(Opcode::kChunkIndex, [&](ByteBuffer& out) {
    for (std::size_t number = 0; number < chunks_.size(); ++number) appendChunkIndex(out, number);
  });
  summary.end();
  dataEnd.append(summary.bytes.view());
  file_.append(dataEnd.view());
}

std::uint64_t McapWriter::written(std::uint16_t channel) const {
  std::uint64_t count = 0;
  for (std::size_t at = channel - 1U; at < indexed_.size(); at += perChannel_.size()) {
    count += indexed_[at];
  }
  return count;
}

void McapWriter::appendStatistics(ByteBuffer& out) const {
  const std::size_t channels = perChannel_.size();
  std::uint64_t messages = 0;
  for (const std::uint32_t count : indexed_) messages += count;
  std::uint64_t first = 0;
  std::uint64_t last = 0;
  for (const ChunkEntry& chunk : chunks_) {
    if (chunk.firstNs == 0) continue;  // it has no messages
    first = first == 0 ? chunk.firstNs : std::min(first, chunk.firstNs);
    last = std::max(last, chunk.lastNs);
  }
  appendRecord(out, Opcode::kStatistics, [&] {
    out.put(messages);
    out.put(static_cast<std::uint16_t>(channels));  // one schema each
    out.put(static_cast<std::uint32_t>(channels));
    out.put<std::uint32_t>(0);  // attachments
    out.put<std::uint32_t>(0);  // metadata
    out.put(static_cast<std::uint32_t>(chunks_.size()));
    out.put(first);
    out.put(last);
    out.put(static_cast<std::uint32_t>(channels * (sizeof(std::uint16_t) + sizeof(std::uint64_t))));
    for (std::uint16_t channel = 1; channel <= channels; ++channel) {
      out.put(channel);
      out.put(written(channel));
    }
  });
}

void McapWriter::appendChunkIndex(ByteBuffer& out, std::size_t number) const {
  const ChunkEntry& chunk = chunks_[number];
  const std::size_t channels = perChannel_.size();
  appendRecord(out, Opcode::kChunkIndex, [&] {
    out.put(chunk.firstNs);
    out.put(chunk.lastNs);
    out.put(chunk.offset);
    out.put(chunk.length);
    const std::size_t mapAt = out.size();
    out.put<std::uint32_t>(0);
    std::uint64_t indexAt = chunk.offset + chunk.length;
    for (std::size_t channel = 0; channel < channels; ++channel) {
      const std::uint32_t entries = indexed_[number * channels + channel];
      if (entries == 0) continue;
      out.put(static_cast<std::uint16_t>(channel + 1));
      out.put(indexAt);
      indexAt += kRecordHead + kIndexHead + entries * kIndexEntry;
    }
    out.putAt(mapAt, static_cast<std::uint32_t>(out.size() - mapAt - sizeof(std::uint32_t)));
    out.put<std::uint64_t>(indexAt - chunk.offset - chunk.length);
    out.putText("");  // compression
    out.put<std::uint64_t>(chunk.length - kChunkHead);
    out.put<std::uint64_t>(chunk.length - kChunkHead);
  });
}

}  // namespace robotctl::mcap
