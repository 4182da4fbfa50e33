#include <gmock/gmock.h>

#include "dds_support.h"

using namespace dds_test;
using dds::core::Duration;
using dds::core::cond::ConditionSeq;
using dds::core::cond::GuardCondition;
using dds::core::cond::StatusCondition;
using dds::core::cond::WaitSet;
using dds::core::policy::DataRepresentation;
using dds::core::policy::DataRepresentationId;
using dds::core::policy::Durability;
using dds::core::policy::DurabilityKind;
using dds::core::policy::History;
using dds::core::policy::HistoryKind;
using dds::core::policy::Partition;
using dds::core::policy::Reliability;
using dds::core::policy::ReliabilityKind;
using dds::core::policy::UserData;
using dds::core::status::StatusMask;
using testing::AllOf;
using testing::ElementsAre;
using testing::HasSubstr;

namespace {

class DdsLayer : public testing::Test {
 protected:
  dds::sub::DataReader<Numbered> reader(const dds::sub::qos::SubscriberQos& group = {}) {
    dds::sub::qos::DataReaderQos qos;
    qos << Reliability::Reliable() << History::KeepAll();
    return {dds::sub::Subscriber(participant_, group), topic_, qos};
  }
  dds::pub::DataWriter<Numbered> writer(const dds::pub::qos::PublisherQos& group = {}) {
    return {dds::pub::Publisher(participant_, group), topic_};
  }
  /// The numbers of the samples taken until there are `count`.
  static std::vector<std::uint64_t> take(dds::sub::DataReader<Numbered>& from, std::size_t count) {
    std::vector<std::uint64_t> numbers;
    eventually([&] {
      for (const auto sample : from.take()) {
        if (sample.info().valid()) numbers.push_back(sample.data().number);
      }
      return numbers.size() >= count;
    });
    return numbers;
  }

