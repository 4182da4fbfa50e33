// The motion channels over real shared memory, both halves in this process.

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <json/writer.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <map>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

#include "WaitUntil.h"
#include "pbase/VirtualClock.h"
#include "scripted/LogLines.h"
#include "shm/ShareMotionDomain.h"
#include "shm/ShareMotionReader.h"
#include "shm/ShareMotionWriter.h"

namespace {

using namespace Robot::Motion;
using orvane_test::waitUntil;
using Pexal::PBase::CTime;
using Pexal::PBase::SharedMemBuffer;
using Pexal::PBase::SharedMemDomain;
using Pexal::PBase::SharedMemSubscriber;
using scripted::LogLine;
using testing::ElementsAre;
using testing::IsEmpty;
using Lines = std::vector<LogLine>;

constexpr int kRetries = 5;
constexpr std::uint32_t kChunkSize = 1000;  // holds either record, and more than that
constexpr int kChunks = 4;

Json::Value config(const std::map<std::string, Json::Value>& members) {
  Json::Value made(Json::objectValue);
  for (const auto& [name, value] : members) made[name] = value;
  return made;
}

Json::Value channel(const std::string& name) {
  return config({{"name", name}});
}

/// Words of the lines in which the two channels differ.
struct Voice {
  MotionChannel channel;
  std::string longName;
  std::string shortName;
};
const Voice kVoices[] = {{MotionChannel::kControl, "motion ctrl", "motion ctrl"},
                         {MotionChannel::kData, "motion data", "motion"}};

/// First of all, since it forks: a process whose configuration declares no pool has no chunk for a
/// record.
TEST(ShmChannelsDeathTest, WithoutAPoolEveryWriteIsOutOfRange) {
  const auto withoutPool = [] {
    scripted::CapturedLog log;
    for (const Voice& voice : kVoices) {
      auto& domain = ShareMotionDomain::instance(voice.channel);
      if (!domain.init(config({{"domain", "noPool"}, {"node", "a"}, {"poolSize", 0}}))) return 2;
    }
    ShareMotionCtrlWriter control;
    ShareMotionDataPublisher data;
    if (!control.init(channel("c")) || !data.init(channel("d"))) return 3;
    if (control.write({}, kRetries) || data.publishMotionData(0, {}, kRetries)) return 4;
    return log.take() == Lines{{4, "motion ctrl data size 472 out of range\n"},
                               {4, "motion data size 780 out of range\n"}}
               ? 0
               : 5;
  };
  GTEST_FLAG_SET(death_test_style, "fast");
  EXPECT_EXIT(std::exit(withoutPool()), testing::ExitedWithCode(0), "");
}

/// What a domain's holder does with its configuration. Each case has a domain of its own.
class ShmDomain : public testing::TestWithParam<Voice> {
 protected:
  [[nodiscard]] Lines linesOf(const Json::Value& document, bool succeeds) {
    ShareMotionDomain domain(GetParam().channel);
    log_.take();
    EXPECT_EQ(domain.init(document), succeeds) << document;
    EXPECT_EQ(domain.node() != nullptr, succeeds) << document;
    return log_.take();
  }
  static std::string domainName() {
    static int count = 0;
    return "domain" + std::to_string(++count);
  }

