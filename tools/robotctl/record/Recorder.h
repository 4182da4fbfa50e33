#pragma once

#include <json/json.h>

#include <array>
#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <exception>
#include <mutex>
#include <optional>
#include <string>
#include <thread>

#include "orvane/RobotSdk/Records.h"
#include "record/Channels.h"
#include "record/McapWriter.h"
#include "record/NoteQueue.h"
#include "record/OutputFile.h"
#include "record/RecordClock.h"
#include "record/RecordQueue.h"

namespace robotctl {

/// Takes what the library's callbacks deliver and writes it into an MCAP file, on a thread of its
/// own. What has been taken is in the file half a second later.
///
/// Threading contract: `motion` by one thread at a time and `sensor` by one thread at a time, as
/// the library calls them: they copy the record into a ring (16 s of it) and wait for nothing.
/// The notes from any thread, `totals` and `failed` too. One thread opens and finishes. Nothing
/// is lost without being counted: records that find the ring full, and those that come after the
/// file couldn't be written any more.
class Recorder {
 public:
  struct Totals {
    std::array<std::uint64_t, kChannels> delivered{};
    /// Of these: found no room; after `finish` whatever isn't in the file.
    std::array<std::uint64_t, kChannels> lost{};
    [[nodiscard]] std::uint64_t lostInAll() const;
  };

  Recorder();
  /// Ends the recording properly unless `finish` has.
  ~Recorder();
  Recorder(const Recorder&) = delete;
  Recorder& operator=(const Recorder&) = delete;

  /// Makes the file and begins to write; what has been delivered before waits in the queues. Throws
  /// std::system_error when it can't be made. `about` goes into the file's first note. Once.
  void open(const std::string& path, OutputFile::Existing existing, const std::string& program,
            Json::Value about);

  void motion(const orvane::RobotSdk::ObservedMotionRecord& record) noexcept;
  void sensor(const orvane::RobotSdk::ObservedSensorRecord& record) noexcept;
  /// `detail`: JSON text.
  void event(const std::string& topic, const std::string& detail);
  void connection(std::uint32_t state, std::uint32_t code);
  /// JSON text as the robot answered it.
  void state(std::string document);
  void error(std::uint32_t code, const std::string& text);
  /// What the recorder itself has to say; "what" is added to the other members of `more`.
  void remark(const char* what, Json::Value more = Json::objectValue);

  [[nodiscard]] Totals totals() const;
  /// The file can't be written any more; `finish` tells why.
  [[nodiscard]] bool failed() const { return failed_; }
  [[nodiscard]] std::uint64_t bytes() const { return bytes_; }

  /// Writes what is left, and the end of the file. Nothing may be delivered any more: disconnect
  /// first. Throws std::system_error when it couldn't be written, now or earlier. A second call
  /// does nothing, nor does one before `open`.
  void finish();

 private:
  using Counters = std::array<std::atomic<std::uint64_t>, kChannels>;

  void note(ChannelNumber channel, std::string json);
  void count(ChannelNumber channel, bool taken) noexcept;
  void run();
  void drain();
  void writeMessage(ChannelNumber channel, std::uint64_t timeNs, mcap::ByteView data);
  /// Carries out what may fail; after the first failure nothing is written any more.
  template <class Action>
  void attempt(Action&& action);
  void tellOfLosses();

  const RecordClock clock_;
  RecordQueue<orvane::RobotSdk::ObservedMotionRecord> motion_;
  RecordQueue<orvane::RobotSdk::ObservedSensorRecord> sensor_;
  NoteQueue notes_;
  Counters delivered_{};
  Counters lost_{};
  std::atomic<bool> failed_{false};
  std::atomic<std::uint64_t> bytes_{0};

  // The writing thread's own while it runs.
  std::optional<OutputFile> file_;
  std::optional<mcap::McapWriter> writer_;
  mcap::ByteBuffer message_;
  std::uint64_t toldLost_ = 0;
  std::exception_ptr failure_;

  std::mutex mutex_;  // guards ending_
  std::condition_variable wake_;
  bool ending_ = false;
  std::thread thread_;  // the last member: it uses all others; runs from `open` to `finish`
};

}  // namespace robotctl
