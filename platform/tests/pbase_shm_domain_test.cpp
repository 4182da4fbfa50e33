// The channels of a shared-memory domain. The program is its own peer: with words it plays a reader
// or publishers in another process.

#include <fcntl.h>
#include <signal.h>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <random>
#include <set>

#include "pbase/CSemaphore.h"
#include "pbase/CTime.h"
#include "pbase/SharedMem.h"
#include "peer_process.h"
#include "shm/Attachment.h"

namespace Pexal::PBase {
namespace {

using platform_test::json;
using platform_test::kDeadlineMs;
using platform_test::LogWatch;
using platform_test::PeerProcess;
using platform_test::waitUntil;
using Status = SharedMemPublisher::Status;
using Chunk = std::shared_ptr<SharedMemBuffer>;

constexpr std::int32_t kChunks = 8;

/// Every word follows from the first two, so that a torn one shows.
struct Record {
  static constexpr std::size_t kWords = 57;
  std::uint64_t number = 0;
  std::uint64_t order = 0;  ///< what its reader shall do, or who wrote it
  std::array<std::uint64_t, kWords> words{};

  Record(std::uint64_t number_, std::uint64_t order_) : number(number_), order(order_) { fill(); }
  explicit Record(const SharedMemBuffer& chunk) {
    if (chunk.size() == sizeof(*this)) std::memcpy(this, chunk.payload(), sizeof(*this));
  }
  [[nodiscard]] std::uint64_t word(std::size_t i) const {
    return (number * 31 + order + i) * 0x9E37'79B9'7F4A'7C15U;
  }
  void fill() {
    for (std::size_t i = 0; i < kWords; ++i) words[i] = word(i);
  }
  [[nodiscard]] bool isWhole() const {
    for (std::size_t i = 0; i < kWords; ++i) {
      if (words[i] != word(i)) return false;
    }
    return true;
  }
};
static_assert(sizeof(Record) == 472);

std::shared_ptr<SharedMemNode> nodeIn(const std::string& name, std::int32_t chunks = kChunks) {
  const auto domain = SharedMemDomain::instance(name);
  if (chunks > 0) (void)domain->declarePools({{"pool", sizeof(Record), chunks}});
  EXPECT_TRUE(domain->initial(Json::Value()));
  return domain->createNode("node");
}

bool write(SharedMemPublisher& publisher, const Record& record) {
  auto chunk = publisher.loan(sizeof(record), 0);
  if (chunk == nullptr) return false;
  std::memcpy(chunk->payload(), &record, sizeof(record));
  return publisher.publish(std::move(chunk));
}

/// Returns how often it tried.
int writeAtLast(SharedMemPublisher& publisher, const Record& record, int attempts) {
  for (int attempt = 1; attempt <= attempts; ++attempt) {
    if (write(publisher, record)) return attempt;
    EXPECT_EQ(errno, EAGAIN);
    CThread::sleep(1);
  }
  return attempts + 1;
}

/// A subscriber that is on and keeps account of what it gets.
class Collector {
 public:
  Collector(SharedMemNode& node, const std::string& channel)
      : subscriber(node.subscriber(channel)) {
    subscriber->setCallback([this](const Chunk& chunk) {
      const Record record(*chunk);
      if (!record.isWhole()) ++torn;
      if (record.order == lastOrder && record.number <= last) ++disordered;
      if (record.order != lastOrder) ++orders;
      lastOrder = record.order;
      last = record.number;
      lastSequence = chunk->sequence();
      ++count;
    });
    EXPECT_TRUE(subscriber->setMode(SharedMemSubscriber::kOn));
  }
  ~Collector() { subscriber->setMode(SharedMemSubscriber::kOff); }