  dds::domain::DomainParticipant participant_{kDomain};
  dds::topic::Topic<Numbered> topic_{participant_, "numbers"};
};

TEST_F(DdsLayer, SamplesAreReadAndTaken) {
  auto in = reader();
  auto out = writer();
  for (std::uint64_t number = 1; number <= 100; ++number) out.write(numbered(number));
  out.wait_for_acknowledgments(Duration(5, 0));

  EXPECT_EQ(in.read().length(), in.read().length()) << "reading leaves the samples there";
  const auto numbers = take(in, 100);  // more than one loan
  ASSERT_EQ(numbers.size(), 100U);
  EXPECT_EQ(numbers.front(), 1U);
  EXPECT_EQ(numbers.back(), 100U);
  EXPECT_EQ(in.take().length(), 0U);

  out.write(numbered(7));
  Numbered into{};
  dds::sub::SampleInfo info;
  ASSERT_TRUE(eventually([&] { return in.take_into(&into, info); }));
  EXPECT_EQ(into.number, 7U);
  EXPECT_GT(info.timestamp(), 0);
}

TEST_F(DdsLayer, PartitionsKeepTrafficApart) {
  const auto group = [](const char* name) {
    return dds::sub::qos::SubscriberQos() << Partition(std::string(name));
  };
  auto here = reader(group("robot-1"));
  auto there = reader(group("robot-2"));
  auto out = writer(dds::pub::qos::PublisherQos() << Partition(std::string("robot-1")));
  out.write(numbered(1));
  EXPECT_THAT(take(here, 1), ElementsAre(1));
  EXPECT_EQ(out.matched_subscriptions(), 1U);
  EXPECT_EQ(there.matched_publications(), 0U);
}

TEST_F(DdsLayer, AnEntityGoesWithItsLastReference) {
  auto out = writer();
  auto first = std::make_unique<dds::sub::DataReader<Numbered>>(reader());
  auto second = std::make_unique<dds::sub::DataReader<Numbered>>(*first);
  EXPECT_EQ(*first, *second);
  ASSERT_TRUE(eventually([&] { return out.matched_subscriptions() == 1; }));
  first.reset();
  EXPECT_EQ(second->take().length(), 0U);  // still there
  second.reset();
  EXPECT_TRUE(eventually([&] { return out.matched_subscriptions() == 0; }));
}

TEST_F(DdsLayer, WhatIsMadeFromAParticipantKeepsItAlive) {
  auto in = reader();
  auto out = writer();
  topic_ = dds::core::null;
  participant_ = dds::core::null;
  out.write(numbered(3));
  EXPECT_THAT(take(in, 1), ElementsAre(3));
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
  EXPECT_THAT(waitSet.wait(Duration(0, 1'000'000)), ElementsAre()) << "a time-out is no error";

  out.write(numbered(1));
  EXPECT_THAT(waitSet.wait(Duration(10, 0)), ElementsAre(samples));
  EXPECT_THAT(take(in, 1), ElementsAre(1));

  Pexal::PBase::CThreadLite trigger("trigger", 0, 0, 0,
                                    [guard]() mutable { guard.trigger_value(true); });
  ASSERT_TRUE(trigger.createThread());
  ConditionSeq triggered;
  EXPECT_THAT(waitSet.wait(triggered, Duration(10, 0)), ElementsAre(guard));
  EXPECT_TRUE(guard.trigger_value());
  guard.trigger_value(false);
  EXPECT_THAT(waitSet.wait(triggered, Duration(0, 1'000'000)), ElementsAre());

  EXPECT_TRUE(waitSet.detach_condition(guard));
  EXPECT_FALSE(waitSet.detach_condition(guard));
  guard.trigger_value(true);
  EXPECT_THAT(waitSet.wait(Duration(0, 1'000'000)), ElementsAre());
}

TEST_F(DdsLayer, StatusesAreNumberedAsInTheStandard) {
  EXPECT_EQ(StatusMask::data_available().to_ulong(), 0x400U);
  EXPECT_EQ(StatusMask(0x400).to_ddsc(), DDS_DATA_AVAILABLE_STATUS);
  EXPECT_EQ((StatusMask::subscription_matched() | StatusMask::sample_lost()).to_ddsc(),
            DDS_SUBSCRIPTION_MATCHED_STATUS | DDS_SAMPLE_LOST_STATUS);
  EXPECT_EQ(StatusMask(1U << 3).to_ddsc(), 0U) << "names no status";

  auto in = reader();
  StatusCondition condition(in);
  condition.enabled_statuses(StatusMask(0x400));
  WaitSet waitSet;
  waitSet += condition;
  auto out = writer();  // a match alone isn't enabled
  EXPECT_THAT(waitSet.wait(Duration(0, 1'000'000)), ElementsAre());
  out.write(numbered(1));
  EXPECT_THAT(waitSet.wait(Duration(10, 0)), ElementsAre(condition));
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

  const auto noHistory = dds::pub::qos::DataWriterQos() << History::KeepLast(0);
  const dds::pub::Publisher group(participant_);
  EXPECT_THAT(textOf([&] { dds::pub::DataWriter<Numbered>(group, topic_, noHistory); }),
              AllOf(HasSubstr("dds_create_writer(numbers)"), HasSubstr("Bad Parameter")));
}

TEST(DdsQos, KeepsWhatWasPutIn) {
  dds::pub::qos::DataWriterQos qos;
  EXPECT_EQ(qos.policy<Reliability>().kind(), ReliabilityKind::RELIABLE);
  qos << Reliability::BestEffort() << History::KeepLast(7) << Durability::TransientLocal()
      << UserData({1, 2, 3}) << DataRepresentation({DataRepresentationId::XCDR2});
  dds::pub::qos::DataWriterQos copy = qos;
  qos << History::KeepAll();

  EXPECT_EQ(copy.policy<Reliability>().kind(), ReliabilityKind::BEST_EFFORT);
  EXPECT_EQ(copy.policy<History>().kind(), HistoryKind::KEEP_LAST);
  EXPECT_EQ(copy.policy<History>().depth(), 7);
  EXPECT_EQ(copy.policy<Durability>().kind(), DurabilityKind::TRANSIENT_LOCAL);
  EXPECT_THAT(copy.policy<UserData>().value(), ElementsAre(1, 2, 3));
  EXPECT_THAT(copy.policy<DataRepresentation>().value(), ElementsAre(DataRepresentationId::XCDR2));
  EXPECT_EQ(qos.policy<History>().kind(), HistoryKind::KEEP_ALL);
  EXPECT_EQ(dds::sub::qos::DataReaderQos().policy<Reliability>().kind(),
            ReliabilityKind::BEST_EFFORT);

  dds::sub::qos::SubscriberQos group;
  group << Partition(std::vector<std::string>{"a", "b"});
  EXPECT_THAT(group.policy<Partition>().name(), ElementsAre("a", "b"));
}

}  // namespace
