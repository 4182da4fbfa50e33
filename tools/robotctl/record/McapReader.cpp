#include "record/McapReader.h"

#include <algorithm>
#include <array>
#include <utility>

#include "record/Crc32.h"

namespace robotctl::mcap {
namespace {

constexpr std::uint64_t kMostBytes = 64U << 20;  // of a record that is looked into
constexpr std::size_t kPiece = 64U << 10;        // of the summary, for its CRC

bool isPlain(Opcode opcode) {
  return opcode == Opcode::kSchema || opcode == Opcode::kChannel || opcode == Opcode::kMessage;
}

}  // namespace

McapReader::McapReader(ByteSource& source) : source_(source) {
  std::array<std::uint8_t, kMagic.size()> magic{};
  if (!source_.read(0, magic) || magic != kMagic) throw NotMcap("this is no MCAP file");
}

Report McapReader::read(const Visitor& visit) {
  report_ = {};
  schemas_.clear();
  channels_.clear();
  std::uint64_t offset = kMagic.size();
  for (;;) {
    const auto record = recordAt(offset);
    if (!record) {
      tell("the file ends early: its writer was killed, or it is still being written");
      break;
    }
    offset = record->end();
    if (record->opcode == Opcode::kDataEnd) {
      readEnd(offset);
      break;
    }
    if (record->opcode == Opcode::kFooter || record->opcode == Opcode{}) {
      tell("the data ends where no end is due");
      break;
    }
    if (record->opcode != Opcode::kChunk && !isPlain(record->opcode)) continue;
    if (!load(*record)) {
      tell("a record is too large to be read");
      ++report_.damagedChunks;
    } else if (record->opcode == Opcode::kChunk) {
      readChunk(visit);
    } else {
      readPlain(record->opcode, buffer_, visit);
    }
  }
  report_.complete = report_.damage.empty();
  return report_;
}

std::optional<McapReader::Record> McapReader::recordAt(std::uint64_t offset) {
  std::array<std::uint8_t, kRecordHead> head{};
  if (!source_.read(offset, head)) return std::nullopt;
  ByteCursor cursor(head);
  const auto opcode = static_cast<Opcode>(cursor.take<std::uint8_t>());
  const auto length = cursor.take<std::uint64_t>();
  const std::uint64_t at = offset + kRecordHead;
  if (length > source_.size() - at) return std::nullopt;
  return Record{opcode, at, length};
}

bool McapReader::load(const Record& record) {
  if (record.length > kMostBytes) return false;
  buffer_.resize(record.length);
  return source_.read(record.at, buffer_);
}

void McapReader::readChunk(const Visitor& visit) {
  ByteCursor cursor(buffer_);
  static_cast<void>(cursor.takeBytes(16));  // first and last time
  const auto size = cursor.take<std::uint64_t>();
  const auto crc = cursor.take<std::uint32_t>();
  const std::string compression(cursor.takeText());
  const ByteView records = cursor.takeBytes(cursor.take<std::uint64_t>());
  if (cursor.ok() && !compression.empty()) {
    tell("it is compressed (" + compression.substr(0, 20) + "), which this program can't read");
  } else if (!cursor.ok() || !cursor.rest().empty() || size != records.size()) {
    tell("a chunk's sizes don't agree");
  } else if (crc != 0 && crc != crc32(records)) {  // 0: there is none
    tell("a chunk's checksum is wrong");
  } else {
    ++report_.chunks;
    readInner(records, visit);
    return;
  }
  ++report_.damagedChunks;
}

void McapReader::readInner(ByteView records, const Visitor& visit) {
  ByteCursor cursor(records);
  while (!cursor.rest().empty()) {
    const auto opcode = static_cast<Opcode>(cursor.take<std::uint8_t>());
    const ByteView content = cursor.takeBytes(cursor.take<std::uint64_t>());
    if (!cursor.ok()) return tell("a record reaches beyond its chunk");
    if (isPlain(opcode)) readPlain(opcode, content, visit);
  }
}

void McapReader::readPlain(Opcode opcode, ByteView content, const Visitor& visit) {
  if (opcode == Opcode::kSchema) return readSchema(content);
  if (opcode == Opcode::kChannel) return readChannel(content);
  readMessage(content, visit);
}

void McapReader::readSchema(ByteView content) {
  ByteCursor cursor(content);
  const auto id = cursor.take<std::uint16_t>();
  Schema schema;
  schema.name = cursor.takeText();
  schema.encoding = cursor.takeText();
  schema.data = cursor.takeText();
  if (!cursor.ok() || id == 0) return tell("a schema can't be read");
  schemas_.emplace(
      id, std::make_shared<const Schema>(std::move(schema)));  // a repetition says the same
}

void McapReader::readChannel(ByteView content) {
  ByteCursor cursor(content);
  Channel channel;
  channel.id = cursor.take<std::uint16_t>();
  const auto schemaId = cursor.take<std::uint16_t>();
  channel.topic = cursor.takeText();
  channel.encoding = cursor.takeText();
  const auto schema = schemas_.find(schemaId);
  if (!cursor.ok() || (schemaId != 0 && schema == schemas_.end())) {
    return tell("a channel can't be read");
  }
  if (channels_.count(channel.id) > 0) return;
  channel.schema = schema != schemas_.end() ? schema->second : std::make_shared<const Schema>();
  channels_.emplace(channel.id, std::move(channel));
}

void McapReader::readMessage(ByteView content, const Visitor& visit) {
  ByteCursor cursor(content);
  const auto channel = channels_.find(cursor.take<std::uint16_t>());
  const auto sequence = cursor.take<std::uint32_t>();
  const auto timeNs = cursor.take<std::uint64_t>();
  static_cast<void>(cursor.take<std::uint64_t>());  // publish time
  if (!cursor.ok()) return tell("a message can't be read");
  if (channel == channels_.end()) return tell("a message has no channel");
  ++report_.messages;
  visit({channel->second, sequence, timeNs, cursor.rest()});
}

/// The summary, the footer and the magic behind `dataEnd`.
void McapReader::readEnd(std::uint64_t dataEnd) {
  constexpr std::uint64_t kTail = kRecordHead + kFooterSize + kMagic.size();
  if (source_.size() - dataEnd < kTail) return tell("its end is missing");
  const std::uint64_t footerAt = source_.size() - kTail;
  const auto footer = recordAt(footerAt);
  std::array<std::uint8_t, kMagic.size()> magic{};
  if (!footer || footer->opcode != Opcode::kFooter || footer->length != kFooterSize ||
      !load(*footer) || !source_.read(footer->end(), magic) || magic != kMagic) {
    return tell("its end is missing");
  }
  ByteCursor cursor(buffer_);
  const auto summaryAt = cursor.take<std::uint64_t>();
  static_cast<void>(cursor.take<std::uint64_t>());  // offsets
  const auto crc = cursor.take<std::uint32_t>();
  if (summaryAt == 0) return;  // it has none
  if (summaryAt != dataEnd) return tell("its summary isn't where its end says");
  if (crc != 0 && crcOf(summaryAt, footer->end() - sizeof(crc)) != crc) {
    return tell("its summary's checksum is wrong");
  }
  readStatistics(summaryAt, footerAt);
}

void McapReader::readStatistics(std::uint64_t from, std::uint64_t to) {
  for (std::uint64_t offset = from; offset < to;) {
    const auto record = recordAt(offset);
    if (!record || record->end() > to) return tell("its summary can't be read");
    offset = record->end();
    if (record->opcode != Opcode::kStatistics) continue;
    if (!load(*record)) return tell("its summary can't be read");
    ByteCursor cursor(buffer_);
    const auto messages = cursor.take<std::uint64_t>();
    static_cast<void>(cursor.takeBytes(2 + 4 + 4 + 4));
    const auto chunks = cursor.take<std::uint32_t>();
    if (!cursor.ok() || messages != report_.messages || chunks != report_.chunks) {
      return tell("its summary tells of other messages than it holds");
    }
  }
}

std::optional<std::uint32_t> McapReader::crcOf(std::uint64_t from, std::uint64_t to) {
  std::uint32_t crc = 0;
  while (from < to) {
    buffer_.resize(std::min<std::uint64_t>(kPiece, to - from));
    if (!source_.read(from, buffer_)) return std::nullopt;
    crc = crc32(buffer_, crc);
    from += buffer_.size();
  }
  return crc;
}

void McapReader::tell(const std::string& damage) {
  if (report_.damage.empty()) report_.damage = damage;
}

}  // namespace robotctl::mcap
