#include "shm/BufferObject.h"

#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <utility>

namespace Pexal::Memory {
namespace {

bool readAll(const ShmFile& file, void* to, std::size_t size, std::size_t offset) {
  auto* bytes = static_cast<char*>(to);
  for (std::size_t done = 0; done < size;) {
    const auto count =
        ::pread(file.descriptor(), bytes + done, size - done, static_cast<off_t>(offset + done));
    if (count < 0 && errno == EINTR) continue;
    if (count <= 0) return false;
    done += static_cast<std::size_t>(count);
  }
  return true;
}

bool writeAll(const ShmFile& file, const void* from, std::size_t size) {
  const auto* bytes = static_cast<const char*>(from);
  for (std::size_t done = 0; done < size;) {
    const auto count =
        ::pwrite(file.descriptor(), bytes + done, size - done, static_cast<off_t>(done));
    if (count < 0 && errno == EINTR) continue;
    if (count <= 0) return false;
    done += static_cast<std::size_t>(count);
  }
  return true;
}

/// Null when it is a buffer; reads its head.
const char* faultOf(const ShmFile& file, PrivateHead& head) {
  if (!readAll(file, &head, sizeof head, 0)) return "too short";
  if (head.magic != kMagic) return "not a buffer";
  if (head.version != kVersion) return "a buffer of another format";
  if (head.recordSize == 0 || head.recordSize > kLargestRecord) return "records of a bad size";
  if (head.slotStride != slotStride(head.recordSize)) return "slots of a bad size";
  if (file.size() != objectSize(head.recordSize)) return "its size doesn't fit its records";
  std::uint64_t tail = 0;
  if (!readAll(file, &tail, sizeof tail, tailOffset(head.recordSize)) || tail != kMagic) {
    return "cut short once";
  }
  return nullptr;
}

}  // namespace

FoundBuffer FoundBuffer::find(const std::string& name) {
  FoundBuffer found;
  ShmFile file = ShmFile::open(name, false, kReadableByAll);
  if (!file.isOpen()) {
    if (errno == EPERM) {
      found.fault = "not a plain file of this user or root with mode 0644";
    } else if (errno != ENOENT) {
      found.fault = ::strerrordesc_np(errno);
    }
    return found;
  }
  if (const char* const fault = faultOf(file, found.head); fault != nullptr) {
    found.fault = fault;
  } else {
    found.file = std::move(file);
  }
  return found;
}

std::vector<std::uint64_t> FoundBuffer::newest() const {
  std::vector<std::uint64_t> slot(1 + wordsFor(head.recordSize));
  const std::size_t offset = slotOffset(head.latest, head.recordSize);
  if (!readAll(file, slot.data(), slot.size() * kWordSize, offset)) return {};
  if (slot[0] != sequenceOf(head.latest)) return {};
  slot.erase(slot.begin());
  return slot;
}

BufferOrigin BufferOrigin::after(const FoundBuffer& former, std::uint32_t recordSize) {
  BufferOrigin origin;
  origin.recordSize = recordSize;
  if (!former.isBuffer()) return origin;
  origin.epoch = former.head.epoch + 1;
  origin.formerLatest = former.head.latest;
  if (former.head.recordSize != recordSize) return origin;
  origin.newest = former.newest();
  origin.formerEpoch =
      former.head.latest > former.head.formerLatest ? former.head.epoch : former.head.formerEpoch;
  return origin;
}

ShmFile draftBuffer(const std::string& name, const BufferOrigin& origin) {
  std::vector<std::uint64_t> words(objectSize(origin.recordSize) / kWordSize);
  PrivateHead head{};
  head.magic = kMagic;
  head.version = kVersion;
  head.recordSize = origin.recordSize;
  head.slotStride = slotStride(origin.recordSize);
  head.epoch = origin.epoch;
  head.formerLatest = origin.formerLatest;
  head.formerEpoch = origin.formerEpoch;
  head.latest = origin.formerLatest;
  std::memcpy(words.data(), &head, sizeof head);
  if (!origin.newest.empty()) {
    const auto slot =
        words.begin() +
        static_cast<std::ptrdiff_t>(slotOffset(origin.formerLatest, origin.recordSize) / kWordSize);
    *slot = sequenceOf(origin.formerLatest);
    std::copy(origin.newest.begin(), origin.newest.end(), slot + 1);
  }
  words[tailOffset(origin.recordSize) / kWordSize] = kMagic;

  const std::size_t size = words.size() * kWordSize;
  ShmFile file = ShmFile::draft(name, size, kReadableByAll);
  if (file.isOpen() && !writeAll(file, words.data(), size)) file.close();
  return file;
}

}  // namespace Pexal::Memory
