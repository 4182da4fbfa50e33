#include "pbase/CShmTripleBuffer.h"

#include <atomic>
#include <cerrno>
#include <cstring>
#include <ctime>
#include <new>

#include "VirtualTime.h"
#include "pbase/CTime.h"
#include "pbase/ILogger.h"
#include "shm/BufferLayout.h"
#include "shm/BufferObject.h"
#include "shm/ShmFile.h"
#include "shm/ShmMapping.h"

namespace Pexal::Memory {
namespace {

using PBase::CTime;
using PBase::VirtualTime;

constexpr int kAttempts = 8;
constexpr std::uint64_t kPauseMs = 100;       // between looks for a successor, and between repairs
constexpr std::uint32_t kManyInATick = 64;    // of the clock: then a reader calls without a pause,
constexpr std::uint32_t kUnclockedCalls = 7;  // and so many of its calls don't ask it
constexpr std::uint32_t kRefusal = 3;
constexpr std::uint32_t kFailure = 4;

/// The platform's clock, to the system's tick of some milliseconds, for a fraction of the price.
std::uint64_t roughMilliseconds() noexcept {
  if (VirtualTime::active() || VirtualTime::offset() != 0) return CTime::getCurrentMilliSecond();
  timespec time{};
  ::clock_gettime(CLOCK_MONOTONIC_COARSE, &time);
  return static_cast<std::uint64_t>(time.tv_sec) * 1'000 +
         static_cast<std::uint64_t>(time.tv_nsec) / 1'000'000;
}

bool say(std::uint32_t level, const std::string& name, const char* what) {
  ILogger::instance()->log(level, "pbase", "[CShmTripleBuffer]%s: %s\n", name.c_str(), what);
  return false;
}

bool isBufferName(const std::string& name) {
  return !name.empty() && ShmFile::isName(name);
}

}  // namespace

/// Of a writer: what put alone uses is plain. Of a reader: what get and latestSeq share is atomic
/// or guarded by the flag `looking`. The mapping's address stays from open to close.
struct __attribute__((visibility("hidden"))) CShmTripleBuffer::Impl {
  std::string name;
  std::uint32_t recordSize = 0;  // 0: not open
  ShmMapping mapping;
  BufferView view;

  WriterLock lock;  // held: a writer
  std::uint64_t epoch = 0;
  std::uint64_t last = 0;  // number of the newest record
  std::uint64_t repairedMs = 0;
  bool saidRepair = false;

  alignas(kLine) std::atomic<std::uint64_t> newestSeen{0};
  std::atomic<std::uint32_t> unclocked{0};  // calls to come that needn't ask the clock
  std::atomic<std::uint64_t> clockedMs{0};  // when one asked it last
  std::atomic<std::uint32_t> inTick{0};     // how often it gave that time again
  std::atomic<std::uint64_t> lookedMs{0};  // when one found a new record, or looked for a successor
  std::atomic<bool> looking{false};
  ShmIdentity identity;  // of what is mapped
  ShmIdentity refused;   // the last one that there was a line about

  bool startWriting(const std::string& wanted, std::uint32_t size);
  bool startReading(const std::string& wanted);
  void stop() noexcept;

  bool repair() noexcept;
  bool makeAgain();

