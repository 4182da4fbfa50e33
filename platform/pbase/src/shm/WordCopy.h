#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <utility>

namespace Pexal::Memory {

/// What is shared is read and written in words that are atomic each: a copy that races is then no
/// undefined behaviour, only a mixture that the sequence numbers around it give away.
using SharedWord = std::atomic<std::uint64_t>;
static_assert(SharedWord::is_always_lock_free && sizeof(SharedWord) == sizeof(std::uint64_t));

constexpr std::size_t kWordSize = sizeof(std::uint64_t);

constexpr std::size_t wordsFor(std::size_t bytes) {
  return (bytes + kWordSize - 1) / kWordSize;
}

#if defined(__SANITIZE_THREAD__)
#define PEXAL_THREAD_SANITIZER
#elif defined(__has_feature)
#if __has_feature(thread_sanitizer)
#define PEXAL_THREAD_SANITIZER
#endif
#endif

#ifdef PEXAL_THREAD_SANITIZER  // knows no fences: there every word carries the order instead
constexpr std::memory_order kWordLoad = std::memory_order_acquire;
constexpr std::memory_order kWordStore = std::memory_order_release;
inline void fenceAfterLoads() noexcept {}
inline void fenceBeforeStores() noexcept {}
#else
constexpr std::memory_order kWordLoad = std::memory_order_relaxed;
constexpr std::memory_order kWordStore = std::memory_order_relaxed;
inline void fenceAfterLoads() noexcept {
  std::atomic_thread_fence(std::memory_order_acquire);
}
inline void fenceBeforeStores() noexcept {
  std::atomic_thread_fence(std::memory_order_release);
}
#endif

/// Compilers don't unroll loops over atomics.
constexpr std::size_t kWordsAtOnce = 8;
using WordsAtOnce = std::make_index_sequence<kWordsAtOnce>;

inline void loadWord(unsigned char* to, const SharedWord& from) noexcept {
  const std::uint64_t word = from.load(kWordLoad);
  std::memcpy(to, &word, kWordSize);
}

inline void storeWord(SharedWord& to, const unsigned char* from) noexcept {
  std::uint64_t word = 0;
  std::memcpy(&word, from, kWordSize);
  to.store(word, kWordStore);
}

template <std::size_t... i>
void loadWords(unsigned char* to, const SharedWord* from, std::index_sequence<i...>) noexcept {
  (loadWord(to + i * kWordSize, from[i]), ...);
}

template <std::size_t... i>
void storeWords(SharedWord* to, const unsigned char* from, std::index_sequence<i...>) noexcept {
  (storeWord(to[i], from + i * kWordSize), ...);
}

template <std::size_t kPiece>
void copyPiece(unsigned char*& to, const unsigned char*& from, std::size_t size) noexcept {
  if ((size & kPiece) == 0) return;
  std::memcpy(to, from, kPiece);
  to += kPiece;
  from += kPiece;
}

/// Less than a word. A call of memcpy, which a size that isn't constant makes, takes longer than a
/// small record.
inline void copyRest(unsigned char* to, const unsigned char* from, std::size_t size) noexcept {
  copyPiece<4>(to, from, size);
  copyPiece<2>(to, from, size);
  copyPiece<1>(to, from, size);
}

/// Shared to private, in any order; only `size` bytes of the private side are touched.
inline void loadBytes(void* destination, const SharedWord* from, std::size_t size) noexcept {
  auto* to = static_cast<unsigned char*>(destination);
  for (; size >= kWordsAtOnce * kWordSize; size -= kWordsAtOnce * kWordSize) {
    loadWords(to, from, WordsAtOnce());
    to += kWordsAtOnce * kWordSize;
    from += kWordsAtOnce;
  }
  for (; size >= kWordSize; size -= kWordSize, to += kWordSize) loadWord(to, *from++);
  if (size == 0) return;
  unsigned char last[kWordSize];
  loadWord(last, *from);
  copyRest(to, last, size);
}

/// Private to shared; the bytes of the last word behind `size` become zero.
inline void storeBytes(SharedWord* to, const void* source, std::size_t size) noexcept {
  const auto* from = static_cast<const unsigned char*>(source);
  for (; size >= kWordsAtOnce * kWordSize; size -= kWordsAtOnce * kWordSize) {
    storeWords(to, from, WordsAtOnce());
    from += kWordsAtOnce * kWordSize;
    to += kWordsAtOnce;
  }
  for (; size >= kWordSize; size -= kWordSize, from += kWordSize) storeWord(*to++, from);
  if (size == 0) return;
  unsigned char last[kWordSize] = {};
  copyRest(last, from, size);
  storeWord(*to, last);
}

}  // namespace Pexal::Memory
