#include <atomic>
#include <stdexcept>

#include "Reader.h"
#include "WriterSelection.h"
#include "dds_support.h"
#include "pbase/CSemaphore.h"

using namespace platform_test;
using namespace Pexal::PDBus;
using namespace dds::core::policy;
using dds::core::Duration;
using dds::core::cond::WaitSet;
using Pexal::PBase::CSemaphore;

namespace {

/// The numbers that a callback has seen.
class Seen {
 public:
  void add(const Numbered& sample) {
    if (sample.number != last_ + 1) inOrder_ = false;
    last_ = sample.number;
    ++count_;
  }
  [[nodiscard]] bool reaches(std::uint64_t number) const {
    return waitUntil([&] { return last_ == number; });
  }
  [[nodiscard]] std::uint64_t count() const { return count_; }
  [[nodiscard]] bool inOrder() const { return inOrder_; }

 private:
  std::atomic<std::uint64_t> last_{0};
  std::atomic<std::uint64_t> count_{0};
  std::atomic<bool> inOrder_{true};
};

class TypedReader : public testing::Test {
 protected:
  using NumberedReader = MSGDDSReader<Numbered>;

  TypedReader() { EXPECT_TRUE(factory_->initial(domainDocument())); }
  ~TypedReader() override { factory_->shutdown(); }

  std::shared_ptr<NumberedReader> read(const std::string& topic,
                                       std::function<void(const Numbered&)> onData) {
    subscriber_ = factory_->subscriber("host", topic);
    dds::sub::qos::DataReaderQos qos;
    qos << History::KeepLast(1000) << Reliability::Reliable();
    return std::make_shared<NumberedReader>(subscriber_, qos, std::move(onData));
  }

