#include <gmock/gmock.h>

#include <atomic>
#include <cstdlib>
#include <stdexcept>

#include "Reader.h"
#include "WriterSelection.h"
#include "dds_peer.h"
#include "pbase/CSemaphore.h"

using namespace dds_test;
using namespace Pexal::PDBus;
using dds::core::Duration;
using dds::core::cond::WaitSet;
using dds::core::policy::Durability;
using dds::core::policy::DurabilityKind;
using dds::core::policy::History;
using dds::core::policy::HistoryKind;
using dds::core::policy::Reliability;
using dds::core::policy::ReliabilityKind;
using Pexal::PBase::CSemaphore;
using Pexal::PBase::CThread;
using Pexal::PBase::CThreadLite;
using Pexal::PBase::CTime;
using testing::HasSubstr;

namespace {

/// The numbers that a callback has seen.
class Seen {
 public:
  void add(const Numbered& sample) {
    last_ = sample.number;
    ++count_;
  }
  [[nodiscard]] bool reaches(std::uint64_t number) const {
    return eventually([&] { return last_ == number; });
  }
  [[nodiscard]] std::uint64_t count() const { return count_; }

 private:
  std::atomic<std::uint64_t> last_{0};
  std::atomic<std::uint64_t> count_{0};
};

class TypedReader : public testing::Test {
 protected:
  using NumberedReader = MSGDDSReader<Numbered>;

  TypedReader() { EXPECT_TRUE(factory_->initial(domainDocument())); }
  ~TypedReader() override { factory_->shutdown(); }

  std::shared_ptr<NumberedReader> read(const std::string& topic,
                                       std::function<void(const Numbered&)> onData,
                                       bool reliable = true) {
    subscriber_ = factory_->subscriber("host", topic);
    dds::sub::qos::DataReaderQos qos;
    qos << History::KeepLast(1000);
    if (reliable) qos << Reliability::Reliable();
    return std::make_shared<NumberedReader>(subscriber_, qos, std::move(onData));
  }

  std::shared_ptr<IDDSFactory> factory_ = IDDSFactory::create();
  std::shared_ptr<IDDSSubcriber> subscriber_;
};

TEST_F(TypedReader, CallsBackForEverySampleInOrder) {
  std::uint64_t last = 0;
  std::atomic<bool> inOrder{true};
  Seen seen;
  const auto reader = read("numbers", [&](const Numbered& sample) {
    if (sample.number != last + 1) inOrder = false;
    last = sample.number;
    seen.add(sample);
  });
  Peer peer("numbers");
  ASSERT_TRUE(peer.matched());
  for (std::uint64_t number = 1; number <= 500; ++number) peer.write(number);
  EXPECT_TRUE(seen.reaches(500));
  EXPECT_TRUE(inOrder);
  EXPECT_EQ(seen.count(), 500U);
}

TEST_F(TypedReader, ASlowCallbackDelaysItsOwnTopicOnly) {
  CSemaphore go(0);
  Seen slowSeen;
  Seen seen;
  const auto slow = read("slow", [&](const Numbered& sample) {
    EXPECT_TRUE(go.wait(kDeadlineMs));
    slowSeen.add(sample);
  });
  const auto quick = read("quick", [&](const Numbered& sample) { seen.add(sample); });
  Peer slowPeer("slow");
  Peer peer("quick");
  ASSERT_TRUE(slowPeer.matched() && peer.matched());
  slowPeer.write(1);
  for (std::uint64_t number = 1; number <= 100; ++number) peer.write(number);
  EXPECT_TRUE(seen.reaches(100));
  EXPECT_EQ(slowSeen.count(), 0U);
  go.post();
  EXPECT_TRUE(slowSeen.reaches(1));
}

TEST_F(TypedReader, WhatACallbackThrowsIsLoggedAndSwallowed) {
  LogWatch log;
  Seen seen;
  const auto reader = read("numbers", [&](const Numbered& sample) {
    seen.add(sample);
    if (sample.number == 1) throw std::runtime_error("out of ink");
    if (sample.number == 2) throw 7;
  });
  Peer peer("numbers");
  for (std::uint64_t number = 1; number <= 3; ++number) peer.write(number);
  EXPECT_TRUE(seen.reaches(3));
  EXPECT_EQ(log.with("callback of dds reader(host:numbers) exception:out of ink").size(), 1U)
      << log.all();
}

TEST_F(TypedReader, NoCallbackRunsOnceARemovalHasReturned) {
  Peer peer("numbers");
  std::atomic<bool> writing{true};
  CThreadLite writer("writer", 0, 0, 0, [&] {
    for (std::uint64_t number = 1; writing; ++number) peer.write(number);
  });
  ASSERT_TRUE(writer.createThread());
  for (int round = 0; round < 20; ++round) {
    std::atomic<bool> removed{false};
    Seen seen;
    const auto reader = read("numbers", [&](const Numbered& sample) {
      EXPECT_FALSE(removed);
      seen.add(sample);
    });
    ASSERT_TRUE(eventually([&] { return seen.count() > 10; }));
    if (round % 2 == 0) {
      subscriber_->removeReader(reader);
    } else {
      subscriber_->removeReader(reader->base());
    }
    removed = true;
    subscriber_->removeReader(reader);  // again: nothing happens
  }
  writing = false;
  EXPECT_TRUE(eventually([&] { return writer.isThreadOver(); }));
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
    EXPECT_TRUE(eventually([&] { return returned.load(); }));
    EXPECT_TRUE(peer.matched(0)) << "the reader takes itself apart";
    EXPECT_EQ(calls, 1);
  }
}