  std::shared_ptr<SharedMemSubscriber> subscriber;
  std::atomic<std::uint64_t> count{0}, last{0}, lastSequence{0}, lastOrder{0}, orders{0};
  std::atomic<int> torn{0}, disordered{0};
};

std::string pathOf(const std::string& domain) {
  return "/dev/shm/orvane." + domain + ":c";
}

// ------------------------------------------------------------------ a reader in another process

enum Order : std::uint64_t { kNothing, kReport, kStop, kDie, kKeep };

struct Report {
  std::uint64_t number = 0;
  std::uint64_t received = 0;
  std::uint64_t missing = 0;
  std::uint64_t torn = 0;
};

/// Reads channel "c" of the domain, does what it is told there and reports on "echo".
[[noreturn]] void playReader(const std::string& domain) {
  const auto node = nodeIn(domain);
  const auto echo = node->publisher("echo");
  const auto subscriber = node->subscriber("c");
  Report report;
  std::uint64_t sequence = 0;
  std::vector<Chunk> kept;
  subscriber->setCallback([&](const Chunk& chunk) {
    if (sequence != 0) report.missing += chunk->sequence() - sequence - 1;
    sequence = chunk->sequence();
    if (Record(*chunk).order == kStop) raise(SIGSTOP);
    if (Record(*chunk).order == kDie) raise(SIGKILL);
    if (Record(*chunk).order == kKeep) kept.push_back(chunk);
    const Record record(*chunk);  // after the stop
    ++report.received;
    report.number = record.number;
    if (!record.isWhole()) ++report.torn;
    if (record.order == kNothing) return;
    auto answer = echo->loan(sizeof(report), 0);
    if (answer == nullptr) return;
    std::memcpy(answer->payload(), &report, sizeof(report));
    echo->publish(std::move(answer));
  });
  (void)subscriber->setMode(SharedMemSubscriber::kOn);
  for (;;) pause();
}

/// This side of it.
class ReaderLink {
 public:
  explicit ReaderLink(const std::string& domain)
      : node(nodeIn(domain)), publisher(node->publisher("c")), echo_(node->subscriber("echo")) {
    publisher->setStatusCallback([this](Status status) { told.push_back(status); });
    echo_->setCallback([this](const Chunk& chunk) {
      const std::lock_guard lock(mutex_);
      if (chunk->size() == sizeof(report_))
        std::memcpy(&report_, chunk->payload(), sizeof(report_));
    });
    EXPECT_TRUE(echo_->setMode(SharedMemSubscriber::kOn));
  }
  ~ReaderLink() { echo_->setMode(SharedMemSubscriber::kOff); }

  bool send(Order order, int attempts) {
    const int needed = writeAtLast(*publisher, Record(number + 1, order), attempts);
    if (needed <= attempts) ++number;
    return needed <= attempts;
  }
  [[nodiscard]] Report answer() {
    const std::lock_guard lock(mutex_);
    return report_;
  }
  /// Asks until the reader answers, which says that it took what was sent before.
  Report ask() {
    const std::uint64_t asked = number + 1;
    EXPECT_TRUE(waitUntil([&] { return send(kReport, 1) && answer().number >= asked; }));
    return answer();
  }

  std::shared_ptr<SharedMemNode> node;
  std::shared_ptr<SharedMemPublisher> publisher;
  std::vector<Status> told;
  std::uint64_t number = 0;

