#include <fcntl.h>
#include <sys/mman.h>
#include <sys/ptrace.h>
#include <sys/stat.h>

#include <array>
#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <fstream>

#include "forked_child.h"
#include "pbase/CShmTripleBuffer.h"
#include "pbase/CTime.h"
#include "pbase/System.h"
#include "shm_buffer_support.h"
#include "test_support.h"

namespace Pexal::Memory {
namespace {

using PBase::CThread;
using PBase::CTime;
using platform_test::ForkedChild;
using platform_test::LogWatch;
using platform_test::newestOf;
using platform_test::Record;
using platform_test::startThread;
using platform_test::Tally;
using platform_test::waitUntil;
using testing::SizeIs;

#if defined(__SANITIZE_THREAD__) || defined(__SANITIZE_ADDRESS__)
constexpr std::uint64_t kReads = 1'000'000;
#else
constexpr std::uint64_t kReads = 100'000'000;
#endif
constexpr std::uint32_t kPatienceMs = 60'000;

std::string pathOf(const std::string& name) {
  return "/dev/shm/orvane." + name;
}

template <std::uint32_t kSize>
void writeFlatOut(const std::string& name) {
  CShmTripleBuffer buffer;
  Record<kSize> record;
  if (!buffer.create(name, kSize)) _exit(1);
  while (record.putInto(buffer)) {
  }
  _exit(1);
}

/// Three readers, two of them on one object, beside a writer that never pauses.
template <std::uint32_t kSize>
void readBesideAWriter(std::uint64_t reads) {
  const std::string name = "flat" + std::to_string(kSize);
  const ForkedChild writer([&] { writeFlatOut<kSize>(name); });
  std::array<CShmTripleBuffer, 2> buffers;
  for (CShmTripleBuffer& buffer : buffers) {
    ASSERT_TRUE(waitUntil([&] { return buffer.open(name, true); }));
  }
  std::array<Tally, 3> tallies;
  const std::uint64_t share = reads / tallies.size() + 1;
  const std::uint64_t fresh = share / 500 + 1'000;
  {
    const auto deadline = CTime::getCurrentMilliSecond() + kPatienceMs * (reads / kReads + 1);
    std::vector<std::unique_ptr<CThread>> readers;
    for (std::size_t i = 0; i < tallies.size(); ++i) {
      readers.push_back(startThread([&, i] {
        Tally tally;
        while (tally.copied < share || tally.fresh < fresh) {
          for (int k = 0; k < 1'000; ++k) tally.read<kSize>(buffers[i / 2]);
          if (CTime::getCurrentMilliSecond() > deadline) break;
        }
        tallies[i] = tally;
      }));
    }
    ASSERT_TRUE(waitUntil(
        [&] {
          return std::all_of(readers.begin(), readers.end(),
                             [](const auto& reader) { return reader->isThreadOver(); });
        },
        kPatienceMs * 100));
  }
  std::uint64_t copied = 0;
  for (const Tally& tally : tallies) {
    copied += tally.copied;
    EXPECT_EQ(tally.faults, 0U);
    EXPECT_GE(tally.fresh, fresh) << "the writer stands still";
  }
  EXPECT_GE(copied, reads);
}

TEST(ShmBufferTest, NoReadIsTornAndNoNumberFallsBesideAWriterThatNeverPauses) {
  const std::string wanted = PBase::getEnvVariable("ORVANE_BUFFER_READS", std::to_string(kReads));
  const std::uint64_t reads = std::strtoull(wanted.c_str(), nullptr, 10);
  readBesideAWriter<76>(reads / 10 * 9);
  readBesideAWriter<712>(reads / 10);
}

TEST(ShmBufferTest, HandsOutPrefixesAndRefusesWhatDoesNotFit) {
  CShmTripleBuffer writer;
  CShmTripleBuffer reader;
  Record<76> record;
  EXPECT_EQ(writer.put(&record, 76), 0U);
  EXPECT_EQ(writer.latestSeq(), 0U);
  EXPECT_EQ(reader.get(&record, 76, nullptr, nullptr), CShmTripleBuffer::kRefused);
  {
    const LogWatch log;
    EXPECT_FALSE(reader.open("plain", true));
    EXPECT_THAT(log.with(""), testing::IsEmpty()) << "readers try again and again";
    EXPECT_FALSE(writer.create("", 76));
    EXPECT_FALSE(writer.create("a/b", 76));
    EXPECT_FALSE(writer.create(std::string(65, 'n'), 76));
    EXPECT_FALSE(writer.create("plain", 0));
    EXPECT_FALSE(writer.create("plain", (1U << 20) + 1));
    EXPECT_THAT(log.with("3 [CShmTripleBuffer]"), SizeIs(5)) << log.all();
  }
  ASSERT_TRUE(writer.create("plain", 76));
  ASSERT_TRUE(reader.open("plain", true));
  EXPECT_EQ(reader.recordSize(), 76U);
  EXPECT_EQ(reader.latestSeq(), 0U);
  EXPECT_EQ(reader.get(&record, 76, nullptr, nullptr), CShmTripleBuffer::kNothingYet);
  EXPECT_EQ(reader.put(&record, 76), 0U) << "a reader";
  EXPECT_EQ(writer.put(&record, 75), 0U);
  ASSERT_TRUE(record.putInto(writer));
  EXPECT_EQ(reader.get(&record, 77, nullptr, nullptr), CShmTripleBuffer::kRefused);
  Record<13> prefix;
  std::uint64_t epoch = 0;
  ASSERT_EQ(reader.get(&prefix, 13, &epoch, nullptr), CShmTripleBuffer::kCopied);
  record.words[1] &= 0xFF'FFFF'FFFF;
  EXPECT_THAT(prefix.words, testing::ElementsAre(record.words[0], record.words[1]));
  EXPECT_EQ(epoch, 1U);
  EXPECT_EQ(newestOf<76>(writer), 1U) << "the writer reads, too";
}

TEST(ShmBufferTest, AReadersPagesCanNotBeMadeWritable) {
  CShmTripleBuffer writer;
  CShmTripleBuffer reader;
  ASSERT_TRUE(writer.create("pages", 712));
  ASSERT_TRUE(reader.open("pages", true));
  std::ifstream maps("/proc/self/maps");
  std::vector<std::string> protections;
  for (std::string line; std::getline(maps, line);) {
    if (line.find("orvane.pages") == std::string::npos) continue;
    protections.push_back(line.substr(line.find(' ') + 1, 4));
    if (protections.back() != "r--s") continue;
    void* const page = reinterpret_cast<void*>(std::stoull(line, nullptr, 16));
    EXPECT_EQ(mprotect(page, 1, PROT_READ | PROT_WRITE), -1);
    EXPECT_EQ(errno, EACCES);
  }
  EXPECT_THAT(protections, testing::UnorderedElementsAre("r--s", "rw-s"));
}

/// Runs `prepare`, then `body` for some steps (of one instruction, or to the next begin or end of a
/// system call), and dies. The number of steps made: less than asked for when the body was over.
int dieAfter(int steps, __ptrace_request kind, const std::function<void()>& prepare,
             const std::function<void()>& body) {
  const ForkedChild child([&] {
    prepare();
    ptrace(PTRACE_TRACEME, 0, nullptr, nullptr);
    raise(SIGSTOP);
    body();
    raise(SIGSTOP);
  });
  int made = -1;
  int status = 0;
  while (waitpid(child.process(), &status, 0) == child.process() && WIFSTOPPED(status)) {
    if (made >= 0 && WSTOPSIG(status) == SIGSTOP) break;
    if (++made == steps) break;
    if (ptrace(kind, child.process(), nullptr, nullptr) != 0) break;
  }
  EXPECT_TRUE(WIFSTOPPED(status)) << "the child ended by itself";
  return made;
}

struct Death {
  const char* name;
  __ptrace_request kind;
  bool isInCreate;
};

class DyingWriterTest : public testing::TestWithParam<Death> {};

TEST_P(DyingWriterTest, LeavesAWholeRecordAndACountThatGoesOn) {
  const std::string name = std::string("dying") + GetParam().name;
  CShmTripleBuffer writer;
  CShmTripleBuffer holdsOn;
  Record<76> record;
  ASSERT_TRUE(writer.create(name, 76));
  ASSERT_TRUE(record.putInto(writer));
  ASSERT_TRUE(holdsOn.open(name, true));
  writer.close();
  std::uint64_t last = 1;
  const auto create = [&] {
    if (!writer.create(name, 76)) _exit(1);
  };
  const auto put = [&] {
    if (!record.putInto(writer)) _exit(1);
  };
  const auto run = [&](int steps) {
    if (!GetParam().isInCreate) return dieAfter(steps, GetParam().kind, create, put);
    return dieAfter(
        steps, GetParam().kind, [] {}, create);
  };

  const int total = run(1'000'000);
  ASSERT_GT(total, 10);
  // All of them, but for the sanitizers' thousands: then some 200,000 steps together.
  const int stride = std::max<int>(1, std::int64_t{total} * total / 400'000);
  for (int steps = 0; steps < total + stride; steps += stride) {
    run(steps);
    const auto found = newestOf<76>(name);
    ASSERT_TRUE(found.has_value()) << "after " << steps << " steps";
    ASSERT_GE(*found, last) << "after " << steps << " steps";
    ASSERT_LE(*found, last + 1) << "after " << steps << " steps";
    last = *found;
  }
  EXPECT_TRUE(GetParam().isInCreate || last > 2) << "no step is behind the writing";

  ASSERT_TRUE(writer.open(name, false)) << "nothing of the dead is in the way";
  EXPECT_EQ(newestOf<76>(writer), last);
  ASSERT_TRUE(record.putInto(writer));
  EXPECT_TRUE(waitUntil([&] { return holdsOn.latestSeq() == last + 1; }));
  std::uint64_t epoch = 0;
  EXPECT_EQ(holdsOn.get(&record, 76, &epoch, nullptr), CShmTripleBuffer::kCopied);
  EXPECT_GT(epoch, 2U);
  EXPECT_EQ(newestOf<76>(holdsOn), last + 1);
}

INSTANTIATE_TEST_SUITE_P(AtEveryStep, DyingWriterTest,
                         testing::Values(Death{"Put", PTRACE_SINGLESTEP, false},
                                         Death{"Create", PTRACE_SYSCALL, true}),
                         [](const auto& values) { return std::string(values.param.name); });

TEST(ShmBufferTest, ReadersThatHoldOnFollowWritersThatAreKilledAnywhere) {
  // A process that keeps a writer, since it can fork without this one's threads.
  const ForkedChild keeper([] {
    for (;;) {
      const ForkedChild writer([] { writeFlatOut<712>("killed"); });
      CThread::sleep(30);
    }
  });
  CShmTripleBuffer buffer;
  ASSERT_TRUE(waitUntil([&] { return buffer.open("killed", true); }));
  std::atomic<bool> stop{false};
  std::array<Tally, 2> tallies;
  std::array<std::atomic<std::uint64_t>, 2> epochs{};
  std::vector<std::unique_ptr<CThread>> readers;
  for (std::size_t i = 0; i < tallies.size(); ++i) {
    readers.push_back(startThread([&, i] {
      for (std::uint64_t epoch = 0; !stop; epochs[i] = epoch) {
        tallies[i].read<712>(buffer);
        char byte = 0;
        (void)buffer.get(&byte, 1, &epoch, nullptr);
      }
    }));
  }
  EXPECT_TRUE(waitUntil([&] { return epochs[0] > 20 && epochs[1] > 20; }));
  stop = true;
  readers.clear();
  for (const Tally& tally : tallies) EXPECT_EQ(tally.faults, 0U);
}

TEST(ShmBufferTest, ASuccessorOfAnotherSizeGoesOnCountingAndOldReadersKeepWhatTheyHave) {
  const LogWatch log;
  CShmTripleBuffer writer;
  CShmTripleBuffer second;
  CShmTripleBuffer reader;
  Record<76> record;
  Record<712> larger;
  ASSERT_TRUE(writer.create("sizes", 76));
  EXPECT_FALSE(second.create("sizes", 76));
  EXPECT_FALSE(second.open("sizes", false));
  EXPECT_THAT(log.with("3 [CShmTripleBuffer]sizes: another writer lives"), SizeIs(2));
  ASSERT_TRUE(record.putInto(writer));
  ASSERT_TRUE(reader.open("sizes", true));
  ASSERT_TRUE(writer.create("sizes", 712));
  EXPECT_EQ(writer.get(&larger, 712, nullptr, nullptr), CShmTripleBuffer::kNothingYet);
  EXPECT_EQ(writer.latestSeq(), 1U);
  ASSERT_TRUE(larger.putInto(writer));
  EXPECT_EQ(newestOf<712>("sizes"), 2U);
  EXPECT_TRUE(waitUntil([&] {
    return newestOf<76>(reader) == 1U && log.with("its successor has another size").size() == 1;
  }));
}

void putWord(const std::string& path, off_t offset, std::uint64_t value) {
  const int file = open(path.c_str(), O_WRONLY);
  EXPECT_EQ(pwrite(file, &value, sizeof value, offset), static_cast<ssize_t>(sizeof value));
  close(file);
}

struct Spoilt {
  const char* what;
  const char* line;
  std::function<int(const std::string&)> how;
};

TEST(ShmBufferTest, WhatIsNotWhatItShouldBeIsRefused) {
  const auto word = [](off_t offset, std::uint64_t value) {
    return [=](const std::string& path) { return putWord(path, offset, value), 0; };
  };
  const auto inPlace = [](auto make) {
    return [=](const std::string& path) {
      return rename(path.c_str(), (path + ".moved").c_str()) + make(path);
    };
  };
  const std::vector<Spoilt> table = {
      {"magic", "not a buffer", word(0, 1)},
      {"version", "another format", word(8, 2)},
      {"no size", "bad size", word(16, 0)},
      {"huge size", "bad size", word(16, ~0ULL)},
      {"other size", "bad size", word(16, 712)},
      {"stride", "bad size", word(24, 64)},
      {"empty", "too short", [](auto& path) { return truncate(path.c_str(), 0); }},
      {"cut", "doesn't fit", [](auto& path) { return truncate(path.c_str(), 576); }},
      {"cut and lengthened", "cut short once",
       [](auto& path) { return truncate(path.c_str(), 576) + truncate(path.c_str(), 704); }},
      {"longer", "doesn't fit", [](auto& path) { return truncate(path.c_str(), 4096); }},
      {"mode", "mode 0644", [](auto& path) { return chmod(path.c_str(), 0664); }},
      {"link", "symbolic links",
       inPlace([](auto& path) { return symlink((path + ".moved").c_str(), path.c_str()); })},
      {"pipe", "plain file", inPlace([](auto& path) { return mkfifo(path.c_str(), 0644); })},
      {"directory", "plain file", inPlace([](auto& path) { return mkdir(path.c_str(), 0644); })},
      {"owner", "of this user", [](auto& path) { return chown(path.c_str(), 12'345, 12'345); }},
  };
  for (const Spoilt& spoilt : table) {
    SCOPED_TRACE(spoilt.what);
    const bool isOwner = spoilt.what == std::string("owner");
    if (isOwner && geteuid() != 0) GTEST_SKIP() << "only root can give a file away";
    CShmTripleBuffer buffer;
    Record<76> record;
    ASSERT_TRUE(buffer.create("spoilt", 76));
    ASSERT_TRUE(record.putInto(buffer));
    buffer.close();
    const int spoiling = spoilt.how(pathOf("spoilt"));
    if (isOwner && spoiling != 0) GTEST_SKIP() << "there is no other user here";
    ASSERT_EQ(spoiling, 0);
    const LogWatch log;
    EXPECT_FALSE(buffer.open("spoilt", true));
    EXPECT_FALSE(buffer.open("spoilt", false));
    EXPECT_THAT(log.with(spoilt.line), SizeIs(2)) << log.all();
    if (spoilt.what == std::string("directory")) {
      EXPECT_FALSE(buffer.create("spoilt", 76));
      EXPECT_EQ(rmdir(pathOf("spoilt").c_str()), 0);
    }
    EXPECT_TRUE(buffer.create("spoilt", 76));
  }
}

TEST(ShmBufferTest, AnObjectCutShortIsMadeAgainByItsWriterAndFoundByItsReaders) {
  constexpr std::uint32_t kSize = 5'000;
  CShmTripleBuffer writer;
  CShmTripleBuffer reader;
  Record<kSize> record;
  ASSERT_TRUE(writer.create("cut", kSize));
  ASSERT_TRUE(record.putInto(writer));
  ASSERT_TRUE(reader.open("cut", true));
  struct stat whole {};
  ASSERT_EQ(stat(pathOf("cut").c_str(), &whole), 0);
  std::atomic<bool> stop{false};
  std::array<Tally, 2> tallies;
  std::vector<std::unique_ptr<CThread>> readers;
  for (Tally& tally : tallies) {
    readers.push_back(startThread([&] {
      while (!stop) tally.read<kSize>(reader);
    }));
  }
  const LogWatch log;
  for (const bool isLengthened : {false, true}) {
    for (const off_t size : {off_t{0}, off_t{64}, off_t{200}, off_t{4'096}, whole.st_size - 1}) {
      SCOPED_TRACE(testing::Message() << size << (isLengthened ? " and lengthened" : ""));
      const std::uint64_t last = reader.latestSeq();
      ASSERT_EQ(truncate(pathOf("cut").c_str(), size), 0);
      ASSERT_TRUE(!isLengthened || truncate(pathOf("cut").c_str(), whole.st_size) == 0);
      EXPECT_EQ(reader.get(&record, kSize, nullptr, nullptr), CShmTripleBuffer::kRefused);
      EXPECT_EQ(reader.latestSeq(), last);
      record.fill(last + 1);
      ASSERT_TRUE(waitUntil([&] { return writer.put(&record, kSize) == last + 1; }));
      EXPECT_TRUE(waitUntil([&] { return newestOf<kSize>(reader) == last + 1; }));
    }
  }
  stop = true;
  readers.clear();
  for (const Tally& tally : tallies) EXPECT_EQ(tally.faults, 0U);
  EXPECT_THAT(log.with("4 [CShmTripleBuffer]cut: somebody cut the object short"), SizeIs(1));
}

TEST(ShmBufferTest, AReaderOfAnObjectThatWasCutShortFindsTheNextWriters) {
  CShmTripleBuffer writer;
  CShmTripleBuffer reader;
  Record<712> record;
  ASSERT_TRUE(writer.create("orphan", 712));
  ASSERT_TRUE(record.putInto(writer));
  ASSERT_TRUE(reader.open("orphan", true));
  writer.close();
  ASSERT_EQ(truncate(pathOf("orphan").c_str(), 0), 0);
  EXPECT_EQ(reader.get(&record, 712, nullptr, nullptr), CShmTripleBuffer::kRefused);
  ASSERT_TRUE(writer.create("orphan", 712));
  EXPECT_TRUE(waitUntil(
      [&] { return reader.get(&record, 712, nullptr, nullptr) == CShmTripleBuffer::kNothingYet; }));
  ASSERT_TRUE(record.putInto(writer));
  EXPECT_EQ(newestOf<712>(reader), 1U);
}

/// Reads a byte of a page that a file doesn't have.
void faultElsewhere() {
  const int file = memfd_create("short", 0);
  const auto* const byte =
      static_cast<const volatile char*>(mmap(nullptr, 4'096, PROT_READ, MAP_SHARED, file, 0));
  (void)*byte;
}

void useABuffer() {
  CShmTripleBuffer writer;
  Record<76> record;
  if (!writer.create("signals", 76) || !record.putInto(writer)) _exit(1);
}

TEST(ShmBufferDeathTest, BusErrorsOfOthersGoWhereTheyWentBefore) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");  // so that the handler isn't installed yet
  const auto first = [](void (*handler)(int)) {
    std::signal(SIGBUS, handler);
    useABuffer();
  };
  const auto exits = [](int) { _exit(42); };
  EXPECT_EXIT((first(exits), faultElsewhere()), testing::ExitedWithCode(42), "");
  EXPECT_EXIT((first(exits), raise(SIGBUS)), testing::ExitedWithCode(42), "");
  EXPECT_EXIT((first(SIG_DFL), faultElsewhere()), testing::KilledBySignal(SIGBUS), "");
  EXPECT_EXIT((first(SIG_DFL), raise(SIGBUS)), testing::KilledBySignal(SIGBUS), "");
  EXPECT_EXIT((first(SIG_IGN), raise(SIGBUS), _exit(3)), testing::ExitedWithCode(3), "");
}

}  // namespace
}  // namespace Pexal::Memory
