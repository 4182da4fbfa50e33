#include "harness/Allocations.h"

#include <dlfcn.h>

namespace bench {
namespace {

using Counter = std::uint64_t (*)();

Counter find(const char* name) {
  return reinterpret_cast<Counter>(::dlsym(RTLD_DEFAULT, name));
}

}  // namespace

std::uint64_t allocationsOfThread() noexcept {
  static const Counter counter = find("bench_allocations_of_thread");
  return counter != nullptr ? counter() : 0;
}

std::uint64_t allocationsOfProcess() noexcept {
  static const Counter counter = find("bench_allocations_of_process");
  return counter != nullptr ? counter() : 0;
}

}  // namespace bench
