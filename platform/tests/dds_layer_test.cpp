#include "dds_support.h"

using namespace platform_test;
using dds::core::Duration;
using dds::core::cond::ConditionSeq;
using dds::core::cond::GuardCondition;
using dds::core::cond::StatusCondition;
using dds::core::cond::WaitSet;
using dds::core::status::StatusMask;
using namespace dds::core::policy;
using testing::AllOf;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

namespace {

constexpr Duration kMoment(0, 1'000'000);
constexpr Duration kLong(10, 0);

class DdsLayer : public testing::Test {
 protected:
  dds::sub::DataReader<Numbered> reader() {
    dds::sub::qos::DataReaderQos qos;
    qos << Reliability::Reliable() << History::KeepAll();
    return {dds::sub::Subscriber(participant_), topic_, qos};
  }
  dds::pub::DataWriter<Numbered> writer() { return {dds::pub::Publisher(participant_), topic_}; }
  /// The numbers of the samples taken until there are `count`.
  static std::vector<std::uint64_t> take(dds::sub::DataReader<Numbered>& from, std::size_t count) {
    std::vector<std::uint64_t> numbers;
    EXPECT_TRUE(waitUntil([&] {
      for (const auto sample : from.take()) {
        if (sample.info().valid()) numbers.push_back(sample.data().number);
      }
      return numbers.size() >= count;
    }));
    return numbers;
  }

  dds::domain::DomainParticipant participant_{kDomain};
  dds::topic::Topic<Numbered> topic_{participant_, "numbers"};
};

TEST_F(DdsLayer, AnEntityGoesWithItsLastReferenceAndKeepsWhatItIsMadeFrom) {
  auto out = writer();
  auto first = std::make_unique<dds::sub::DataReader<Numbered>>(reader());
  auto second = std::make_unique<dds::sub::DataReader<Numbered>>(*first);
  EXPECT_EQ(*first, *second);
  first.reset();
  topic_ = dds::core::null;
  participant_ = dds::core::null;
  ASSERT_TRUE(waitUntil([&] { return out.matched_subscriptions() == 1; }));
  out.write(numbered(3));
  EXPECT_THAT(take(*second, 1), ElementsAre(3));
  second.reset();
  EXPECT_TRUE(waitUntil([&] { return out.matched_subscriptions() == 0; }));
}

TEST_F(DdsLayer, AWaitSetWakesOnSamplesAndGuards) {
  auto in = reader();
  auto out = writer();
  const dds::sub::cond::ReadCondition samples(in);
  GuardCondition guard;
  WaitSet waitSet;
  waitSet += samples;
  waitSet += guard;
  waitSet += guard;  // once more changes nothing
  EXPECT_EQ(waitSet.conditions().size(), 2U);
  EXPECT_THAT(waitSet.wait(kMoment), IsEmpty()) << "a time-out is no error";

  out.write(numbered(1));
  EXPECT_THAT(waitSet.wait(kLong), ElementsAre(samples));
  EXPECT_THAT(take(in, 1), ElementsAre(1));

  const auto trigger = startThread([guard]() mutable { guard.trigger_value(true); });
  ConditionSeq triggered;
  EXPECT_THAT(waitSet.wait(triggered, kLong), ElementsAre(guard));
  guard.trigger_value(false);
  EXPECT_THAT(waitSet.wait(triggered, kMoment), IsEmpty());

  EXPECT_TRUE(waitSet.detach_condition(guard));
  EXPECT_FALSE(waitSet.detach_condition(guard));
  guard.trigger_value(true);
  EXPECT_THAT(waitSet.wait(kMoment), IsEmpty());
}

TEST_F(DdsLayer, StatusesAreNumberedAsInTheStandard) {
  EXPECT_EQ((StatusMask(1U << 13) | StatusMask(1U << 7) | StatusMask(1U << 3)).to_ddsc(),
            DDS_PUBLICATION_MATCHED_STATUS | DDS_SAMPLE_LOST_STATUS)
      << "bit 3 names no status";
  auto in = reader();
  StatusCondition condition(in);
  condition.enabled_statuses(StatusMask(0x400));
  WaitSet waitSet;
  waitSet += condition;
  auto out = writer();  // a match alone isn't enabled
  EXPECT_THAT(waitSet.wait(kMoment), IsEmpty());
  out.write(numbered(1));
  EXPECT_THAT(waitSet.wait(kLong), ElementsAre(condition));
}

TEST_F(DdsLayer, ErrorsNameTheOperationAndTheCause) {
  const auto textOf = [](const auto& operation) -> std::string {
    try {
      operation();
    } catch (const dds::core::Exception& error) {
      return error.what();
    }
    return "no exception";
  };
  EXPECT_THAT(textOf([] { dds::domain::DomainParticipant nowhere(300); }),
              AllOf(HasSubstr("dds_create_participant(300)"), HasSubstr("Error")));
  const auto noHistory = dds::pub::qos::DataWriterQos() << History::KeepLast(0);
  const dds::pub::Publisher group(participant_);
  EXPECT_THAT(textOf([&] { dds::pub::DataWriter<Numbered>(group, topic_, noHistory); }),
              AllOf(HasSubstr("dds_create_writer(numbers)"), HasSubstr("Bad Parameter")));

  auto in = reader();
  auto copy = in;
  in.close();
  EXPECT_THROW(copy.take(), dds::core::AlreadyClosedError);
  dds::sub::DataReader<Numbered> none = dds::core::null;
  EXPECT_THROW(none.take(), dds::core::NullReferenceError);
  auto tooSmall = dds::topic::typeSupport<Numbered>();
  tooSmall.sampleSize = 4;
  EXPECT_THROW(dds::topic::AnyTopic(participant_, "small", tooSmall),
               dds::core::InvalidArgumentError);
}

TEST(DdsQos, QosIsCopiedByValue) {
  dds::pub::qos::DataWriterQos qos;
  EXPECT_EQ(qos.policy<Reliability>().kind(), ReliabilityKind::RELIABLE);
  qos << Reliability::BestEffort() << History::KeepLast(7) << Durability::TransientLocal()
      << UserData({1, 2, 3}) << DataRepresentation({DataRepresentationId::XCDR2});
  const dds::pub::qos::DataWriterQos copy = qos;
  qos << History::KeepAll();
  EXPECT_EQ(qos.policy<History>().kind(), HistoryKind::KEEP_ALL);
  EXPECT_EQ(copy.policy<Reliability>().kind(), ReliabilityKind::BEST_EFFORT);
  EXPECT_EQ(copy.policy<History>().depth(), 7);
  EXPECT_EQ(copy.policy<Durability>().kind(), DurabilityKind::TRANSIENT_LOCAL);
  EXPECT_THAT(copy.policy<UserData>().value(), ElementsAre(1, 2, 3));
  EXPECT_THAT(copy.policy<DataRepresentation>().value(), ElementsAre(DataRepresentationId::XCDR2));
  dds::sub::qos::SubscriberQos group;
  group << Partition(std::vector<std::string>{"a", "b"});
  EXPECT_THAT(group.policy<Partition>().name(), ElementsAre("a", "b"));
}

}  // namespace
