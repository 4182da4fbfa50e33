#include "VirtualTime.h"

#include <algorithm>
#include <cinttypes>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <stdexcept>
#include <tuple>

namespace Pexal::PBase {

namespace {

constinit thread_local Participant* currentParticipant = nullptr;

}  // namespace

/// One blocked thread; lives on its stack. Guarded by VirtualTime's mutex.
struct VirtualTime::Waiter {
  const void* condition;
  std::uint64_t deadlineUs;
  std::uint64_t step;
  std::uint64_t number;  // the participant's, or the last one
  std::uint64_t wait;
  bool maker;
  bool runnable = false;
  MonotonicCondition turn{};

  /// Who began to wait before an earlier jump comes first; threads that ran side by side since then
  /// come in the order of their creation, so that no race decides.
  [[nodiscard]] auto seniority() const noexcept { return std::tie(step, number, wait); }
  [[nodiscard]] auto rank() const noexcept {
    return std::tuple_cat(std::tie(deadlineUs, maker), seniority());
  }
};

std::atomic<std::uint64_t> VirtualTime::now_{0};
std::atomic<std::int64_t> VirtualTime::offset_{0};

std::uint64_t systemMicroseconds() noexcept {
  timespec now{};
  clock_gettime(CLOCK_MONOTONIC, &now);
  return static_cast<std::uint64_t>(now.tv_sec) * 1'000'000 +
         static_cast<std::uint64_t>(now.tv_nsec) / 1000;
}

VirtualTime& VirtualTime::instance() noexcept {
  static auto* const theOne = new VirtualTime;
  return *theOne;
}

void VirtualTime::adopt(Participant* participant) noexcept {
  currentParticipant = participant;
}

void VirtualTime::install(std::uint64_t startUs, std::uint32_t watchdogMs) {
  const std::lock_guard guard(mutex_);
  if (active()) throw std::logic_error("VirtualClock: one is installed already");
  ++generation_;
  watchdogMs_ = watchdogMs;
  step_ = waits_ = members_ = 0;
  maker_ = Participant{.name = "clock's maker", .member = true, .maker = true};
  participants_.assign(1, &maker_);
  running_ = 1;
  currentParticipant = &maker_;
  offset_.store(0, std::memory_order_release);
  now_.store(std::max<std::uint64_t>(startUs, 1), std::memory_order_release);
}

void VirtualTime::remove() noexcept {
  const std::lock_guard guard(mutex_);
  if (currentParticipant == &maker_) currentParticipant = nullptr;
  // Threads that are still there hold deadlines of the simulated time: let that time go on.
  const bool inUse = participants_.size() > 1 || !waiters_.empty();
  if (inUse) {
    offset_.store(
        static_cast<std::int64_t>(now()) - static_cast<std::int64_t>(systemMicroseconds()),
        std::memory_order_release);
  }
  now_.store(0, std::memory_order_release);
  ++generation_;
  for (auto* participant : participants_) participant->member = false;
  participants_.clear();
  running_ = 0;
  for (auto* waiter : waiters_) {
    waiter->runnable = true;
    waiter->turn.notifyOne();
  }
}

void VirtualTime::enter(Participant& participant) {
  const std::lock_guard guard(mutex_);
  if (!active()) return;
  participants_.push_back(&participant);
  participant.number = ++members_;
  participant.member = true;
  ++running_;
}

void VirtualTime::leave(Participant& participant) noexcept {
  const std::lock_guard guard(mutex_);
  if (!participant.member) return;
  std::erase(participants_, &participant);
  participant.member = false;
  if (participant.outside == 0) --running_;
  jumpWhenIdle();
}

void VirtualTime::wake(Waiter& waiter) noexcept {
  waiter.runnable = true;
  ++running_;
  waiter.turn.notifyOne();
}

void VirtualTime::jumpWhenIdle() noexcept {
  if (!active() || running_ > 0) return;
  Waiter* next = nullptr;
  for (auto* waiter : waiters_) {
    if (!waiter->runnable && (next == nullptr || waiter->rank() < next->rank())) next = waiter;
  }
  if (next == nullptr || next->deadlineUs >= kNeverUs) return;
  now_.store(std::max(now(), next->deadlineUs), std::memory_order_release);
  ++step_;
  wake(*next);
}

void VirtualTime::notify(const void* condition, bool all) noexcept {
  const std::lock_guard guard(mutex_);
  if (!active()) return;
  Waiter* first = nullptr;
  for (auto* waiter : waiters_) {
    if (waiter->condition != condition || waiter->runnable) continue;
    if (all) {
      wake(*waiter);
    } else if (first == nullptr || waiter->seniority() < first->seniority()) {
      first = waiter;
    }
  }
  if (first != nullptr) wake(*first);
}

void VirtualTime::beginOutside() noexcept {
  const std::lock_guard guard(mutex_);
  if (currentParticipant == nullptr || !currentParticipant->member) return;
  if (currentParticipant->outside++ > 0) return;
  --running_;
  jumpWhenIdle();
}

void VirtualTime::endOutside() noexcept {
  const std::lock_guard guard(mutex_);
  if (currentParticipant == nullptr || currentParticipant->outside == 0) return;
  if (--currentParticipant->outside == 0 && currentParticipant->member) ++running_;
}

void VirtualTime::awaitTurn(Waiter& waiter) noexcept {
  std::uint64_t seenUs = now();
  std::uint64_t limitUs = systemMicroseconds() + watchdogMs_ * 1000ULL;
  while (!waiter.runnable) {
    if (!waiter.maker) {
      waiter.turn.wait(mutex_);
      continue;
    }
    waiter.turn.waitUntil(mutex_, limitUs);
    if (waiter.runnable || systemMicroseconds() < limitUs) continue;
    if (now() == seenUs) reportFreeze();
    seenUs = now();
    limitUs = systemMicroseconds() + watchdogMs_ * 1000ULL;
  }
}

void VirtualTime::reportFreeze() noexcept {
  std::fprintf(stderr, "VirtualClock: time has stood still at %" PRIu64 " us for %u ms; threads:\n",
               now(), watchdogMs_);
  for (const auto* participant : participants_) {
    std::fprintf(stderr, "  %s: ", participant->name.c_str());
    if (participant->outside > 0) {
      std::fputs("in an external wait\n", stderr);
    } else if (!participant->blocked) {
      std::fputs("runs, or is blocked outside pbase\n", stderr);
    } else if (participant->deadlineUs >= kNeverUs) {
      std::fputs("waits without deadline\n", stderr);
    } else {
      std::fprintf(stderr, "waits until %" PRIu64 " us\n", participant->deadlineUs);
    }
  }
  std::fflush(stderr);
  std::abort();
}

bool Wait::block(const void* condition, std::uint64_t deadlineUs, std::unique_lock<CMutex>& lock) {
  auto& time = VirtualTime::instance();
  std::unique_lock guard(time.mutex_);
  if (!VirtualTime::active()) return false;

  auto* self = currentParticipant;
  if (self != nullptr && (!self->member || self->outside > 0)) self = nullptr;
  VirtualTime::Waiter waiter{condition,     deadlineUs,
                             time.step_,    self != nullptr ? self->number : ~0ULL,
                             ++time.waits_, self != nullptr && self->maker};
  time.waiters_.push_back(&waiter);
  const std::uint64_t generation = time.generation_;
  if (self != nullptr) {
    self->blocked = true;
    self->deadlineUs = deadlineUs;
  }
  if (self != nullptr || countedIn_ == generation) --time.running_;
  countedIn_ = 0;
  lock.unlock();  // registered, so no notification from here on is lost

  time.jumpWhenIdle();
  time.awaitTurn(waiter);
  std::erase(time.waiters_, &waiter);
  if (self != nullptr) {
    self->blocked = false;
  } else if (time.generation_ == generation) {
    countedIn_ = generation;
  }
  guard.unlock();
  lock.lock();
  return true;
}

Wait::~Wait() {
  if (countedIn_ == 0) return;
  auto& time = VirtualTime::instance();
  const std::lock_guard guard(time.mutex_);
  if (countedIn_ != time.generation_) return;
  --time.running_;
  time.jumpWhenIdle();
}

}  // namespace Pexal::PBase
