#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

#include "record/ByteSource.h"
#include "record/Bytes.h"
#include "record/McapFormat.h"

namespace robotctl::mcap {

struct Schema {
  std::string name;
  std::string encoding;
  std::string data;
};

struct Channel {
  std::uint16_t id = 0;
  std::string topic;
  std::string encoding;                  ///< of the messages
  std::shared_ptr<const Schema> schema;  ///< never null; empty when the channel has none
};

struct Message {
  const Channel& channel;
  std::uint32_t sequence;
  std::uint64_t timeNs;  ///< log time
  ByteView data;         ///< valid during the call
};

/// What became of reading a file.
struct Report {
  bool complete = false;  ///< it has its end, and that agrees with what was read
  std::uint64_t messages = 0;
  std::uint64_t chunks = 0;         ///< that were read
  std::uint64_t damagedChunks = 0;  ///< that were left out
  std::string damage;               ///< the first thing that is wrong; "" when nothing is
};

/// Not an MCAP file at all.
class NotMcap : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

/// Reads MCAP files from front to back: whole ones, those whose writer was killed, and those that
/// somebody has tampered with. What can be read is delivered, what is wrong is told; nothing in a
/// file can do more. Chunks must be uncompressed. Memory: the largest chunk (64 MiB at most), and
/// schemas and channels. Used by one thread.
class McapReader {
 public:
  /// `source` must outlive this. Throws NotMcap when the file doesn't begin as MCAP does.
  explicit McapReader(ByteSource& source);

  /// Calls `visit` with every message of every sound chunk, in the file's order. May be called
  /// again.
  Report read(const std::function<void(const Message&)>& visit);

 private:
  using Visitor = std::function<void(const Message&)>;
  struct Record {
    Opcode opcode;
    std::uint64_t at;      // of the content
    std::uint64_t length;  // of the content
    [[nodiscard]] std::uint64_t end() const { return at + length; }
  };

  /// The record at `offset`; nothing when it doesn't fit into the file.
  std::optional<Record> recordAt(std::uint64_t offset);
  [[nodiscard]] bool load(const Record& record);
  void readChunk(const Visitor& visit);
  void readInner(ByteView records, const Visitor& visit);
  void readPlain(Opcode opcode, ByteView content, const Visitor& visit);
  void readSchema(ByteView content);
  void readChannel(ByteView content);
  void readMessage(ByteView content, const Visitor& visit);
  void readEnd(std::uint64_t dataEnd);
  void readStatistics(std::uint64_t from, std::uint64_t to);
  std::optional<std::uint32_t> crcOf(std::uint64_t from, std::uint64_t to);
  void tell(const std::string& damage);

  ByteSource& source_;
  Report report_;
  std::vector<std::uint8_t> buffer_;
  std::map<std::uint16_t, std::shared_ptr<const Schema>> schemas_;
  std::map<std::uint16_t, Channel> channels_;
};

}  // namespace robotctl::mcap
