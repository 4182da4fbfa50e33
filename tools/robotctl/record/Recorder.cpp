#include "record/Recorder.h"

#include <algorithm>
#include <chrono>
#include <numeric>
#include <span>
#include <utility>

#include "record/RecordCodec.h"

namespace robotctl {
namespace {

using namespace std::chrono_literals;

constexpr std::size_t kMotionRoom = 8192;  // 16 s at 500 Hz, should the disk stall
constexpr std::size_t kSensorRoom = 1024;
constexpr auto kTick = 50ms;                         // between two looks at the queues
constexpr std::uint64_t kChunkNs = 400'000'000;      // with a tick, below half a second
constexpr std::size_t kMessageRoom = 4096;           // for a record
constexpr std::uint64_t kNever = ~std::uint64_t{0};  // no entry

std::string compact(const Json::Value& value) {
  Json::StreamWriterBuilder builder;
  builder["indentation"] = "";
  return Json::writeString(builder, value);
}

mcap::ByteView bytesOf(const std::string& text) {
  return {reinterpret_cast<const std::uint8_t*>(text.data()), text.size()};
}

template <class Queue>
std::uint64_t timeOf(const Queue& queue) {
  const auto* const entry = queue.front();
  return entry == nullptr ? kNever : entry->timeNs;
}

}  // namespace

std::uint64_t Recorder::Totals::lostInAll() const {
  return std::accumulate(lost.begin(), lost.end(), std::uint64_t{0});
}

Recorder::Recorder() : motion_(kMotionRoom), sensor_(kSensorRoom) {
  message_.prepare(kMessageRoom);
}

void Recorder::open(const std::string& path, OutputFile::Existing existing,
                    const std::string& program, Json::Value about) {
  file_.emplace(path, existing);
  writer_.emplace(*file_, program);
  for (const ChannelKind& kind : kChannelKinds) {
    std::string schema(kind.schema);
    if (&kind == &kindOf(ChannelNumber::kMotion)) schema = codec::motionDefinition();
    if (&kind == &kindOf(ChannelNumber::kSensor)) schema = codec::sensorDefinition();
    static_cast<void>(writer_->addChannel(kind.topic, kind.encoding, kind.schemaName,
                                          kind.schemaEncoding, schema));
  }
  writer_->flush();  // readable from now on
  remark("begin", std::move(about));
  thread_ = std::thread(&Recorder::run, this);
}

Recorder::~Recorder() {
  try {
    finish();
  } catch (const std::exception&) {  // who wants to know calls finish
  }
}

void Recorder::motion(const orvane::RobotSdk::ObservedMotionRecord& record) noexcept {
  count(ChannelNumber::kMotion, motion_.push(clock_.now(), record));
}

void Recorder::sensor(const orvane::RobotSdk::ObservedSensorRecord& record) noexcept {
  count(ChannelNumber::kSensor, sensor_.push(clock_.now(), record));
}

void Recorder::event(const std::string& topic, const std::string& detail) {
  note(ChannelNumber::kEvent,
       R"({"topic":)" + Json::valueToQuotedString(topic.c_str()) + R"(,"detail":)" + detail + "}");
}

void Recorder::connection(std::uint32_t state, std::uint32_t code) {
  note(ChannelNumber::kConnection,
       R"({"state":)" + std::to_string(state) + R"(,"code":)" + std::to_string(code) + "}");
}

void Recorder::state(std::string document) {
  note(ChannelNumber::kState, std::move(document));
}

void Recorder::error(std::uint32_t code, const std::string& text) {
  Json::Value document;
  document["code"] = code;
  document["text"] = text;
  note(ChannelNumber::kError, compact(document));
}

void Recorder::remark(const char* what, Json::Value more) {
  more["what"] = what;
  note(ChannelNumber::kRecorder, compact(more));
}

void Recorder::note(ChannelNumber channel, std::string json) {
  count(channel, notes_.push({clock_.now(), channel, std::move(json)}));
}

void Recorder::count(ChannelNumber channel, bool taken) noexcept {
  const auto at = static_cast<std::size_t>(channel);
  delivered_[at].fetch_add(1, std::memory_order_relaxed);
  if (!taken) lost_[at].fetch_add(1, std::memory_order_relaxed);
}

Recorder::Totals Recorder::totals() const {
  Totals totals;
  for (std::size_t at = 0; at < kChannels; ++at) {
    totals.delivered[at] = delivered_[at];
    totals.lost[at] = lost_[at];
  }
  return totals;
}

void Recorder::finish() {
  if (!thread_.joinable()) return;
  {
    const std::lock_guard lock(mutex_);
    ending_ = true;
  }
  wake_.notify_one();
  thread_.join();
  // The end is tried even when the disk was full: there may be room again.
  try {
    writer_->finish();
    file_->close();
  } catch (const std::exception&) {
    if (!failure_) failure_ = std::current_exception();
  }
  bytes_ = file_->size();
  failed_ = failure_ != nullptr;
  for (std::size_t at = 0; at < kChannels; ++at) {
    lost_[at] = delivered_[at] - writer_->written(static_cast<std::uint16_t>(at + 1));
  }
  if (failure_) std::rethrow_exception(failure_);
}

void Recorder::run() {
  std::uint64_t flushedNs = clock_.now();
  for (bool ending = false; !ending;) {
    {
      std::unique_lock lock(mutex_);
      ending = wake_.wait_for(lock, kTick, [this] { return ending_; });
    }
    tellOfLosses();
    drain();
    if (clock_.now() - flushedNs < kChunkNs) continue;
    attempt([this] { writer_->flush(); });
    flushedNs = clock_.now();
    bytes_ = file_->size();
  }
}

/// Writes what the queues hold, oldest first.
void Recorder::drain() {
  auto note = notes_.pop();
  for (;;) {
    const std::uint64_t motionNs = timeOf(motion_);
    const std::uint64_t sensorNs = timeOf(sensor_);
    const std::uint64_t noteNs = note ? note->timeNs : kNever;
    const std::uint64_t first = std::min({motionNs, sensorNs, noteNs});
    if (first == kNever) return;
    if (first == motionNs) {
      codec::encode(motion_.front()->record, message_);
      writeMessage(ChannelNumber::kMotion, first, message_.view());
      motion_.pop();
    } else if (first == sensorNs) {
      codec::encode(sensor_.front()->record, message_);
      writeMessage(ChannelNumber::kSensor, first, message_.view());
      sensor_.pop();
    } else {
      writeMessage(note->channel, first, bytesOf(note->json));
      note = notes_.pop();
    }
  }
}

void Recorder::writeMessage(ChannelNumber channel, std::uint64_t timeNs, mcap::ByteView data) {
  const auto at = static_cast<std::size_t>(channel);
  attempt([&] { writer_->message(static_cast<std::uint16_t>(at + 1), timeNs, data); });
}

template <class Action>
void Recorder::attempt(Action&& action) {
  if (failed_) return;
  try {
    action();
  } catch (const std::exception&) {
    failure_ = std::current_exception();
    failed_ = true;
  }
}

/// A gap that the file itself doesn't tell of would be taken for the robot's.
void Recorder::tellOfLosses() {
  const std::uint64_t lost = totals().lostInAll();
  if (failed_ || lost == toldLost_) return;
  toldLost_ = lost;
  Json::Value more;
  more["lost"] = Json::UInt64(lost);
  remark("overflow", std::move(more));
}

}  // namespace robotctl
