#pragma once

#include <cstdint>
#include <string_view>
#include <vector>

#include "record/Bytes.h"
#include "record/McapFormat.h"
#include "record/OutputFile.h"

namespace robotctl::mcap {

/// Writes an MCAP file: messages in chunks, each with its CRC and its message indexes, and the
/// summary at the end. What has been flushed can be read even when the end is never written, since
/// schemas and channels stand in front of the first message.
///
/// Used by one thread at a time. Throws what OutputFile throws; the writer is of no more use then,
/// but that finish() may be tried.
///
/// Memory: a chunk and the index of the chunks, made before the first message; about two hours of
/// recording later the index begins to grow, by half a megabyte an hour.
class McapWriter {
 public:
  /// `library`: the name of the program that writes, for the header.
  McapWriter(OutputFile& file, std::string_view library);

  /// Before the first message: a channel and its schema. Returns its id, 1 and up.
  std::uint16_t addChannel(std::string_view topic, std::string_view messageEncoding,
                           std::string_view schemaName, std::string_view schemaEncoding,
                           std::string_view schema);
  /// Adds a message to the chunk; `timeNs`: nanoseconds since 1970, log and publish time in one.
  void message(std::uint16_t channel, std::uint64_t timeNs, ByteView data);
  /// Writes the chunk, if it holds anything.
  void flush();
  /// Writes the chunk and the summary. Nothing may follow.
  void finish();

  /// Messages of a channel that are in the file.
  [[nodiscard]] std::uint64_t written(std::uint16_t channel) const;

 private:
  struct IndexEntry {
    std::uint64_t timeNs;
    std::uint64_t offset;  // in the chunk
  };
  struct Channel {
    std::uint32_t sequence = 0;
    std::vector<IndexEntry> index;  // of the messages in the chunk
  };
  /// What the summary will say of a chunk.
  struct ChunkEntry {
    std::uint64_t firstNs, lastNs, offset, length;
  };

  void beginChunk();
  void appendMessageIndexes();
  void appendStatistics(ByteBuffer& out) const;
  void appendChunkIndex(ByteBuffer& out, std::size_t number) const;

  OutputFile& file_;
  ByteBuffer schemas_;   // the records, for the first chunk and the summary
  ByteBuffer channels_;  // likewise
  std::vector<Channel> perChannel_;
  ByteBuffer chunk_;  // the record that is being filled, its head included
  std::uint64_t chunkMessages_ = 0;
  std::uint64_t firstNs_ = 0;  // of the chunk
  std::uint64_t lastNs_ = 0;
  std::vector<ChunkEntry> chunks_;
  std::vector<std::uint32_t> indexed_;  // per chunk and in it per channel: messages in it
};

}  // namespace robotctl::mcap