  scripted::CapturedLog log_;
};

TEST_P(ShmDomain, WarnsOfNamesThatAreNoTextAndGoesOn) {
  const auto& [which, longName, shortName] = GetParam();
  const LogLine noDomain{5, longName + " node domain invalid\n"};
  const LogLine noNode{5, longName + " node domain node invalid\n"};
  EXPECT_THAT(linesOf(config({{"node", "n"}}), true), ElementsAre(noDomain));
  EXPECT_THAT(linesOf(config({{"domain", 7}, {"node", 8}}), true), ElementsAre(noDomain, noNode));

  ShareMotionDomain holder(which);
  const Json::Value wrong =
      config({{"domain", domainName()}, {"node", "n"}, {"schedule", "at once"}});
  EXPECT_FALSE(holder.init(wrong));
  EXPECT_EQ(log_.take().back(), (LogLine{3, " init share " + shortName + " domain " +
                                                wrong["domain"].asString() + " failed\n"}));
  EXPECT_FALSE(holder.init(config({{"domain", wrong["domain"]}, {"node", "a/b"}})));
  EXPECT_EQ(log_.take().back(), (LogLine{3, " init share " + shortName + " node a/b failed\n"}));
  EXPECT_TRUE(holder.init(config({{"domain", wrong["domain"]}, {"node", "n"}})));
  log_.take();
  for (const Json::Value& other : {wrong, Json::Value(), Json::Value("x"), Json::Value(1)}) {
    EXPECT_TRUE(holder.init(other)) << "it is there already";
  }
  EXPECT_THAT(log_.take(), IsEmpty());
}

TEST_P(ShmDomain, DeclaresAPoolOnlyOfAWholeNumberOfChunksAboveZero) {
  const std::pair<Json::Value, int> cases[] = {{3, 3},   {0, 0},    {-1, 0},           {"3", 0},
                                               {2.5, 0}, {true, 0}, {Json::Value(), 0}};
  const MotionChannelRow& row = rowOf(GetParam().channel);
  for (const auto& [poolSize, chunks] : cases) {
    SCOPED_TRACE(poolSize);
    const std::string name = domainName();
    ShareMotionDomain domain(GetParam().channel);
    ASSERT_TRUE(domain.init(config({{"domain", name}, {"node", "n"}, {"poolSize", poolSize}})));
    const auto publisher = domain.node()->publisher("p");
    ASSERT_TRUE(publisher->isReady());
    std::vector<Pexal::PBase::SharedMemLoan> loans;
    for (auto loan = publisher->loan(row.recordSize, 0); loan != nullptr;
         loan = publisher->loan(row.recordSize, 0)) {
      EXPECT_EQ(loan->capacity(), row.recordSize);
      loans.push_back(std::move(loan));
    }
    EXPECT_EQ(errno, chunks == 0 ? ENOMEM : EAGAIN);
    EXPECT_EQ(loans.size(), static_cast<std::size_t>(chunks));
  }
}

INSTANTIATE_TEST_SUITE_P(Both, ShmDomain, testing::ValuesIn(kVoices), [](const auto& which) {
  return which.param.channel == MotionChannel::kControl ? "Control" : "Data";
});

/// Chunks that a reader keeps, or what it took of them.
class Keeper {
 public:
  explicit Keeper(const std::string& name)
      : subscriber_(ShareMotionDomain::instance(MotionChannel::kControl).node()->subscriber(name)) {
    subscriber_->setCallback([this](const std::shared_ptr<SharedMemBuffer>& chunk) {
      const std::lock_guard lock(mutex_);
      if (keeping_) kept_.push_back(chunk);
    });
    EXPECT_TRUE(subscriber_->setMode(SharedMemSubscriber::kOn));
  }
  ~Keeper() { static_cast<void>(subscriber_->setMode(SharedMemSubscriber::kOff)); }
  std::size_t kept() {
    const std::lock_guard lock(mutex_);
    return kept_.size();
  }
  void letGo() {
    const std::lock_guard lock(mutex_);
    keeping_ = false;
    kept_.clear();
  }

 private:
  std::mutex mutex_;  // guards kept_ and keeping_
  std::vector<std::shared_ptr<SharedMemBuffer>> kept_;
  bool keeping_ = true;
  std::shared_ptr<SharedMemSubscriber> subscriber_;
};

/// Both channels of this process, in one domain, and a pool of larger chunks, as another process's
/// publisher may have.
class ShmChannels : public testing::Test {
 protected:
  static void SetUpTestSuite() {
    ASSERT_TRUE(SharedMemDomain::instance("c")->declarePools({{"big", kChunkSize, kChunks}}));
    for (const Voice& voice : kVoices) {
      ASSERT_TRUE(ShareMotionDomain::instance(voice.channel)
                      .init(config({{"domain", "c"}, {"node", "n"}, {"poolSize", kChunks}})));
    }
  }
  /// Publishes a chunk of that size, of which each byte is `fill`.
  static bool publishRaw(Pexal::PBase::SharedMemPublisher& publisher, std::uint32_t size,
                         int fill) {
    auto chunk = publisher.loan(size, 0);
    if (chunk == nullptr) return false;
    std::memset(chunk->payload(), fill, size);
    return publisher.publish(std::move(chunk));
  }