  bool followed(std::uint64_t number) noexcept;
  bool isLookDue() noexcept;
  bool look() noexcept;
  bool takeSuccessor();
};

// ---------------------------------------------------------------------------------- the writer

bool CShmTripleBuffer::Impl::startWriting(const std::string& wanted, std::uint32_t size) {
  if (!lock.take(wanted)) {
    return say(kRefusal, wanted,
               errno == EWOULDBLOCK ? "another writer lives" : ::strerrordesc_np(errno));
  }
  const FoundBuffer former = FoundBuffer::find(wanted);
  if (!former.fault.empty()) {
    say(kRefusal, wanted, (former.fault + "; the numbers begin at 1 again").c_str());
  }
  const BufferOrigin origin = BufferOrigin::after(former, size);
  const ShmFile object = draftBuffer(wanted, origin);
  if (!object.isOpen() || !mapping.map(object, objectSize(size), true) || !ShmFile::give(wanted)) {
    const int failure = errno;
    stop();
    return say(kFailure, wanted, ::strerrordesc_np(failure));
  }
  name = wanted;
  view = BufferView(mapping.address(), size);
  epoch = origin.epoch;
  last = origin.formerLatest;
  repairedMs = 0;
  saidRepair = false;
  recordSize = size;
  return true;
}

/// Somebody cut the object short or wiped it: another one takes its place and goes on counting.
bool CShmTripleBuffer::Impl::repair() noexcept {
  const std::uint64_t now = CTime::getCurrentMilliSecond();
  if (repairedMs != 0 && now - repairedMs < kPauseMs) return false;
  repairedMs = now;
  bool done = false;
  try {
    done = makeAgain();
  } catch (const std::bad_alloc&) {
    errno = ENOMEM;
  }
  if (!saidRepair) {
    say(kFailure, name,
        done ? "somebody cut the object short, it was made again" : ::strerrordesc_np(errno));
  }
  saidRepair = true;
  return done;
}

bool CShmTripleBuffer::Impl::makeAgain() {
  BufferOrigin origin;
  origin.recordSize = recordSize;
  origin.epoch = epoch;
  origin.formerLatest = last;
  origin.formerEpoch = epoch;
  const ShmFile object = draftBuffer(name, origin);
  // Named first: were it the other way round, a failure between would leave a nameless object that
  // looks whole.
  return object.isOpen() && ShmFile::give(name) && mapping.replace(object, true);
}

// --------------------------------------------------------------------------------- the readers

bool CShmTripleBuffer::Impl::startReading(const std::string& wanted) {
  const FoundBuffer found = FoundBuffer::find(wanted);
  if (!found.isBuffer()) return !found.isAbsent() && say(kRefusal, wanted, found.fault.c_str());
  const auto size = static_cast<std::uint32_t>(found.head.recordSize);
  if (!mapping.map(found.file, objectSize(size), false)) {
    return say(kFailure, wanted, ::strerrordesc_np(errno));
  }
  name = wanted;
  view = BufferView(mapping.address(), size);
  newestSeen = 0;
  unclocked = 0;
  lookedMs = roughMilliseconds();
  identity = ShmIdentity::of(found.file);
  refused = {};
  recordSize = size;
  return true;
}

/// To be asked with the newest number: true when nothing was new, and a look found a successor,
/// which is in the object's place now.
bool CShmTripleBuffer::Impl::followed(std::uint64_t number) noexcept {
  if (number != 0 && number != newestSeen.load(std::memory_order_relaxed)) {
    newestSeen.store(number, std::memory_order_relaxed);
    // A writer that goes on has no successor to look for.
    lookedMs.store(roughMilliseconds(), std::memory_order_relaxed);
    return false;
  }
  return !lock.isHeld() && isLookDue() && look();
}

/// Reading the clock takes as long as copying a small record. Who calls without a pause asks it at
/// some of the calls only.
bool CShmTripleBuffer::Impl::isLookDue() noexcept {
  if (const std::uint32_t left = unclocked.load(std::memory_order_relaxed); left != 0) {
    unclocked.store(left - 1, std::memory_order_relaxed);
    return false;
  }
  const std::uint64_t now = roughMilliseconds();
  if (now != clockedMs.load(std::memory_order_relaxed)) {
    clockedMs.store(now, std::memory_order_relaxed);
    inTick.store(0, std::memory_order_relaxed);
  } else if (const auto count = inTick.load(std::memory_order_relaxed); count < kManyInATick) {
    inTick.store(count + 1, std::memory_order_relaxed);
  } else {
    unclocked.store(kUnclockedCalls, std::memory_order_relaxed);
  }
  // A difference, so that a clock which was set back doesn't keep it from looking.
  return now - lookedMs.load(std::memory_order_relaxed) >= kPauseMs;
}

bool CShmTripleBuffer::Impl::look() noexcept {
  if (looking.exchange(true, std::memory_order_acquire)) return false;
  bool found = false;
  try {
    found = takeSuccessor();
  } catch (const std::bad_alloc&) {
  }
  lookedMs.store(roughMilliseconds(), std::memory_order_relaxed);
  looking.store(false, std::memory_order_release);
  return found;
}

bool CShmTripleBuffer::Impl::takeSuccessor() {
  const ShmIdentity named = ShmIdentity::of(name);
  if (named == ShmIdentity{} || (named == identity && !mapping.isLost())) return false;
  const FoundBuffer found = FoundBuffer::find(name);
  const bool fits = found.isBuffer() && found.head.recordSize == recordSize;
  if (fits && mapping.replace(found.file, false)) {
    identity = ShmIdentity::of(found.file);
    return true;
  }
  if (!found.isAbsent() && !(named == refused)) {
    refused = named;
    say(kRefusal, name, found.isBuffer() ? "its successor has another size" : found.fault.c_str());
  }
  return false;
}

void CShmTripleBuffer::Impl::stop() noexcept {
  recordSize = 0;
  mapping.unmap();
  lock.release();
}

// ------------------------------------------------------------------------------- the interface

CShmTripleBuffer::CShmTripleBuffer() : impl_(std::make_unique<Impl>()) {}

CShmTripleBuffer::~CShmTripleBuffer() {
  close();
}

bool CShmTripleBuffer::create(const std::string& name, std::uint32_t recordSize) {
  close();
  if (!isBufferName(name)) return say(kRefusal, name, "not a buffer's name");
  if (recordSize == 0 || recordSize > kLargestRecord) return say(kRefusal, name, "a bad size");
  return impl_->startWriting(name, recordSize);
}

bool CShmTripleBuffer::open(const std::string& name, bool readOnly) {
  close();
  if (!isBufferName(name)) return say(kRefusal, name, "not a buffer's name");
  if (readOnly) return impl_->startReading(name);
  const FoundBuffer former = FoundBuffer::find(name);
  if (!former.isBuffer()) return !former.isAbsent() && say(kRefusal, name, former.fault.c_str());
  return impl_->startWriting(name, static_cast<std::uint32_t>(former.head.recordSize));
}

void CShmTripleBuffer::close() noexcept {
  impl_->stop();
}

std::uint64_t CShmTripleBuffer::put(const void* record, std::uint32_t size) noexcept {
  Impl& self = *impl_;
  if (size == 0 || size != self.recordSize || record == nullptr || !self.lock.isHeld()) return 0;
  if (!self.view.isWhole() && !self.repair()) return 0;
  self.view.store(++self.last, record, size);
  return self.last;
}

std::uint64_t CShmTripleBuffer::latestSeq() noexcept {
  Impl& self = *impl_;
  if (self.recordSize == 0) return 0;
  std::uint64_t number = self.view.latest();
  if (self.followed(number)) number = self.view.latest();
  return number != 0 ? number : self.newestSeen.load(std::memory_order_relaxed);
}

int CShmTripleBuffer::get(void* destination, std::uint32_t size, std::uint64_t* epoch,
                          std::uint64_t* seq) noexcept {
  Impl& self = *impl_;
  if (size == 0 || size > self.recordSize || destination == nullptr) return kRefused;
  for (int attempt = 0; attempt < kAttempts; ++attempt) {
    const std::uint64_t state = self.mapping.state();
    if (!ShmMapping::isSettled(state)) continue;
    const std::uint64_t number = self.view.latest();
    if (self.followed(number)) continue;
    const SharedWord* const slot = self.view.slot(number);
    const std::uint64_t before = slot->load(std::memory_order_acquire);
    if (before == 0 && self.mapping.state() == state) {
      return self.view.isWhole() ? kNothingYet : kRefused;
    }
    if (before != sequenceOf(number)) continue;
    loadBytes(destination, slot + 1, size);
    const std::uint64_t writer = epoch != nullptr ? self.view.epochOf(number) : 0;
    fenceAfterLoads();
    if (slot->load(std::memory_order_relaxed) != before || self.mapping.state() != state) continue;
    if (!self.view.isWhole()) return kRefused;  // it may have been wiped meanwhile
    if (epoch != nullptr) *epoch = writer;
    if (seq != nullptr) *seq = number;
    return kCopied;
  }
  return kBusy;
}

std::uint32_t CShmTripleBuffer::recordSize() const noexcept {
  return impl_->recordSize;
}

}  // namespace Pexal::Memory