  std::shared_ptr<IDDSFactory> factory_ = IDDSFactory::create();
  std::shared_ptr<IDDSSubcriber> subscriber_;
};

TEST_F(TypedReader, DeliversInOrderWhateverCallbacksThrowOrHowLongOthersTake) {
  const LogWatch log;
  CSemaphore go(0);
  Seen slowSeen;
  Seen seen;
  const auto slow = read("slow", [&](const Numbered& sample) {
    EXPECT_TRUE(go.wait(kDeadlineMs));
    slowSeen.add(sample);
  });
  const auto quick = read("quick", [&](const Numbered& sample) {
    seen.add(sample);
    if (sample.number == 1) throw std::runtime_error("out of ink");
    if (sample.number == 2) throw 7;
  });
  Peer slowPeer("slow");
  Peer peer("quick");
  ASSERT_TRUE(slowPeer.matched() && peer.matched());
  slowPeer.write(1);
  for (std::uint64_t number = 1; number <= 500; ++number) peer.write(number);
  EXPECT_TRUE(seen.reaches(500));
  EXPECT_TRUE(seen.inOrder());
  EXPECT_EQ(seen.count(), 500U);
  EXPECT_EQ(log.with("callback of dds reader(host:quick) exception:out of ink").size(), 1U);
  EXPECT_EQ(slowSeen.count(), 0U);
  go.post();
  EXPECT_TRUE(slowSeen.reaches(1));
}

TEST_F(TypedReader, NoCallbackRunsOnceARemovalHasReturned) {
  Peer peer("numbers");
  std::atomic<bool> writing{true};
  const auto writer = startThread([&] {
    for (std::uint64_t number = 1; writing; ++number) peer.write(number);
  });
  for (int round = 0; round < 20; ++round) {
    std::atomic<bool> removed{false};
    std::atomic<int> calls{0};
    const auto reader = read("numbers", [&](const Numbered&) {
      EXPECT_FALSE(removed);
      ++calls;
    });
    ASSERT_TRUE(waitUntil([&] { return calls > 10; }));
    if (round % 2 == 0) {
      subscriber_->removeReader(reader);
    } else {
      subscriber_->removeReader(reader->base());
    }
    removed = true;
    subscriber_->removeReader(reader);  // again: nothing happens
  }
  writing = false;
}

TEST_F(TypedReader, AReaderCanBeRemovedOrDroppedInsideItsCallback) {
  for (const bool drop : {false, true}) {
    std::atomic<int> calls{0};
    std::atomic<bool> returned{false};
    std::shared_ptr<NumberedReader> reader;
    CSemaphore made(0);
    reader = read(drop ? "dropped" : "removed", [&](const Numbered&) {
      ++calls;
      ASSERT_TRUE(made.wait(kDeadlineMs));
      if (drop) {
        reader.reset();
      } else {
        subscriber_->removeReader(reader);
      }
      returned = true;
    });
    made.post();
    Peer peer(drop ? "dropped" : "removed");
    for (std::uint64_t number = 1; number <= 10; ++number) peer.write(number);
    EXPECT_TRUE(waitUntil([&] { return returned.load(); }));
    EXPECT_TRUE(peer.matched(0)) << "the reader takes itself apart";
    EXPECT_EQ(calls, 1);
  }
}

TEST_F(TypedReader, CallbacksThatRemoveEachOthersReadersDontHang) {
  const LogWatch log;
  std::atomic<int> inside{0};
  std::atomic<int> returned{0};
  std::shared_ptr<NumberedReader> one;
  std::shared_ptr<NumberedReader> other;
  const auto removes = [&](std::shared_ptr<NumberedReader>& victim) {
    return [&](const Numbered&) {
      ++inside;
      ASSERT_TRUE(waitUntil([&] { return inside == 2; }));
      subscriber_->removeReader(victim);
      ++returned;
    };
  };
  one = read("one", removes(other));
  other = read("other", removes(one));
  Peer first("one");
  Peer second("other");
  ASSERT_TRUE(first.matched() && second.matched());
  first.write(1);
  second.write(1);
  EXPECT_TRUE(waitUntil([&] { return returned == 2; }));
  EXPECT_GE(log.with("its callback doesn't end").size(), 1U) << log.all();
}

/// Writer and reader in one process: when a write returns, the sample is in the reader's history,
/// or isn't and never will be.
TEST_F(TypedReader, ARefusedWriterNeitherIsHeardNorDisplacesAnothersSample) {
  std::vector<std::string> asked;
  std::atomic<std::size_t> timesAsked{0};
  CSemaphore go(0);
  Seen seen;
  std::uint64_t sum = 0;
  subscriber_ = factory_->subscriber("host", "numbers");
  const auto reader = std::make_shared<NumberedReader>(
      subscriber_, dds::sub::qos::DataReaderQos() << History::KeepLast(1),
      [&](const Numbered& sample) {
        sum += sample.number;
        seen.add(sample);
        if (sample.number % 2 == 1) {
          EXPECT_TRUE(go.wait(kDeadlineMs));
        }
      },
      [&](std::string_view userData) {
        asked.emplace_back(userData);
        ++timesAsked;
        if (userData == "broken") throw 7;
        return userData != "other";
      });
  const dds::domain::DomainParticipant participant(kDomain);
  const auto announcing = [&](const std::string& userData) {
    dds::pub::DataWriter<Numbered> writer(
        dds::pub::Publisher(participant), dds::topic::Topic<Numbered>(participant, "numbers"),
        dds::pub::qos::DataWriterQos() << UserData({userData.begin(), userData.end()}));
    EXPECT_TRUE(waitUntil([&] { return writer.matched_subscriptions() == 1; }));
    return writer;
  };
  auto own = announcing("own");
  auto silent = announcing("");
  // One after the other, and more than are ignored at a time: those that are gone make room.
  constexpr int kRounds = WriterSelection::kMostIgnored + 8;
  std::uint64_t number = 0;
  for (int round = 1; round <= kRounds; ++round) {
    auto other = announcing(round % 2 == 0 ? "other" : "broken");
    const std::size_t before = timesAsked;
    other.write(numbered(1000));
    ASSERT_TRUE(waitUntil([&] { return timesAsked == before + 1; }));
    own.write(numbered(++number));
    ASSERT_TRUE(seen.reaches(number));  // the callback waits now
    (round % 2 == 0 ? own : silent).write(numbered(++number));
    for (int i = 0; i < 3; ++i) other.write(numbered(1000));
    go.post();
    ASSERT_TRUE(seen.reaches(number)) << "in round " << round;
  }
  subscriber_->removeReader(reader);
  EXPECT_EQ(sum, number * (number + 1) / 2);
  EXPECT_EQ(asked.size(), kRounds + 2U) << "each writer once";
}

TEST_F(TypedReader, GoesOnAfterARestart) {
  Seen seen;
  std::atomic<bool> stopped{false};
  const auto reader = read("numbers", [&](const Numbered& sample) {
    EXPECT_FALSE(stopped);
    seen.add(sample);
  });
  WaitSet waitSet;
  reader->addWaitSet(waitSet, 0x400);
  for (std::uint64_t round = 1; round <= 3; ++round) {
    Peer peer("numbers");
    ASSERT_TRUE(peer.matched());
    peer.write(round);
    EXPECT_TRUE(seen.reaches(round));
    EXPECT_EQ(waitSet.conditions().size(), 1U);
    factory_->shutdown();
    stopped = true;
    peer.write(99);
    EXPECT_EQ(waitSet.conditions().size(), 0U);
    // On a start without its domain it waits for the next.
    if (round == 2) {
      ASSERT_TRUE(factory_->initial(domainDocument("elsewhere")));
      factory_->shutdown();
    }
    stopped = false;
    ASSERT_TRUE(factory_->initial(domainDocument()));
  }
  reader->delWaitSet(waitSet);
  EXPECT_EQ(waitSet.conditions().size(), 0U);

  subscriber_->removeReader(reader);
  factory_->shutdown();
  ASSERT_TRUE(factory_->initial(domainDocument()));
  Peer peer("numbers");
  EXPECT_TRUE(peer.matched(0)) << "a removed reader stays removed";
}

TEST_F(TypedReader, SaysWhenItCannotBeMadeAnew) {
  const LogWatch log;
  auto closed = factory_->participant("host");
  closed.close();
  Reader reader(
      {"host", "numbers", dds::topic::typeSupport<Numbered>(), {}, [](const void*) {}, {}});
  reader.rebind(closed);
  EXPECT_THAT(log.with("]rebind dds reader(host:numbers) exception:"),
              testing::ElementsAre(testing::AllOf(testing::StartsWith("4 [MSGDDSReader:"),
                                                  testing::EndsWith("\n"))));
}

TEST_F(TypedReader, WakesAWaitSetOfTheApplication) {
  CSemaphore go(0);
  const auto reader = read("numbers", [&](const Numbered&) { EXPECT_TRUE(go.wait(kDeadlineMs)); });
  Peer peer("numbers");
  ASSERT_TRUE(peer.matched());
  WaitSet waitSet;
  reader->addWaitSet(waitSet, 0x400);
  reader->addWaitSet(waitSet, 0x400);
  EXPECT_EQ(waitSet.wait(Duration(0, 1'000'000)).size(), 0U);
  peer.write(1);  // keeps the reader's own thread busy
  peer.write(2);
  EXPECT_EQ(waitSet.wait(Duration(10, 0)).size(), 1U);
  reader->delWaitSet(waitSet);
  reader->delWaitSet(waitSet);
  EXPECT_EQ(waitSet.conditions().size(), 0U);
  go.post();
  go.post();
}

TEST_F(TypedReader, PeersThatDontMatchAreHarmlessAndReportedOncePerPolicy) {
  const auto participant = factory_->participant("host");
  const dds::topic::Topic<Stranger> strange(participant, "numbers");
  const auto stranger = [&] {
    return dds::pub::DataWriter<Stranger>(dds::pub::Publisher(participant), strange);
  };
  for (const bool peersFirst : {true, false}) {
    const LogWatch log;
    Seen seen;
    auto early = stranger();
    if (!peersFirst) early = dds::core::null;
    const auto reader = read("numbers", [&](const Numbered& sample) { seen.add(sample); });
    std::vector<dds::pub::DataWriter<Stranger>> late;
    for (int i = 0; i < 3; ++i) {
      late.push_back(stranger());
      late.back().write({});
    }
    Peer sloppy("numbers", false);
    sloppy.write(8);
    Peer good("numbers");
    ASSERT_TRUE(good.matched());
    good.write(1);
    EXPECT_TRUE(seen.reaches(1));
    EXPECT_EQ(seen.count(), 1U);
    EXPECT_TRUE(waitUntil([&] { return log.with("doesn't match").size() >= 2; })) << log.all();
    EXPECT_EQ(log.with("3 [PeerMismatch:").size(), 2U) << log.all();
    for (const std::string policy : {"type", "reliability"}) {
      EXPECT_EQ(
          log.with("dds reader(host:numbers): a writer's " + policy + " doesn't match").size(), 1U)
          << log.all();
    }
  }
}

TEST_F(TypedReader, AShutdownIsBoundedByACallbackThatDoesNotEnd) {
  CSemaphore go(0);
  CSemaphore entered(0);
  const auto reader = read("numbers", [&](const Numbered&) {
    entered.post();
    EXPECT_TRUE(go.wait(60'000));
  });
  Peer peer("numbers");
  peer.write(1);
  ASSERT_TRUE(entered.wait(kDeadlineMs));
  const LogWatch log;
  factory_->shutdown();
  EXPECT_EQ(log.with("its callback doesn't end").size(), 1U);
  go.post();
}

TEST(ReaderQos, FollowsTheDocumentAndTakesDefaultsForWhatItCannotRead) {
  const struct {
    const char* document;
    HistoryKind history = HistoryKind::KEEP_LAST;
    int depth = 1;
    ReliabilityKind reliability = ReliabilityKind::BEST_EFFORT;
    DurabilityKind durability = DurabilityKind::VOLATILE;
  } kCases[] = {
      {R"({"history": "KEEP_LAST", "depth": 5, "reliability": "RELIABLE"})", HistoryKind::KEEP_LAST,
       5, ReliabilityKind::RELIABLE, DurabilityKind::VOLATILE},
      {R"({"history": "KEEP_ALL", "reliability": "BEST_EFFORT", "durability": "TRANSIENT_LOCAL"})",
       HistoryKind::KEEP_ALL, 1, ReliabilityKind::BEST_EFFORT, DurabilityKind::TRANSIENT_LOCAL},
      {R"({"history": 3, "depth": -4, "reliability": [], "durability": "FOREVER"})"},
      {R"({"depth": 18446744073709551615})"},
      {"null"},
      {"\"RELIABLE\""}};
  for (const auto& row : kCases) {
    const auto qos = IDDSSubcriber::createDDSQos(json(row.document));
    EXPECT_EQ(qos.policy<History>().kind(), row.history) << row.document;
    EXPECT_EQ(qos.policy<History>().depth(), row.depth) << row.document;
    EXPECT_EQ(qos.policy<Reliability>().kind(), row.reliability) << row.document;
    EXPECT_EQ(qos.policy<Durability>().kind(), row.durability) << row.document;
  }
}

}  // namespace