TEST_F(TypedReader, CallbacksThatRemoveEachOthersReadersDontHang) {
  LogWatch log;
  std::atomic<int> inside{0};
  std::atomic<int> returned{0};
  std::shared_ptr<NumberedReader> one;
  std::shared_ptr<NumberedReader> other;
  const auto removes = [&](std::shared_ptr<NumberedReader>& victim) {
    return [&](const Numbered&) {
      ++inside;
      ASSERT_TRUE(eventually([&] { return inside == 2; }));
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
  EXPECT_TRUE(eventually([&] { return returned == 2; }));
  EXPECT_GE(log.with("its callback doesn't end").size(), 1U) << log.all();
}

/// Writers on a participant of their own that announce something in their user data.
class AnnouncingWriters {
 public:
  AnnouncingWriters() { EXPECT_TRUE(factory_->initial(domainDocument())); }
  ~AnnouncingWriters() { factory_->shutdown(); }
  AnnouncingWriters(const AnnouncingWriters&) = delete;
  AnnouncingWriters& operator=(const AnnouncingWriters&) = delete;

  dds::pub::DataWriter<Numbered> make(const std::string& userData) {
    const auto participant = factory_->participant("host");
    dds::pub::qos::DataWriterQos qos;
    qos << Reliability::Reliable()
        << dds::core::policy::UserData({userData.begin(), userData.end()});
    dds::pub::DataWriter<Numbered> writer(dds::pub::Publisher(participant),
                                          dds::topic::Topic<Numbered>(participant, "numbers"), qos);
    EXPECT_TRUE(eventually([&] { return writer.matched_subscriptions() == 1; }));
    return writer;
  }

 private:
  std::shared_ptr<IDDSFactory> factory_ = IDDSFactory::create();
};

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
  AnnouncingWriters writers;
  auto own = writers.make("own");
  auto silent = writers.make("");
  // One after the other, and more than are ignored at a time: those that are gone make room.
  constexpr int kRounds = WriterSelection::kMostIgnored + 8;
  std::uint64_t number = 0;
  for (int round = 1; round <= kRounds; ++round) {
    auto other = writers.make(round % 2 == 0 ? "other" : "broken");
    const std::size_t before = timesAsked;
    other.write(numbered(1000));
    ASSERT_TRUE(eventually([&] { return timesAsked == before + 1; }));
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
  LogWatch log;
  auto closed = factory_->participant("host");
  closed.close();
  Reader reader(
      {"host", "numbers", dds::topic::typeSupport<Numbered>(), {}, [](const void*) {}, {}});
  reader.rebind(closed);
  const auto lines = log.with("]rebind dds reader(host:numbers) exception:");
  ASSERT_EQ(lines.size(), 1U) << log.all();
  EXPECT_THAT(lines.front(), testing::StartsWith("4 [MSGDDSReader:"));
  EXPECT_EQ(lines.front().back(), '\n');
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

TEST_F(TypedReader, IncompatiblePeersAreHarmlessAndReportedOnce) {
  const auto participant = factory_->participant("host");
  const dds::topic::Topic<Stranger> strange(participant, "numbers");
  const auto stranger = [&] {
    return dds::pub::DataWriter<Stranger>(dds::pub::Publisher(participant), strange);
  };
  for (const bool peersFirst : {true, false}) {
    LogWatch log;
    Seen seen;
    auto early = stranger();
    if (!peersFirst) early = dds::core::null;
    const auto reader = read("numbers", [&](const Numbered& sample) { seen.add(sample); });
    auto late = stranger();
    late.write({});
    EXPECT_TRUE(eventually([&] { return !log.with("a writer's type doesn't match").empty(); }))
        << log.all();
    Peer sloppy("numbers", false);
    sloppy.write(8);

    Peer good("numbers");
    ASSERT_TRUE(good.matched());
    good.write(1);
    EXPECT_TRUE(seen.reaches(1));
    EXPECT_EQ(seen.count(), 1U);
    EXPECT_EQ(log.with("doesn't match").size(), 1U) << log.all();
  }
}

TEST_F(TypedReader, RefusesWhatItCannotUse) {
  subscriber_ = factory_->subscriber("host", "numbers");
  EXPECT_THROW(NumberedReader(nullptr, {}, [](const Numbered&) {}), dds::core::NullReferenceError);
  EXPECT_THROW(NumberedReader(subscriber_, {}, nullptr), dds::core::NullReferenceError);
  EXPECT_THROW(subscriber_->createReader({}, {}, [](const void*) {}, {}),
               dds::core::InvalidArgumentError);
  subscriber_->removeReader(nullptr);
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
  LogWatch log;
  factory_->shutdown();
  EXPECT_EQ(log.with("its callback doesn't end").size(), 1U);
  EXPECT_TRUE(factory_->participant("host").is_nil());
  go.post();
}

/// Ends the process while samples are being delivered, without a shutdown.
[[noreturn]] void exitWhileDelivering() {
  static const auto factory = IDDSFactory::instance();
  if (!factory->initial(domainDocument())) std::exit(1);
  static std::atomic<std::uint64_t> count{0};
  static const auto reader = std::make_shared<MSGDDSReader<Numbered>>(
      factory->subscriber("host", "numbers"), dds::sub::qos::DataReaderQos(),
      [](const Numbered&) { ++count; });
  const auto participant = factory->participant("host");
  static dds::pub::DataWriter<Numbered> out(dds::pub::Publisher(participant),
                                            dds::topic::Topic<Numbered>(participant, "numbers"));
  static CThreadLite writer("writer", 0, 0, 0, [] {
    while (CThread::looping()) out.write(numbered(1));
  });
  writer.createThread();
  if (!eventually([] { return count > 100; })) std::exit(2);
  std::exit(0);
}

TEST(TypedReaderDeathTest, AProcessMayEndWithoutAShutdown) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  EXPECT_EXIT(exitWhileDelivering(), testing::ExitedWithCode(0), "");
}

TEST(ReaderQos, FollowsTheDocument) {
  Json::Value document(Json::objectValue);
  document["history"] = "KEEP_LAST";
  document["depth"] = 5;
  document["reliability"] = "BEST_EFFORT";
  document["durability"] = "VOLATILE";
  auto qos = IDDSSubcriber::createDDSQos(document);
  EXPECT_EQ(qos.policy<History>().depth(), 5);
  EXPECT_EQ(qos.policy<Reliability>().kind(), ReliabilityKind::BEST_EFFORT);

  document["history"] = "KEEP_ALL";
  document["reliability"] = "RELIABLE";
  document["durability"] = "TRANSIENT_LOCAL";
  qos = IDDSSubcriber::createDDSQos(document);
  EXPECT_EQ(qos.policy<History>().kind(), HistoryKind::KEEP_ALL);
  EXPECT_EQ(qos.policy<Reliability>().kind(), ReliabilityKind::RELIABLE);
  EXPECT_EQ(qos.policy<Durability>().kind(), DurabilityKind::TRANSIENT_LOCAL);
}

TEST(ReaderQos, TakesDefaultsForWhatItCannotRead) {
  Json::Value wrong(Json::objectValue);
  wrong["history"] = 3;
  wrong["depth"] = -4;
  wrong["reliability"] = Json::Value(Json::arrayValue);
  wrong["durability"] = "FOREVER";
  for (const Json::Value& document :
       {wrong, Json::Value(), Json::Value(5), Json::Value("RELIABLE")}) {
    const auto qos = IDDSSubcriber::createDDSQos(document);
    EXPECT_EQ(qos.policy<History>().kind(), HistoryKind::KEEP_LAST);
    EXPECT_EQ(qos.policy<History>().depth(), 1);
    EXPECT_EQ(qos.policy<Reliability>().kind(), ReliabilityKind::BEST_EFFORT);
    EXPECT_EQ(qos.policy<Durability>().kind(), DurabilityKind::VOLATILE);
  }
  wrong["depth"] = Json::Value::maxLargestUInt;
  EXPECT_EQ(IDDSSubcriber::createDDSQos(wrong).policy<History>().depth(), 1);
}

}  // namespace
