#include "shared_memory/peers/Channel.h"

#include <stdexcept>
#include <vector>

#include "harness/Allocations.h"
#include "harness/Clock.h"
#include "harness/SystemCalls.h"
#include "pbase/CThread.h"

namespace bench {
namespace {

constexpr std::int64_t kNsPerUs = 1000;
constexpr std::int64_t kLongestHoldNs = 10'000'000'000;
constexpr std::uint32_t kDeliveryMs = 1000;

[[noreturn]] void failWrite() {
  throw std::runtime_error("a write failed");
}

}  // namespace

Json::Value WriterRole::handle(const Json::Value& command) {
  if (command["do"] == "write") return writeTimed(command);
  if (command["do"] == "marked") {
    return runMarked(command, [this, message = Message()] { return write(message); });
  }
  throw std::runtime_error("unknown command");
}

Json::Value WriterRole::writeTimed(const Json::Value& command) {
  const std::uint32_t batch = command.get("batch", 1).asUInt();
  const std::uint32_t batches = command["count"].asUInt() / batch;
  const std::int64_t intervalNs = command.get("intervalUs", 0).asInt64() * kNsPerUs;
  Message message;
  message.kind = command.get("kind", Message::kPlain).asUInt();
  std::vector<double> times;
  times.reserve(batches);
  std::int64_t due = nowNs();
  for (std::uint32_t i = 0; i < batches; ++i) {
    if (intervalNs > 0) sleepUntilNs(due += intervalNs);
    bool written = true;
    message.sentNs = nowNs();
    for (std::uint32_t k = 0; k < batch; ++k) written &= write(message);
    times.push_back(static_cast<double>(nowNs() - message.sentNs) / batch);
    if (!written) failWrite();
  }
  Json::Value answer(Json::objectValue);
  answer["ns"] = toJson(times);
  return answer;
}

Json::Value WriterRole::runMarked(const Json::Value& command,
                                  const std::function<bool()>& operation) {
  const std::uint32_t count = command["count"].asUInt();
  const std::int64_t intervalNs = command.get("intervalUs", 0).asInt64() * kNsPerUs;
  const std::uint64_t before = allocationsOfThread();
  std::int64_t due = nowNs();
  for (std::uint32_t i = 0; i < count; ++i) {
    if (intervalNs > 0) sleepUntilNs(due += intervalNs);
    markSystemCalls();
    const bool done = operation();
    markSystemCalls();
    if (!done) failWrite();
  }
  const std::uint64_t allocated = allocationsOfThread() - before;  // before JSON allocates
  Json::Value answer(Json::objectValue);
  answer["allocations"] = static_cast<Json::UInt64>(allocated);
  return answer;
}

Json::Value ReaderRole::handle(const Json::Value& command) {
  Json::Value answer(Json::objectValue);
  if (command["do"] == "begin") {
    collector_.begin(0, command["count"].asUInt());
  } else if (command["do"] == "end") {
    static_cast<void>(collector_.await(kDeliveryMs));  // a reader that was held up loses some
    answer["ns"] = toJson(collector_.end());
  } else if (command["do"] == "held") {
    awaitHeld(true);
  } else if (command["do"] == "release") {
    released_ = true;
    awaitHeld(false);
  } else {
    throw std::runtime_error("unknown command");
  }
  return answer;
}

void ReaderRole::awaitHeld(bool held) const {
  const std::int64_t deadline = nowNs() + kLongestHoldNs;
  while (held_ != held) {
    if (nowNs() > deadline) throw std::runtime_error("the callback isn't held, or not let go");
    Pexal::PBase::CThread::sleep(1);
  }
}

void ReaderRole::receive(std::uint32_t kind, std::int64_t sentNs) noexcept {
  const std::int64_t receivedNs = nowNs();
  if (kind != Message::kHold) return collector_.put(receivedNs - sentNs);
  released_ = false;
  held_ = true;
  while (!released_ && nowNs() - receivedNs < kLongestHoldNs) whileHeld();
  held_ = false;
}

}  // namespace bench