  scripted::CapturedLog log_;
};

TEST_F(ShmChannels, AWriterIsInitialisedOpenedAndClosedOnce) {
  ShareMotionCtrlWriter writer;
  EXPECT_FALSE(writer.open() || writer.write({}, kRetries));
  for (const Json::Value& other :
       {Json::Value(), Json::Value("c"), config({}), config({{"name", 1}}), channel("a/b")}) {
    EXPECT_FALSE(writer.init(other)) << other;
  }
  EXPECT_TRUE(writer.init(channel("c")));
  EXPECT_FALSE(writer.init(channel("c")));
  EXPECT_TRUE(writer.open() && writer.open());
  EXPECT_TRUE(writer.write({}, kRetries));
  ShareMotionCtrlWriter second;
  EXPECT_FALSE(second.init(channel("c"))) << "the first one lives";
  writer.close();
  writer.close();
  EXPECT_FALSE(writer.init(channel("c")) || writer.open() || writer.write({}, kRetries));
  EXPECT_TRUE(second.init(channel("c")) && second.open() && second.write({}, kRetries));
}

TEST_F(ShmChannels, AWriteGivesUpAfterItsAttemptsWithoutALineAndGoesOnWhenAChunkIsFree) {
  ShareMotionCtrlWriter writer;
  ASSERT_TRUE(writer.init(channel("full")) && writer.open());
  Keeper keeper("full");
  ASSERT_TRUE(waitUntil([&] {  // the reader may miss the first records
    static_cast<void>(writer.write({}, -1));
    return keeper.kept() == kChunks;
  }));
  log_.take();
  {
    const Pexal::PBase::VirtualClock clock;
    for (const auto& [retries, pauses] : {std::pair(-1, 0), {0, 1}, {kRetries, 6}}) {
      const auto before = CTime::getCurrentMilliSecond();
      EXPECT_FALSE(writer.write({}, retries));
      EXPECT_EQ(CTime::getCurrentMilliSecond() - before, static_cast<std::uint64_t>(pauses));
    }
  }
  EXPECT_THAT(log_.texts(4, "ShareMotionAction"), IsEmpty());
  keeper.letGo();
  EXPECT_TRUE(writer.write({}, -1));
}

TEST_F(ShmChannels, ReadersRefuseShortRecordsAndTakeLongerOnes) {
  const auto reader = std::make_shared<ShareMotionCtrlReader>();
  EXPECT_FALSE(reader->initial([](const auto*) {}));
  EXPECT_FALSE(reader->init(config({})));
  ASSERT_TRUE(reader->init(channel("ctrl")));
  EXPECT_FALSE(reader->init(channel("ctrl")));
  std::atomic<std::uint32_t> first{0};
  std::atomic<std::uint32_t> last{0};
  ASSERT_TRUE(reader->initial([&](const ShareLowLevelMotionCtrlData* record) {
    first = record->kind;
    last = record->padding;
  }));
  const auto publisher =
      ShareMotionDomain::instance(MotionChannel::kControl).node()->publisher("ctrl");
  const auto arrives = [&](std::uint32_t size, int fill) {
    const std::uint32_t word = 0x01010101U * static_cast<unsigned>(fill);
    return publishRaw(*publisher, size, fill) &&
           waitUntil([&] { return first == word && last == word; });
  };
  EXPECT_TRUE(arrives(472, 1));
  EXPECT_TRUE(publishRaw(*publisher, 471, 2) && publishRaw(*publisher, 0, 3));
  EXPECT_TRUE(arrives(473, 4) && arrives(kChunkSize, 5));
  EXPECT_THAT(log_.take(), ElementsAre(LogLine{4, "invalid motion ctrl data size 471\n"},
                                       LogLine{4, "invalid motion ctrl data size 0\n"}));

  std::atomic<int> others{0};
  ASSERT_TRUE(reader->initial([&](const auto*) { ++others; }));
  EXPECT_TRUE(publishRaw(*publisher, 472, 6) && waitUntil([&] { return others == 1; }));
  reader->close();
  EXPECT_FALSE(reader->initial([](const auto*) {}));
  EXPECT_TRUE(publishRaw(*publisher, 472, 7));
  EXPECT_EQ(others, 1);
  EXPECT_EQ(first, 0x05050505U);

  const auto dataReader = std::make_shared<ShareMotionDataReader>();
  ASSERT_TRUE(dataReader->init(channel("dataSizes")));
  std::atomic<int> whole{0};
  ASSERT_TRUE(dataReader->initial([&](const auto*) { ++whole; }));
  const auto data =
      ShareMotionDomain::instance(MotionChannel::kData).node()->publisher("dataSizes");
  EXPECT_TRUE(publishRaw(*data, 779, 8) && publishRaw(*data, 780, 9));
  EXPECT_TRUE(waitUntil([&] { return whole == 1; }));
  EXPECT_THAT(log_.take(), ElementsAre(LogLine{4, "invalid motion data size 779\n"}));
}

TEST_F(ShmChannels, DataRecordsArriveByteForByteAlsoAtAReaderThatEndsInsideItsCallback) {
  auto reader = std::make_shared<ShareMotionDataReader>();
  ASSERT_TRUE(reader->init(channel("data")));
  std::vector<std::uint8_t> taken;
  std::atomic<bool> ended{false};
  ASSERT_TRUE(reader->initial([&](const ShareLowLevelMotionData* record) {
    const auto* const bytes = reinterpret_cast<const std::uint8_t*>(record);
    taken.assign(bytes, bytes + sizeof *record);
    reader.reset();
    ended = true;
  }));
  ShareMotionDataPublisher publisher;
  ASSERT_TRUE(publisher.init(channel("data")) && publisher.open());
  orvane::RobotSdk::ObservedMotionRecord observed;
  std::memset(&observed, 0x5A, sizeof observed);
  ASSERT_TRUE(publisher.publishMotionData(0x04030201, observed, kRetries));
  ASSERT_TRUE(waitUntil([&] { return ended.load(); }));

  std::vector<std::uint8_t> wanted(780, 0);
  for (const std::uint8_t i : {1, 2, 3, 4}) wanted[i - 1] = i;
  wanted[8] = 1;
  std::fill_n(wanted.begin() + 9, 9, 0xFF);
  std::fill_n(wanted.begin() + 66, 712, 0x5A);
  EXPECT_EQ(taken, wanted);
  EXPECT_TRUE(publisher.publishMotionData(1, observed, kRetries)) << "nobody is left to take it";
}

}  // namespace
