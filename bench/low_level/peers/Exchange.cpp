#include "low_level/peers/Exchange.h"

#include <cstring>
#include <stdexcept>
#include <vector>

#include "harness/Clock.h"

namespace bench {
namespace {

using orvane::RobotSdk::ObservedMotionRecord;

constexpr std::int64_t kNsPerUs = 1000;
constexpr const char* kAnswersName = "/bench.futex.answers";

}  // namespace

void stamp(ObservedMotionRecord& record, std::int64_t ns) noexcept {
  record.remoteControl.controller = static_cast<std::uint64_t>(ns);
}

std::int64_t stampOf(const ObservedMotionRecord& record) noexcept {
  return static_cast<std::int64_t>(record.remoteControl.controller);
}

Json::Value AskingWriterRole::handle(const Json::Value& command) {
  if (command["do"] == "exchange") return exchange(command);
  if (command["do"] == "markedAsk") {
    return runMarked(command,
                     [this, writtenNs = std::int64_t{0}]() mutable { return ask(writtenNs); });
  }
  return WriterRole::handle(command);
}

Json::Value AskingWriterRole::exchange(const Json::Value& command) {
  const std::uint32_t count = command["count"].asUInt();
  const std::int64_t intervalNs = command["intervalUs"].asInt64() * kNsPerUs;
  std::vector<std::int64_t> times;
  times.reserve(count);
  Message message;
  std::int64_t due = nowNs();
  for (std::uint32_t i = 0; i < count; ++i) {
    if (intervalNs > 0) sleepUntilNs(due += intervalNs);
    const std::int64_t begin = nowNs();
    const bool answered = ask(message.sentNs);
    times.push_back(nowNs() - begin);
    if (!answered || !write(message)) throw std::runtime_error("an exchange failed");
  }
  Json::Value answer(Json::objectValue);
  answer["ns"] = toJson(times);
  return answer;
}

FutexAnswers& FutexAnswers::map() {
  return *static_cast<FutexAnswers*>(mapShared(kAnswersName, sizeof(FutexAnswers)));
}

bool FutexAsker::write(const Message& message) noexcept {
  commands_.put(message);
  wake(commands_.count);
  return true;
}

bool FutexAsker::ask(std::int64_t& writtenNs) noexcept {
  const std::uint32_t seen = answers_.count.load(std::memory_order_relaxed);
  Message request;
  request.kind = Message::kAsk;
  write(request);
  while (answers_.count.load(std::memory_order_acquire) == seen) waitWhile(answers_.count, seen);
  const auto& place = answers_.ring[seen % answers_.ring.size()];
  std::memcpy(static_cast<void*>(&seen_), &place.record, sizeof seen_);
  writtenNs = stampOf(seen_);
  return true;
}

void FutexAnswerer::take(const Message& message) noexcept {
  if (message.kind != Message::kAsk) return FutexReader::take(message);
  stamp(record_, nowNs());
  const std::uint32_t count = answers_.count.load(std::memory_order_relaxed);
  auto& place = answers_.ring[count % answers_.ring.size()];
  std::memcpy(static_cast<void*>(&place.record), &record_, sizeof record_);
  answers_.count.store(count + 1, std::memory_order_release);
  wake(answers_.count);
}

}  // namespace bench