 private:
  std::shared_ptr<SharedMemSubscriber> echo_;
  CMutex mutex_;  // guards report_
  Report report_;
};

TEST(SharedMemDomainTest, NothingIsLostOrTornBetweenProcessesAtFullSpeed) {
  constexpr std::uint64_t kCount = 100'000;
  ReaderLink link("speed");
  const PeerProcess reader({"read", "speed"});
  const Report before = link.ask();
  const std::uint64_t first = link.number;
  while (link.number < first + kCount) {
    ++link.number;
    const auto deadline = CTime::getCurrentMilliSecond() + kDeadlineMs;
    while (!write(*link.publisher, Record(link.number, kNothing))) {
      ASSERT_LT(CTime::getCurrentMilliSecond(), deadline);
    }
  }
  const Report after = link.ask();
  EXPECT_EQ(after.torn, 0U);
  // A machine that doesn't let the reader run for 5 ms makes it a stalled one.
  EXPECT_TRUE(after.missing == 0 || !link.told.empty()) << after.missing;
  EXPECT_EQ(after.received - before.received + after.missing, after.number - before.number);
}

struct Trouble {
  const char* what;
  Order order;  ///< while it holds a chunk, or kNothing: at any point
  int signal;
  Status told;
};

class ReaderTroubleTest : public testing::TestWithParam<Trouble> {};

TEST_P(ReaderTroubleTest, CostsOneWriteAtMostItsAttempts) {
  const Trouble& trouble = GetParam();
  const std::string domain = std::string("trouble-") + trouble.what;
  ReaderLink link(domain);
  const PeerProcess reader({"read", domain});
  (void)link.ask();
  const std::uint64_t before = link.number;
  link.told.clear();
  const bool isStop = trouble.told == Status::kReaderStalled;
  if (trouble.order != kNothing) {
    ASSERT_TRUE(link.send(trouble.order, 7));
  } else {
    reader.signal(trouble.signal);
  }
  ASSERT_TRUE(isStop ? reader.stopped() : reader.ended());
  int retried = 0;
  for (int i = 0; i < 100; ++i, CThread::sleep(1)) {
    const int attempts = writeAtLast(*link.publisher, Record(++link.number, kNothing), 7);
    if (attempts > 1) ++retried;
    ASSERT_LE(attempts, 7) << "write " << i;
  }
  EXPECT_LE(retried, 1);
  EXPECT_THAT(link.told, testing::ElementsAre(trouble.told));

  if (isStop) {
    reader.signal(SIGCONT);
    const Report report = link.ask();
    EXPECT_EQ(report.torn, 0U) << "a chunk was written while its reader had it";
    EXPECT_GT(report.missing, 80U);
    EXPECT_GT(report.number, before + 100);
  } else {
    const PeerProcess next({"read", domain});
    EXPECT_GT(link.ask().received, 0U) << "its place must be free again";
  }
}

INSTANTIATE_TEST_SUITE_P(
    All, ReaderTroubleTest,
    testing::Values(Trouble{"killed", kNothing, SIGKILL, Status::kReaderGone},
                    Trouble{"killed-in-delivery", kDie, 0, Status::kReaderGone},
                    Trouble{"stopped", kNothing, SIGSTOP, Status::kReaderStalled},
                    Trouble{"stopped-in-delivery", kStop, 0, Status::kReaderStalled}),
    [](const auto& name) {
      std::string text = name.param.what;
      std::replace(text.begin(), text.end(), '-', '_');
      return text;
    });

TEST(SharedMemDomainTest, ChunksKeptByADeadReaderComeBack) {
  ReaderLink link("keeper");
  {
    const PeerProcess reader({"read", "keeper"});
    (void)link.ask();
    for (int i = 0; i < kChunks; ++i) {
      ASSERT_TRUE(link.send(kKeep, 2000));
      ASSERT_TRUE(waitUntil([&] { return link.answer().number == link.number; }));
    }
    EXPECT_FALSE(link.send(kNothing, 20)) << "it lives, and keeps all";
  }
  EXPECT_TRUE(link.send(kNothing, 7));
  EXPECT_THAT(link.told, testing::Contains(Status::kReaderGone));
}

// -------------------------------------------------------------- publishers in another process

/// Publishes as fast as it can; dies by itself in the middle of a copy, if told when.
[[noreturn]] void publishFlatOut(SharedMemNode& node, std::uint64_t round, int diesAt) {
  const auto publisher = node.publisher("c");
  for (std::uint64_t number = 1;;) {
    auto chunk = publisher->loan(sizeof(Record), 0);
    if (chunk == nullptr) continue;
    const Record record(number, round);
    const std::size_t half = number++ == static_cast<std::uint64_t>(diesAt) ? 100 : sizeof(record);
    std::memcpy(chunk->payload(), &record, half);
    if (half < sizeof(record)) raise(SIGKILL);
    publisher->publish(std::move(chunk));
  }
}

/// One publisher after the other, each killed; the last one stays.
[[noreturn]] void playPublishers(const std::string& domain, std::uint64_t rounds) {
  const auto node = nodeIn(domain);
  std::minstd_rand random(7);
  for (std::uint64_t round = 1; round <= rounds; ++round) {
    const int diesAt = round % 2 == 0 ? static_cast<int>(random() % 300) + 1 : 0;
    const pid_t child = fork();
    if (child == 0) {
      prctl(PR_SET_PDEATHSIG, SIGKILL);
      publishFlatOut(*node, round, diesAt);
    }
    const std::uint64_t killAtUs = CTime::getCurrentMicroSecond() + 200 + random() % 800;
    while (diesAt == 0 && CTime::getCurrentMicroSecond() < killAtUs) continue;
    if (diesAt == 0) kill(child, SIGKILL);
    waitpid(child, nullptr, 0);
  }
  const auto publisher = node->publisher("c");
  for (std::uint64_t number = 1;; ++number) {
    (void)write(*publisher, Record(number, rounds + 1));
    CThread::sleep(1);
  }
}

TEST(SharedMemDomainTest, PublishersKilledInsidePublishHarmNobody) {
  constexpr std::uint64_t kRounds = 1000;
  const auto node = nodeIn("killed");
  Collector collector(*node, "c");
  const PeerProcess publishers({"publish", "killed", std::to_string(kRounds)});
  ASSERT_TRUE(waitUntil([&] { return collector.lastOrder == kRounds + 1; }, 3 * kDeadlineMs));
  const std::uint64_t seen = collector.count;
  EXPECT_TRUE(waitUntil([&] { return collector.count > seen + 20; }));
  EXPECT_EQ(collector.torn, 0);
  EXPECT_EQ(collector.disordered, 0);
  RecordProperty("publishers seen", static_cast<int>(collector.orders));
  EXPECT_GT(collector.orders, kRounds / 10) << "successors aren't picked up at once";
}

// ------------------------------------------------------------------------------- one process

TEST(SharedMemDomainTest, LoanFailsWithItsReasonAndHeldChunksAreNotUsedAgain) {
  const auto node = nodeIn("loan");
  const auto publisher = node->publisher("c");
  ASSERT_TRUE(publisher->isReady());
  const auto refused = [&](SharedMemPublisher& by, std::uint32_t size, std::uint32_t flags) {
    errno = 0;
    EXPECT_EQ(by.loan(size, flags), nullptr);
    return errno;
  };
  EXPECT_EQ(refused(*publisher, sizeof(Record) + 1, 0), ENOMEM);
  EXPECT_EQ(refused(*publisher, sizeof(Record), 1), EINVAL);
  EXPECT_EQ(refused(*nodeIn("loan-poolless", 0)->publisher("c"), 1, 0), ENOMEM);
  EXPECT_EQ(refused(*node->publisher("not/a/name"), 1, 0), ENOTCONN);
  EXPECT_EQ(refused(*node->publisher("c"), 1, 0), ENOTCONN) << "the channel has its publisher";
  const auto other = node->publisher("other");
  EXPECT_FALSE(publisher->publish(other->loan(1, 0)));
  EXPECT_FALSE(publisher->publish({}));
  {
    std::vector<SharedMemLoan> loans;
    for (int i = 0; i < kChunks; ++i) loans.push_back(publisher->loan(1, 0));
    EXPECT_THAT(loans, testing::Each(testing::NotNull()));
    EXPECT_EQ(refused(*publisher, 1, 0), EAGAIN);
  }
  EXPECT_TRUE(write(*publisher, Record(1, 0))) << "dropped loans are free again";

  std::vector<Chunk> kept;
  std::atomic<std::size_t> count{0};
  auto subscriber = node->subscriber("c");
  EXPECT_FALSE(subscriber->isReady());
  EXPECT_FALSE(subscriber->setMode(2));
  subscriber->setCallback([&](const Chunk& chunk) {
    kept.push_back(chunk);
    count = kept.size();
  });
  ASSERT_TRUE(subscriber->setMode(SharedMemSubscriber::kOn) && subscriber->isReady());
  for (std::uint64_t i = 1; i <= kChunks; ++i) {
    ASSERT_TRUE(write(*publisher, Record(i, 0)));
    ASSERT_TRUE(waitUntil([&] { return count == i; })) << "what came before isn't delivered";
  }
  for (int i = 0; i < 20; ++i, CThread::sleep(1)) EXPECT_EQ(refused(*publisher, 1, 0), EAGAIN);
  subscriber.reset();
  EXPECT_EQ(refused(*publisher, 1, 0), EAGAIN) << "the pointers outlive the subscriber";
  for (std::uint64_t i = 0; i < kChunks; ++i) {
    EXPECT_TRUE(Record(*kept[i]).isWhole() && Record(*kept[i]).number == i + 1);
    EXPECT_EQ(kept[i]->sequence(), i + 2);
    kept[i].reset();
    EXPECT_NE(publisher->loan(1, 0), nullptr) << "as soon as one is dropped";
  }
}

/// Readers whose cursors never count, always at the chunk that is used next.
TEST(SharedMemDomainTest, MarksAloneProtectWhatIsRead) {
  constexpr std::uint64_t kLeastTaken = 1'000;
  const auto node = nodeIn("marks");
  const auto publisher = node->publisher("c");
  std::atomic<bool> stop{false};
  std::atomic<std::uint64_t> taken{0};
  std::atomic<int> torn{0};
  const auto read = [&] {
    const auto reader = Attachment::join("marks:c", {});
    ASSERT_NE(reader, nullptr);
    reader->leave();
    while (!stop) {
      const Chunk chunk = reader->take();
      if (chunk == nullptr) continue;
      const Record first(*chunk);
      const bool isWhole = first.isWhole() && first.number == chunk->sequence();
      if (!isWhole || Record(*chunk).number != first.number) ++torn;
      ++taken;
    }
  };
  {
    const auto one = platform_test::startThread(read);
    const auto other = platform_test::startThread(read);
    // Readers that have no processor take nothing: go on until they had their share.
    const auto deadline = CTime::getCurrentMilliSecond() + kDeadlineMs;
    const auto isEnough = [&](std::uint64_t written) {
      return written >= 3'000'000 &&
             (taken > kLeastTaken || CTime::getCurrentMilliSecond() > deadline);
    };
    for (std::uint64_t number = 1; !isEnough(number);) {
      if (write(*publisher, Record(number, 1))) ++number;
    }
    stop = true;
  }
  EXPECT_EQ(torn, 0);
  EXPECT_GT(taken, kLeastTaken);
}

/// Each record is published just when the reader of the one before goes to sleep.
TEST(SharedMemDomainTest, NoWakeUpIsLost) {
  constexpr std::uint64_t kRecords = 300'000;
  const auto node = nodeIn("wake");
  const auto publisher = node->publisher("c");
  std::atomic<std::uint64_t> last{0};
  std::atomic<bool> isLost{false};
  const auto reader = platform_test::startThread([&] {
    const auto attachment = Attachment::join("wake:c", {});
    ASSERT_NE(attachment, nullptr);
    const std::atomic<std::uint32_t> orders{0};
    while (last < kRecords && !isLost) {
      // A limit that no record waits for: who sleeps so long wasn't woken.
      const Chunk chunk = attachment->take();
      if (chunk == nullptr) {
        isLost = !attachment->sleep(orders, 0, kDeadlineMs);
        continue;
      }
      last = chunk->sequence();
      for (std::atomic<int> spin = static_cast<int>(last % 100); spin > 0; --spin) continue;
    }
  });
  for (std::uint64_t i = 1; i <= kRecords && !isLost; ++i) {
    while (!write(*publisher, Record(i, 1))) continue;
    while (last < i && !isLost) continue;
  }
  EXPECT_FALSE(isLost) << "after record " << last;
}

TEST(SharedMemDomainTest, NothingIsLostWhereChunksAreDroppedOnAnotherThread) {
  constexpr std::uint64_t kRecords = 30'000;
  const auto node = nodeIn("passedOn", 1);
  const auto publisher = node->publisher("c");
  std::uint64_t stalls = 0;
  publisher->setStatusCallback([&](Status) { ++stalls; });
  std::mutex mutex;  // guards passed
  Chunk passed;
  std::atomic<std::uint64_t> last{0}, gaps{0};
  const auto subscriber = node->subscriber("c");
  subscriber->setCallback([&](const Chunk& chunk) {
    if (chunk->sequence() != last + 1) ++gaps;
    const std::lock_guard lock(mutex);
    passed = chunk;
    last = chunk->sequence();
  });
  ASSERT_TRUE(subscriber->setMode(SharedMemSubscriber::kOn));
  std::atomic<bool> over{false};
  const auto dropper = platform_test::startThread([&] {
    while (!over) {
      Chunk dropped;
      const std::lock_guard lock(mutex);
      dropped.swap(passed);
    }
  });
  const std::uint64_t deadline = CTime::getCurrentMilliSecond() + kDeadlineMs;
  for (std::uint64_t number = 1; number <= kRecords; ++number) {
    while (!write(*publisher, Record(number, 0)) && CTime::getCurrentMilliSecond() < deadline) {
    }
  }
  EXPECT_TRUE(waitUntil([&] { return last == kRecords; }));
  over = true;
  EXPECT_LE(gaps, stalls) << "who stalls is dropped, and told of";
}

TEST(SharedMemDomainTest, SwitchingAndTeardownInsideAndOutsideADelivery) {
  const auto node = nodeIn("teardown");
  const auto publisher = node->publisher("c");
  auto subscriber = node->subscriber("c");
  ASSERT_TRUE(subscriber->setMode(SharedMemSubscriber::kOn));
  CSemaphore inside(0);
  CSemaphore goOn(0);
  std::atomic<int> deliveries{0};

  // Switched off from outside: waits, and nothing is delivered afterwards.
  std::atomic<bool> isOver{false};
  subscriber->setCallback([&](const Chunk&) {
    ++deliveries;
    inside.post();
    EXPECT_TRUE(goOn.wait(kDeadlineMs));
    isOver = true;
  });
  ASSERT_TRUE(write(*publisher, Record(1, 0)) && inside.wait(kDeadlineMs));
  ASSERT_TRUE(write(*publisher, Record(2, 0)));
  const auto helper = platform_test::startThread([&] {
    EXPECT_TRUE(waitUntil([&] { return !subscriber->isReady(); }));
    goOn.post();
  });
  EXPECT_TRUE(subscriber->setMode(SharedMemSubscriber::kOff));
  EXPECT_TRUE(isOver && !subscriber->isReady());
  EXPECT_EQ(deliveries, 1);

  // Switched from inside, off and on; what throws doesn't end the thread.
  subscriber->setCallback([&](const Chunk&) {
    EXPECT_TRUE(subscriber->setMode(SharedMemSubscriber::kOff));
    EXPECT_TRUE(subscriber->setMode(SharedMemSubscriber::kOn));
    inside.post();
    throw std::runtime_error("out of cheese");
  });
  const LogWatch log;
  ASSERT_TRUE(subscriber->setMode(SharedMemSubscriber::kOn));
  for (int i = 0; i < 3; ++i) {
    ASSERT_TRUE(write(*publisher, Record(3, 0)));
    ASSERT_TRUE(inside.wait(kDeadlineMs));
  }
  EXPECT_EQ(log.with("out of cheese").size(), 1U) << log.all();

  // Destroyed inside, with the chunk in hand; and a sleeping one is destroyed at once.
  Chunk kept;
  subscriber->setCallback([&](const Chunk& chunk) {
    kept = chunk;
    subscriber.reset();
    inside.post();
  });
  ASSERT_TRUE(write(*publisher, Record(4, 0)) && inside.wait(kDeadlineMs));
  EXPECT_TRUE(subscriber == nullptr && Record(*kept).number == 4);
  const auto before = CTime::getCurrentMilliSecond();
  for (int i = 0; i < 100; ++i) {
    const Collector sleeper(*node, i % 2 == 0 ? "c" : "nobody");
    if (i % 4 < 2) CThread::sleep(1);
  }
  EXPECT_LT(CTime::getCurrentMilliSecond() - before, 5'000U) << "it waits for a time-out";
}

TEST(SharedMemDomainTest, SuccessorsArePickedUpFromTheirFirstRecord) {
  const auto node = nodeIn("restart");
  Collector early(*node, "c");
  for (std::uint64_t round = 1; round <= 20; ++round) {
    const auto publisher = node->publisher("c");
    ASSERT_TRUE(publisher->isReady());
    Collector late(*node, "c");
    for (std::uint64_t i = 1; i <= 5; ++i) ASSERT_TRUE(write(*publisher, Record(i, round)));
    ASSERT_TRUE(waitUntil([&] { return early.count == round * 5 && late.count == 5; }))
        << early.count << " in round " << round;
    EXPECT_EQ(early.lastSequence, 5U);
  }
  EXPECT_EQ(early.disordered, 0);

  // Cut short: a new segment, found by the readers.
  for (const off_t length : {0, 4096, 1}) {
    const auto publisher = node->publisher("c");
    ASSERT_TRUE(write(*publisher, Record(1, 100)));
    ASSERT_TRUE(waitUntil([&] { return early.lastOrder == 100; }));
    ASSERT_EQ(truncate(pathOf("restart").c_str(), length), 0);
    std::uint64_t number = 1;
    EXPECT_TRUE(waitUntil([&] {
      (void)write(*publisher, Record(++number, 101));
      return early.lastOrder == 101;
    })) << length;
  }
  EXPECT_EQ(early.torn, 0);
}

TEST(SharedMemDomainTest, ThereArePlacesForSixteenReaders) {
  const auto node = nodeIn("places");
  const auto publisher = node->publisher("c");
  std::vector<std::unique_ptr<Collector>> readers;
  for (int i = 0; i < 16; ++i) readers.push_back(std::make_unique<Collector>(*node, "c"));
  const LogWatch log;
  Collector tooMany(*node, "c");
  EXPECT_EQ(log.with("all places for subscribers are taken").size(), 1U) << log.all();
  for (std::uint64_t i = 1; i <= 100; ++i) {
    ASSERT_LE(writeAtLast(*publisher, Record(i, 0), 1000), 1000);
    for (const auto& reader : readers) {
      ASSERT_TRUE(waitUntil([&] { return reader->last == i; }));
    }
  }
  EXPECT_EQ(tooMany.count, 0U);
  readers.pop_back();
  std::uint64_t number = 100;
  EXPECT_TRUE(waitUntil([&] {
    (void)write(*publisher, Record(++number, 0));
    return tooMany.count > 0;
  }));
}

TEST(SharedMemDomainTest, WreckedSegmentsHurtNobody) {
  const auto node = nodeIn("wrecked");
  auto publisher = node->publisher("c");
  ASSERT_TRUE(publisher->isReady());
  Collector collector(*node, "c");
  const int file = open(pathOf("wrecked").c_str(), O_RDWR);
  struct stat status {};
  ASSERT_EQ(fstat(file, &status), 0);
  const auto bytes = static_cast<std::size_t>(status.st_size);
  auto* const words = static_cast<std::atomic<std::uint32_t>*>(
      mmap(nullptr, bytes, PROT_READ | PROT_WRITE, MAP_SHARED, file, 0));
  ASSERT_NE(words, MAP_FAILED);
  std::atomic<bool> stop{false};
  // All but what says that it is a segment: that would merely be left.
  auto vandal = platform_test::startThread([&] {
    std::minstd_rand random(11);
    while (!stop) {
      const std::size_t at = 16 + random() % (bytes / 4 - 16);
      words[at] = random() % 3 == 0 ? 0xFFFF'FFFFU : static_cast<std::uint32_t>(random() % 64);
    }
  });
  const auto until = CTime::getCurrentMilliSecond() + 2'000;
  std::uint64_t number = 0;
  while (CTime::getCurrentMilliSecond() < until) {
    (void)write(*publisher, Record(++number, 1));
    if (number % 64 == 0) const Collector passing(*node, "c");
  }
  stop = true;
  vandal.reset();
  munmap(words, bytes);
  close(file);

  publisher.reset();
  publisher = node->publisher("c");
  ASSERT_TRUE(write(*publisher, Record(1, 2)));
  EXPECT_TRUE(waitUntil([&] { return collector.lastOrder == 2; }));
}

TEST(SharedMemDomainTest, WhatIsNotTrustedIsRefusedAndPickedUpOnceItIs) {
  const auto node = nodeIn("foreign");
  auto publisher = node->publisher("c");
  const std::string path = pathOf("foreign");
  struct stat status {};
  ASSERT_EQ(stat(path.c_str(), &status), 0);
  EXPECT_EQ(status.st_mode & 07777U, 0600U);
  ASSERT_EQ(chmod(path.c_str(), 0666), 0);
  const LogWatch log;
  Collector collector(*node, "c");
  ASSERT_TRUE(write(*publisher, Record(1, 1)));
  EXPECT_EQ(
      log.with("3 [SharedMem]can't subscribe to foreign:c yet: Operation not permitted").size(), 1U)
      << log.all();
  EXPECT_EQ(collector.count, 0U);

  publisher.reset();
  for (const std::size_t length : {0U, 63U, 64U, 100'000U}) {
    const int file = open(path.c_str(), O_RDWR | O_CREAT | O_TRUNC, 0600);
    ASSERT_EQ(fchmod(file, 0600), 0);
    const std::vector<char> nonsense(length, '\x7f');
    ASSERT_EQ(::write(file, nonsense.data(), length), static_cast<ssize_t>(length));
    close(file);
    const Collector passing(*node, "c");
    EXPECT_TRUE(passing.subscriber->isReady()) << "it waits for a better one";
  }
  publisher = node->publisher("c");
  ASSERT_TRUE(write(*publisher, Record(1, 2)));
  EXPECT_TRUE(waitUntil([&] { return collector.lastOrder == 2; }));
}

TEST(SharedMemDomainTest, DomainsTakeOnlyWhatTheySayTheyTake) {
  EXPECT_EQ(SharedMemDomain::instance("a/b"), nullptr);
  EXPECT_EQ(SharedMemDomain::instance(std::string(65, 'a')), nullptr);
  const auto domain = SharedMemDomain::instance("");
  ASSERT_NE(domain, nullptr);
  EXPECT_EQ(domain, SharedMemDomain::instance(""));
  EXPECT_FALSE(domain->createNode("early")->isReady());
  EXPECT_FALSE(domain->createNode("early")->publisher("c")->isReady());
  EXPECT_FALSE(domain->createNode("early")->subscriber("c")->setMode(SharedMemSubscriber::kOn));
  const std::vector<SharedMemPool> bad = {{"", 1, 1},  {"p", 0, 1},  {"p", (1U << 20) + 1, 1},
                                          {"p", 1, 0}, {"p", 1, -1}, {"p", 1, 1025}};
  for (const SharedMemPool& pool : bad) {
    EXPECT_FALSE(domain->declarePools({{"good", 1, 1}, pool})) << pool.name << pool.count;
  }
  EXPECT_TRUE(domain->declarePools({{"first", 100, 2}, {"second", 200, 2}}));
  for (const char* schedule :
       {"[]", "\"fifo\"", R"({"policy":3})", R"({"policy":"1"})", R"({"priority":100})",
        R"({"priority":-1})", R"({"policy":1})", R"({"policy":0,"priority":1})"}) {
    EXPECT_FALSE(domain->initial(json(schedule))) << schedule;
  }
  EXPECT_TRUE(domain->initial(json(R"({"policy":1,"priority":10})")));
  EXPECT_TRUE(domain->initial(json("[]"))) << "again";
  EXPECT_FALSE(domain->declarePools({{"late", 1, 1}, {"second", 200, 3}})) << "with other figures";
  EXPECT_TRUE(domain->declarePools({{"second", 200, 2}, {"third", 300, 2}}));
  EXPECT_FALSE(domain->createNode("")->isReady());
  const auto node = domain->createNode("node");
  EXPECT_NE(node->publisher("third", "third")->loan(300, 0), nullptr);
  EXPECT_EQ(node->publisher("late", "late")->loan(1, 0), nullptr);
  const auto publisher = node->publisher("c");
  const auto loan = publisher->loan(50, 0);
  ASSERT_NE(loan, nullptr);
  EXPECT_EQ(loan->size(), 50U);
  EXPECT_EQ(loan->capacity(), 100U) << "of the first pool";
}

}  // namespace
}  // namespace Pexal::PBase

int main(int argc, char** argv) {
  if (argc == 3 && std::string(argv[1]) == "read") Pexal::PBase::playReader(argv[2]);
  if (argc == 4 && std::string(argv[1]) == "publish") {
    Pexal::PBase::playPublishers(argv[2], std::strtoull(argv[3], nullptr, 10));
  }
  testing::InitGoogleMock(&argc, argv);
  return RUN_ALL_TESTS();
}
