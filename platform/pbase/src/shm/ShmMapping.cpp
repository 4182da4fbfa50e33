#include "shm/ShmMapping.h"

#include <sys/mman.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstdint>
#include <mutex>

namespace Pexal::Memory {
namespace {

constexpr auto kLost = MappingState::kLost;
constexpr auto kChanging = MappingState::kChanging;
constexpr auto kOneObject = MappingState::kOneObject;

/// Every mapping of the process, in a form that a signal handler can read: plain atomics, never
/// freed. A place is free while its `begin` is 0.
struct Guarded {
  std::atomic<std::uintptr_t> begin{0};
  std::atomic<std::size_t> size{0};
  std::atomic<int> protection{0};
  std::atomic<bool> taken{false};
  std::atomic<std::uint64_t> state{0};
};
constexpr int kMostMappings = 256;
std::array<Guarded, kMostMappings> guarded;
struct sigaction formerAction;

/// Plain memory in the place of the mapping that the address is in: the access that failed is made
/// again and finds zeros. False when it is in none.
bool putMemoryInPlace(std::uintptr_t address) {
  for (Guarded& place : guarded) {
    const std::uintptr_t begin = place.begin.load();
    const std::size_t size = place.size.load();
    if (begin == 0 || address < begin || address - begin >= size) continue;
    // Told before and after. Before, so that whoever reads zeros sees a state that changed; after,
    // since a replace in between may have told the opposite of what it then lost again.
    place.state.fetch_or(kLost);
    const long made = ::syscall(SYS_mmap, begin, size, place.protection.load(),
                                MAP_FIXED | MAP_PRIVATE | MAP_ANONYMOUS, -1, 0L);
    place.state.fetch_or(kLost);
    return made != -1;
  }
  return false;
}

/// Another object, and it isn't lost.
void nextObject(Guarded& place, std::uint64_t bits) {
  std::uint64_t state = place.state.load();
  while (!place.state.compare_exchange_weak(state, (state / kOneObject + 1) * kOneObject + bits)) {
  }
}

/// Back to what the system does by itself.
void endAsBefore(int signal, bool isFault) {
  if (!isFault && formerAction.sa_handler == SIG_IGN) return;
  ::sigaction(signal, &formerAction, nullptr);
  if (!isFault) ::raise(signal);  // a fault comes again by itself
}

void onBusError(int signal, siginfo_t* information, void* context) {
  const int kept = errno;
  const bool isFault = information->si_code > 0;  // else somebody sent it, and there is no address
  const bool isMended = information->si_code == BUS_ADRERR &&
                        putMemoryInPlace(reinterpret_cast<std::uintptr_t>(information->si_addr));
  errno = kept;
  if (isMended) return;
  if ((formerAction.sa_flags & SA_SIGINFO) != 0) {
    formerAction.sa_sigaction(signal, information, context);
  } else if (formerAction.sa_handler != SIG_DFL && formerAction.sa_handler != SIG_IGN) {
    formerAction.sa_handler(signal);
  } else {
    endAsBefore(signal, isFault);
  }
}

void installHandler() {
  static std::once_flag installed;
  std::call_once(installed, [] {
    struct sigaction action {};
    action.sa_sigaction = onBusError;
    action.sa_flags = SA_SIGINFO | SA_ONSTACK;
    ::sigemptyset(&action.sa_mask);
    // Asked for first: the handler may be needed before the call that installs it has returned.
    ::sigaction(SIGBUS, nullptr, &formerAction);
    ::sigaction(SIGBUS, &action, nullptr);
  });
}

int takePlace() {
  for (int i = 0; i < kMostMappings; ++i) {
    if (!guarded[i].taken.exchange(true)) return i;
  }
  return -1;
}

int protectionFor(bool writable) {
  return writable ? PROT_READ | PROT_WRITE : PROT_READ;
}

}  // namespace

bool ShmMapping::map(const ShmFile& file, std::size_t size, bool writable) {
  unmap();
  if (size == 0 || file.size() < size) {
    errno = EINVAL;
    return false;
  }
  installHandler();
  const int place = takePlace();
  if (place < 0) {
    errno = ENFILE;
    return false;
  }
  void* const address =
      ::mmap(nullptr, size, protectionFor(writable), MAP_SHARED, file.descriptor(), 0);
  if (address == MAP_FAILED) {
    guarded[place].taken = false;
    return false;
  }
  address_ = address;
  size_ = size;
  guard_ = place;
  state_ = &guarded[place].state;
  nextObject(guarded[place], 0);
  guarded[place].size = size;
  guarded[place].protection = protectionFor(writable);
  guarded[place].begin = reinterpret_cast<std::uintptr_t>(address);
  return true;
}

bool ShmMapping::replace(const ShmFile& file, bool writable) {
  if (guard_ < 0 || file.size() < size_) {
    errno = EINVAL;
    return false;
  }
  // Told before it happens: a loss in between must not be taken back.
  const bool wasLost = isLost();
  nextObject(guarded[guard_], kChanging);
  guarded[guard_].protection = protectionFor(writable);
  const void* const made = ::mmap(address_, size_, protectionFor(writable), MAP_SHARED | MAP_FIXED,
                                  file.descriptor(), 0);
  guarded[guard_].state.fetch_and(~kChanging);
  if (made != MAP_FAILED) return true;
  if (wasLost) guarded[guard_].state.fetch_or(kLost);
  return false;
}

void ShmMapping::unmap() noexcept {
  if (guard_ < 0) return;
  guarded[guard_].begin = 0;
  ::munmap(address_, size_);
  guarded[guard_].taken = false;
  guard_ = -1;
  state_ = nullptr;
  address_ = nullptr;
  size_ = 0;
}

bool ShmMapping::isLost() const noexcept {
  return state_ != nullptr && (state_->load(std::memory_order_relaxed) & kLost) != 0;
}

}  // namespace Pexal::Memory
