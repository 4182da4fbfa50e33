#include "shared_memory/peers/FutexChannel.h"

#include <fcntl.h>
#include <linux/futex.h>
#include <sys/mman.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <climits>
#include <cstring>
#include <stdexcept>

namespace bench {
namespace {

constexpr const char* kName = "/bench.futex";

}  // namespace

void* mapShared(const char* name, std::size_t size) {
  const int file = ::shm_open(name, O_CREAT | O_RDWR | O_CLOEXEC, 0600);
  if (file < 0 || ::ftruncate(file, static_cast<off_t>(size)) != 0) {
    throw std::runtime_error("no shared page");
  }
  void* const page = ::mmap(nullptr, size, PROT_READ | PROT_WRITE, MAP_SHARED, file, 0);
  ::close(file);
  if (page == MAP_FAILED) throw std::runtime_error("no shared page");
  return page;
}

void wake(std::atomic<std::uint32_t>& word) noexcept {
  ::syscall(SYS_futex, &word, FUTEX_WAKE, INT_MAX, nullptr, nullptr, 0);
}

void waitWhile(std::atomic<std::uint32_t>& word, std::uint32_t value) noexcept {
  ::syscall(SYS_futex, &word, FUTEX_WAIT, value, nullptr, nullptr, 0);
}

FutexPage& FutexPage::map() {
  return *static_cast<FutexPage*>(mapShared(kName, sizeof(FutexPage)));
}

void FutexPage::put(const Message& message) noexcept {
  const std::uint32_t number = count.load(std::memory_order_relaxed);
  Message& place = ring[number % ring.size()].message;
  std::memcpy(static_cast<void*>(&place), &message, sizeof message);
  count.store(number + 1, std::memory_order_release);
}

bool FutexWriter::write(const Message& message) noexcept {
  page_.put(message);
  wake(page_.count);
  return true;
}

FutexReader::FutexReader(const Json::Value&) : page_(FutexPage::map()) {
  // What is written once the role is ready must not be missed: look before the thread starts.
  const std::uint32_t seen = page_.count.load(std::memory_order_acquire);
  thread_ = std::thread([this, seen] { run(seen); });
}

void FutexReader::stop() {
  if (!thread_.joinable()) return;
  ends_ = true;
  page_.count.fetch_add(1);
  wake(page_.count);
  thread_.join();
}

void FutexReader::run(std::uint32_t seen) {
  while (!ends_) {
    waitWhile(page_.count, seen);
    for (; seen != page_.count.load(std::memory_order_acquire) && !ends_; ++seen) {
      take(page_.at(seen));
    }
  }
}

}  // namespace bench
