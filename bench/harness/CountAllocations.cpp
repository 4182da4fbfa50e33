// To be preloaded: counts what the process allocates, by thread and altogether. The counters are
// found by name; a process without this library has none.

#include <atomic>
#include <cerrno>
#include <cstddef>
#include <cstdint>

extern "C" {

void* __libc_malloc(std::size_t size);
void* __libc_calloc(std::size_t count, std::size_t size);
void* __libc_realloc(void* block, std::size_t size);
void* __libc_memalign(std::size_t alignment, std::size_t size);

namespace {

// In the static TLS block: reaching it must not allocate.
__attribute__((tls_model("initial-exec"))) thread_local std::uint64_t ofThread = 0;
std::atomic<std::uint64_t> ofProcess{0};

void count() {
  ++ofThread;
  ofProcess.fetch_add(1, std::memory_order_relaxed);
}

}  // namespace

#define BENCH_EXPORT __attribute__((visibility("default")))

BENCH_EXPORT std::uint64_t bench_allocations_of_thread() {
  return ofThread;
}
BENCH_EXPORT std::uint64_t bench_allocations_of_process() {
  return ofProcess.load(std::memory_order_relaxed);
}

BENCH_EXPORT void* malloc(std::size_t size) {
  count();
  return __libc_malloc(size);
}
BENCH_EXPORT void* calloc(std::size_t number, std::size_t size) {
  count();
  return __libc_calloc(number, size);
}
BENCH_EXPORT void* realloc(void* block, std::size_t size) {
  count();
  return __libc_realloc(block, size);
}
BENCH_EXPORT void* aligned_alloc(std::size_t alignment, std::size_t size) {
  count();
  return __libc_memalign(alignment, size);
}
BENCH_EXPORT int posix_memalign(void** block, std::size_t alignment, std::size_t size) {
  count();
  *block = __libc_memalign(alignment, size);
  return *block != nullptr ? 0 : ENOMEM;
}

}  // extern "C"
