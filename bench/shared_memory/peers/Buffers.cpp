#include "shared_memory/peers/Buffers.h"

#include <cstring>
#include <stdexcept>

#include "harness/Clock.h"

namespace bench {
namespace {

using Pexal::Memory::CShmTripleBuffer;

constexpr std::int64_t kNsPerUs = 1000;

/// The word at `index` of record `number`: no two numbers near each other share one.
constexpr std::uint32_t wordOf(std::uint64_t number, std::size_t index) {
  return static_cast<std::uint32_t>(number) * 256 + static_cast<std::uint32_t>(index);
}

void openForReading(CShmTripleBuffer& buffer, const Json::Value& arguments) {
  const std::string name = arguments["name"].asString();
  if (!buffer.open(name, true) || buffer.recordSize() != arguments["size"].asUInt()) {
    throw std::runtime_error("buffer " + name + " can't be opened");
  }
}

/// Keeps the compiler from leaving out a copy, or from knowing its size.
template <class T>
void touch(T& value) noexcept {
  asm volatile("" : "+m"(value) : : "memory");
}

}  // namespace

BufferWriter::BufferWriter(const Json::Value& arguments) {
  const std::uint32_t size = arguments["size"].asUInt();
  if (!buffer_.create(arguments["name"].asString(), size)) {
    throw std::runtime_error("the buffer can't be made");
  }
  const std::int64_t intervalNs = arguments["intervalUs"].asInt64() * kNsPerUs;
  thread_ = std::thread([this, size, intervalNs] { run(size, intervalNs); });
  while (written_ == 0) sleepUntilNs(nowNs() + kNsPerUs);
}

BufferWriter::~BufferWriter() {
  ends_ = true;
  thread_.join();
}

Json::Value BufferWriter::handle(const Json::Value& command) {
  if (command["do"] != "count") throw std::runtime_error("unknown command");
  Json::Value answer(Json::objectValue);
  answer["written"] = static_cast<Json::UInt64>(written_.load());
  return answer;
}

void BufferWriter::run(std::uint32_t size, std::int64_t intervalNs) {
  std::vector<std::uint32_t> record(size / sizeof(std::uint32_t));
  std::uint64_t number = buffer_.latestSeq();
  std::int64_t due = nowNs();
  while (!ends_) {
    if (intervalNs > 0) sleepUntilNs(due += intervalNs);
    ++number;
    for (std::size_t i = 0; i < record.size(); ++i) record[i] = wordOf(number, i);
    if (buffer_.put(record.data(), size) != number) std::terminate();
    written_.fetch_add(1, std::memory_order_relaxed);
  }
}

CopyingRole::CopyingRole(const Json::Value& arguments) : size_(arguments["size"].asUInt()) {
  if (size_ > kMostBytes) throw std::runtime_error("too many bytes");
}

Json::Value CopyingRole::handle(const Json::Value& command) {
  if (command["do"] != "run") throw std::runtime_error("unknown command");
  const std::uint32_t batches = command["count"].asUInt();
  const std::uint32_t batch = command["batch"].asUInt();
  std::vector<double> times;
  times.reserve(batches);
  for (std::uint32_t i = 0; i < batches; ++i) {
    const std::int64_t begin = nowNs();
    const bool copied = copy(batch);
    times.push_back(static_cast<double>(nowNs() - begin) / batch);
    if (!copied) throw std::runtime_error("a read failed");
  }
  Json::Value answer(Json::objectValue);
  answer["ns"] = toJson(times);
  return answer;
}

BufferReader::BufferReader(const Json::Value& arguments) : CopyingRole(arguments) {
  openForReading(buffer_, arguments);
}

bool BufferReader::copy(std::uint32_t times) noexcept {
  bool copied = true;
  for (std::uint32_t i = 0; i < times; ++i) {
    std::uint64_t number = 0;
    copied &= buffer_.get(room_.bytes.data(), size_, nullptr, &number) == CShmTripleBuffer::kCopied;
    touch(room_);
  }
  return copied;
}

bool PlainCopier::copy(std::uint32_t times) noexcept {
  for (std::uint32_t i = 0; i < times; ++i) {
    touch(size_);
    std::memcpy(room_.bytes.data(), source_.bytes.data(), size_);
    touch(room_);
  }
  return true;
}

BufferChecker::BufferChecker(const Json::Value& arguments)
    : record_(arguments["size"].asUInt() / sizeof(std::uint32_t)) {
  openForReading(buffer_, arguments);
}

bool BufferChecker::isWhole(std::uint64_t number) const noexcept {
  std::uint32_t wrong = 0;
  for (std::size_t i = 0; i < record_.size(); ++i) wrong |= record_[i] ^ wordOf(number, i);
  return wrong == 0;
}

Json::Value BufferChecker::handle(const Json::Value& command) {
  if (command["do"] != "check") throw std::runtime_error("unknown command");
  const auto size = static_cast<std::uint32_t>(record_.size() * sizeof(std::uint32_t));
  std::uint64_t torn = 0;
  std::uint64_t busy = 0;
  std::uint64_t older = 0;
  for (std::uint64_t left = command["count"].asUInt64(); left > 0;) {
    std::uint64_t number = 0;
    const int result = buffer_.get(record_.data(), size, nullptr, &number);
    if (result == CShmTripleBuffer::kBusy) {
      ++busy;
      continue;
    }
    if (result != CShmTripleBuffer::kCopied) throw std::runtime_error("a read failed");
    --left;
    if (!isWhole(number)) ++torn;
    if (number < newest_) ++older;
    newest_ = number;
  }
  Json::Value answer(Json::objectValue);
  answer["torn"] = static_cast<Json::UInt64>(torn);
  answer["busy"] = static_cast<Json::UInt64>(busy);
  answer["older"] = static_cast<Json::UInt64>(older);
  return answer;
}

}  // namespace bench
