#include "pbase/PrioMutex.h"

namespace Pexal::PBase {

PrioMutex::PrioMutex() noexcept {
  pthread_mutexattr_t attributes;
  pthread_mutexattr_init(&attributes);
  pthread_mutexattr_setprotocol(&attributes, PTHREAD_PRIO_INHERIT);
  if (pthread_mutex_init(&native_, &attributes) != 0) pthread_mutex_init(&native_, nullptr);
  pthread_mutexattr_destroy(&attributes);
}

PrioMutex::~PrioMutex() {
  pthread_mutex_destroy(&native_);
}

void PrioMutex::lock() noexcept {
  pthread_mutex_lock(&native_);
}

void PrioMutex::unlock() noexcept {
  pthread_mutex_unlock(&native_);
}

bool PrioMutex::try_lock() noexcept {
  return pthread_mutex_trylock(&native_) == 0;
}

}  // namespace Pexal::PBase
