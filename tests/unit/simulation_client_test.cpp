// The simulation client over real DDS, against a scripted peer in this process: what one side
// writes is in the other's reader when the write returns, so that simulated time can judge it.

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <atomic>
#include <climits>
#include <cstring>
#include <dds/dds.hpp>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "Environment.h"
#include "WaitUntil.h"
#include "lowlevel/LowLevelFactory.h"
#include "lowlevel/SimulationCommands.h"
#include "lowlevel/SimulationLowLevelImpl.h"
#include "lowlevel/SimulationTransport.h"
#include "msg_samples.h"
#include "observed/ObservedRecords.h"
#include "orvane/RobotSdk/RobotSdk.h"
#include "pbase/CSemaphore.h"
#include "pbase/CThread.h"
#include "pbase/CTime.h"
#include "pbase/VirtualClock.h"
#include "pdbus/IDDSFactory.h"

namespace {

using namespace orvane::RobotSdk;
using namespace dds::core::policy;
using orvane::msg::dds_::MotionCtrl_;
using orvane::msg::dds_::MotionObserved_;
using orvane::msg::dds_::RemoteControl_;
using orvane_test::Environment;
using orvane_test::Variables;
using orvane_test::waitUntil;
using Pexal::PBase::CSemaphore;
using Pexal::PBase::CThreadLite;
using Pexal::PBase::CTime;
using Pexal::PBase::VirtualClock;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::Pair;

using Client = std::shared_ptr<IMotionLowLevelClient>;
using Told = std::vector<std::pair<std::uint32_t, std::uint32_t>>;

constexpr std::uint32_t kDomain = 42;

/// The simulator's side: offers both kinds of reliability, asks for either.
class Robot {
 public:
  explicit Robot(std::uint32_t domain = kDomain, Reliability asked = Reliability::BestEffort())
      : participant_(domain),
        observed(writer<MotionObserved_>("motion/observed")),
        remoteControl(writer<RemoteControl_>("motion/trc")),
        commands_({dds::sub::Subscriber(participant_),
                   dds::topic::Topic<MotionCtrl_>(participant_, "motion/control"),
                   dds::sub::qos::DataReaderQos() << asked << History::KeepLast(8)}) {}

  [[nodiscard]] std::optional<MotionCtrl_> takeCommand() {
    MotionCtrl_ sample{};
    dds::sub::SampleInfo info;
    if (!commands_.take_into(&sample, info) || !info.valid()) return std::nullopt;
    return sample;
  }
  [[nodiscard]] std::uint32_t commandWriters() const { return commands_.matched_publications(); }

 private:
  template <class T>
  [[nodiscard]] dds::pub::DataWriter<T> writer(const std::string& topic) {
    return {dds::pub::Publisher(participant_), dds::topic::Topic<T>(participant_, topic),
            dds::pub::qos::DataWriterQos() << Reliability::Reliable()};
  }

  dds::domain::DomainParticipant participant_;

 public:
  dds::pub::DataWriter<MotionObserved_> observed;
  dds::pub::DataWriter<RemoteControl_> remoteControl;

 private:
  dds::sub::DataReader<MotionCtrl_> commands_;
};

MotionObserved_ observedSample(std::int32_t motorNum = 12) {
  auto sample = samples::patterned<MotionObserved_>();
  sample.motorNum = motorNum;
  return sample;
}

LowLevelMotorRecord commandOf(std::uint32_t motors) {
  auto record = samples::patterned<LowLevelMotorRecord>();
  record.motorNum = motors;
  return record;
}

/// Remembers what the state callback was told, and that it was told on this thread.
std::shared_ptr<Told> listenTo(IMotionLowLevelClient& client) {
  auto told = std::make_shared<Told>();
  client.setStateCallback(
      [told, caller = std::this_thread::get_id()](std::uint32_t state, std::uint32_t error) {
        EXPECT_EQ(std::this_thread::get_id(), caller);
        told->emplace_back(state, error);
      });
  return told;
}

/// Another process's domain, as DDS sees it, that can be cut off.
class FarDomain {
 public:
  static constexpr std::uint32_t kNumber = 3;

  FarDomain()
      : domain_(dds_create_domain(
            kNumber,
            "<CycloneDDS><Domain Id=\"3\"><General><Interfaces><NetworkInterface name=\"lo\" "
            "multicast=\"true\"/></Interfaces></General><Discovery><ExternalDomainId>42"
            "</ExternalDomainId></Discovery></Domain></CycloneDDS>")) {
    EXPECT_GT(domain_, 0);
  }
  FarDomain(const FarDomain&) = delete;
  FarDomain& operator=(const FarDomain&) = delete;
  ~FarDomain() { dds_delete(domain_); }

  void cutOff() const {
    EXPECT_EQ(dds_domain_set_deafmute(domain_, true, true, DDS_INFINITY), DDS_RETCODE_OK);
  }

 private:
  const dds_entity_t domain_;
};

/// Pulls the domain from under whoever is in it.
void deleteParticipant() {
  dds_entity_t participant = 0;
  ASSERT_EQ(dds_lookup_participant(kDomain, &participant, 1), 1);
  ASSERT_EQ(dds_delete(participant), DDS_RETCODE_OK);
}

int times(const std::string& line, const std::string& text) {
  int count = 0;
  for (std::size_t at = text.find(line); at != std::string::npos; at = text.find(line, at + 1)) {
    ++count;
  }
  return count;
}

/// What goes to standard error while `act` runs.
template <class Act>
std::string standardErrorOf(Act&& act) {
  testing::internal::CaptureStderr();
  act();
  return testing::internal::GetCapturedStderr();
}

class SimulationClient : public testing::Test {
 protected:
  /// A connected client whose thread has begun to sleep.
  [[nodiscard]] Client connected() {
    auto client = makeSimulationLowLevelClient();
    EXPECT_TRUE(client->connect(500, 0));
    clock.advance(0);
    return client;
  }
  [[nodiscard]] Client prepared() {
    auto client = connected();
    EXPECT_TRUE(client->setSessionFlag(true));
    return client;
  }
  static std::uint64_t nowMs() { return CTime::getCurrentMilliSecond(); }

  VirtualClock clock;
};

// --- settings ---

TEST(SimulationSettings, ComeFromTheEnvironment) {
  using lowlevel::SimulationSettings;
  const auto defaults = SimulationSettings::fromEnvironment();
  EXPECT_EQ(defaults.domain, 42);
  EXPECT_EQ(defaults.controlTopic, "motion/control");
  EXPECT_EQ(defaults.observedTopic, "motion/observed");
  EXPECT_EQ(defaults.trcTopic, "motion/trc");
  EXPECT_EQ(defaults.depth, 1);
  EXPECT_EQ(defaults.staleMs, 200U);
  const struct {
    const char* text;
    long domain;
    std::int32_t depth;
    std::uint64_t staleMs;
  } cases[] = {{"", 42, 1, 200},  {"0", 0, 1, 1},
               {"-3", -3, 1, 1},  {"7x", 7, 7, 7},
               {"deep", 0, 1, 1}, {"99999999999999999999", LONG_MAX, INT32_MAX, LONG_MAX}};
  for (const auto& [text, domain, depth, staleMs] : cases) {
    SCOPED_TRACE(text);
    const Environment environment(Variables{{"ORVANE_MOTION_DDS_DOMAIN", text},
                                            {"ORVANE_MOTION_DDS_DEPTH", text},
                                            {"ORVANE_MOTION_TRC_STALE_MS", text}});
    const auto settings = SimulationSettings::fromEnvironment();
    EXPECT_EQ(settings.domain, domain);
    EXPECT_EQ(settings.depth, depth);
    EXPECT_EQ(settings.staleMs, staleMs);
  }
}

TEST(SimulationSettings, DepthAndReliabilityReachAllThreeEndpoints) {
  const std::string names[] = {"CONTROL", "OBSERVED", "TRC"};
  for (const std::string word : {"RELIABLE", "Reliable"}) {
    for (const std::string& name : names) {
      SCOPED_TRACE(name + "=" + word);
      const Environment environment(Variables{{"ORVANE_MOTION_" + name + "_RELIABILITY", word},
                                              {"ORVANE_MOTION_DDS_DEPTH", "3"}});
      const auto transport =
          lowlevel::SimulationTransport::open(lowlevel::SimulationSettings::fromEnvironment());
      const dds_entity_t entities[] = {transport->control.get_ddsc_entity(),
                                       transport->observed.get_ddsc_entity(),
                                       transport->remoteControl.get_ddsc_entity()};
      for (std::size_t i = 0; i < 3; ++i) {
        const std::unique_ptr<dds_qos_t, void (*)(dds_qos_t*)> qos(dds_create_qos(),
                                                                   dds_delete_qos);
        ASSERT_EQ(dds_get_qos(entities[i], qos.get()), DDS_RETCODE_OK);
        const bool expected = word == "RELIABLE" && names[i] == name;
        dds_reliability_kind_t kind{};
        dds_duration_t blocking = -1;
        ASSERT_TRUE(dds_qget_reliability(qos.get(), &kind, &blocking));
        EXPECT_EQ(kind, expected ? DDS_RELIABILITY_RELIABLE : DDS_RELIABILITY_BEST_EFFORT);
        EXPECT_EQ(blocking, expected ? 0 : DDS_MSECS(100));
        EXPECT_EQ(History::from(qos.get()).kind(), HistoryKind::KEEP_LAST);
        EXPECT_EQ(History::from(qos.get()).depth(), 3);
      }
    }
  }
}

// --- observing ---

TEST_F(SimulationClient, BuildsTheRecordByteForByte) {
  Robot robot;
  const auto client = connected();
  const auto remoteControl = samples::patterned<RemoteControl_>(3);
  auto sample = observedSample();
  sample.motor[2].header.limbsNo = 0x10002;
  ObservedMotionRecord record;
  robot.observed.write(sample);
  clock.advance(1);
  ASSERT_TRUE(client->requireObserved(&record, 0));
  auto expected = toMotionRecord(sample);
  EXPECT_EQ(std::memcmp(&record, &expected, sizeof record), 0) << "no remote control yet";

  robot.observed.write(sample);
  robot.remoteControl.write(remoteControl);
  clock.advance(1);
  ASSERT_TRUE(client->requireObserved(&record, 0));
  auto* const bytes = reinterpret_cast<unsigned char*>(&expected);
  const auto* const from = reinterpret_cast<const unsigned char*>(&remoteControl);
  bytes[80] = 1;
  std::memcpy(bytes + 84, from, 8);
  std::memcpy(bytes + 92, from + 16, 16);
  std::memcpy(bytes + 108, from + 32, 24);
  EXPECT_EQ(std::memcmp(&record, &expected, sizeof record), 0);
}

TEST_F(SimulationClient, IncludesARemoteControlSampleUpToItsLastMillisecond) {
  const std::pair<const char*, std::uint32_t> cases[] = {{"", 200}, {"50", 50}, {"0", 1}};
  for (const auto& [text, staleMs] : cases) {
    SCOPED_TRACE(text);
    const Environment environment(Variables{{"ORVANE_MOTION_TRC_STALE_MS", text}});
    Robot robot;
    const auto client = connected();
    robot.remoteControl.write(RemoteControl_{});
    clock.advance(1);  // received now
    clock.advance(staleMs - 1);
    for (const bool included : {true, false}) {
      robot.observed.write(observedSample());
      clock.advance(1);
      ObservedMotionRecord record;
      ASSERT_TRUE(client->requireObserved(&record, 0));
      EXPECT_EQ(record.remoteControl.included, included ? 1 : 0);
    }
    EXPECT_EQ(client->getLastError(), 0U);
  }
}

TEST_F(SimulationClient, HandsOutEachSampleOnceAndTheNewest) {
  Robot robot;
  const auto client = connected();
  ObservedMotionRecord record;
  EXPECT_FALSE(client->requireObserved(&record, 0));
  for (const std::int32_t motors : {1, 2, 3}) {
    robot.observed.write(observedSample(motors));
    clock.advance(1);
  }
  EXPECT_TRUE(client->requireObserved(&record, 0));
  EXPECT_EQ(std::int32_t{record.motorNum}, 3);

  std::uint64_t begun = nowMs();
  EXPECT_FALSE(client->requireObserved(&record, 250));
  EXPECT_EQ(nowMs() - begun, 250U);
  EXPECT_EQ(client->getLastError(), 0U);

  CThreadLite writing("writing", 0, 0, 0, [&] {
    Pexal::PBase::CThread::sleep(30);
    robot.observed.write(observedSample(4));
  });
  begun = nowMs();
  ASSERT_TRUE(writing.createThread());
  EXPECT_TRUE(client->requireObserved(&record, 1000));
  EXPECT_THAT(nowMs() - begun, testing::AnyOf(30U, 31U)) << "it looks once a millisecond";
  EXPECT_EQ(std::int32_t{record.motorNum}, 4);

  EXPECT_FALSE(client->requireObserved(nullptr, 1000));
  EXPECT_EQ(client->getLastError(), 10U);
  EXPECT_EQ(client->getLastError(), 10U) << "a plain read";
}

TEST_F(SimulationClient, HasNoSensorsAndTwelveMotors) {
  const auto client = makeSimulationLowLevelClient();
  auto sensor = samples::patterned<ObservedSensorRecord>();
  EXPECT_FALSE(client->requireSensor(&sensor, 1000));
  const ObservedSensorRecord zero{};
  EXPECT_EQ(std::memcmp(&sensor, &zero, sizeof sensor), 0);
  EXPECT_EQ(client->getLastError(), 0U);
  EXPECT_FALSE(client->requireSensor(nullptr, 0));
  EXPECT_EQ(client->getLastError(), 10U);
  EXPECT_FALSE(client->restoreMotionControlMode(1000));
  EXPECT_EQ(client->createMediaBusClient(), nullptr);

  auto layout = samples::patterned<MotorLayout>();
  ASSERT_TRUE(client->getMotorLayout(&layout, 0));
  MotorLayout expected{};
  for (const char* limb : {"FL", "FR", "RL", "RR"}) {
    for (const char* joint : {"hip", "thigh", "calf"}) {
      auto& entry = expected.motors[expected.motorNum];
      entry.limbNo = static_cast<std::uint16_t>(expected.motorNum / 3);
      entry.jointNo = static_cast<std::uint16_t>(expected.motorNum % 3);
      std::strcpy(entry.name, (std::string(limb) + "_" + joint).c_str());
      ++expected.motorNum;
    }
  }
  EXPECT_EQ(std::memcmp(&layout, &expected, sizeof layout), 0);
}

// --- commanding ---

TEST_F(SimulationClient, CopiesTheMotorsThatTheCountCovers) {
  Robot robot;
  const auto client = prepared();
  for (const std::uint32_t motors : {1U, 16U}) {
    SCOPED_TRACE(motors);
    auto record = commandOf(motors);
    record.motor[0].limbsNo = 0xFFFF;
    const LowLevelTrailer trailer{};
    ASSERT_TRUE(client->publishMotorAction(&record, motors == 1 ? &trailer : nullptr));
    MotionCtrl_ expected{};
    expected.motorNum = motors;
    expected.timestamp = CTime::getCurrentMicroSecond();
    for (std::uint32_t i = 0; i < motors; ++i) {
      std::memcpy(&expected.motor[i], &record.motor[i], 20);  // the five floats
      expected.motor[i].header = {record.motor[i].limbsNo, record.motor[i].jointNo};
    }
    const auto sent = robot.takeCommand();
    ASSERT_TRUE(sent);
    EXPECT_EQ(std::memcmp(&*sent, &expected, sizeof expected), 0);
  }
  EXPECT_EQ(client->getLastError(), 0U);
}

TEST_F(SimulationClient, RefusesCommandsThatItShouldNotSend) {
  Robot robot;
  const auto client = connected();
  const auto good = commandOf(12);
  const auto expectRefused = [&](const LowLevelMotorRecord* record, std::uint32_t code) {
    EXPECT_FALSE(client->publishMotorAction(record, nullptr));
    EXPECT_EQ(client->getLastError(), code);
    EXPECT_FALSE(client->publishMaxTorque(record));
    EXPECT_EQ(client->getLastError(), code);
  };
  expectRefused(&good, 9);
  EXPECT_FALSE(client->emergencyStop(100));
  EXPECT_EQ(client->getLastError(), 8U);
  ASSERT_TRUE(client->setSessionFlag(true));
  for (const std::uint32_t motors : {0U, 17U, UINT32_MAX}) {
    const auto record = commandOf(motors);
    expectRefused(&record, 10);
  }
  expectRefused(nullptr, 10);
  EXPECT_TRUE(client->publishMaxTorque(&good));
  EXPECT_EQ(client->getLastError(), 0U);
  EXPECT_FALSE(robot.takeCommand()) << "nothing of all that was sent";
}

TEST_F(SimulationClient, EmergencyStopHasAllMotorsDamp) {
  Robot robot;
  const auto client = prepared();
  ASSERT_TRUE(client->emergencyStop(100));
  const auto sent = robot.takeCommand();
  ASSERT_TRUE(sent && sent->motorNum == 12);
  for (std::uint32_t i = 0; i < sent->motorNum; ++i) {
    const auto& motor = sent->motor[i];
    EXPECT_TRUE(motor.torque == 0 && motor.kpGain == 0 && motor.velocity == 0 && motor.kdGain > 0);
    EXPECT_EQ(motor.header.limbsNo * 3 + motor.header.jointNo, i);
  }
  EXPECT_EQ(client->getState(), 3U);
}

// --- states ---

TEST_F(SimulationClient, TellsEachChangeOfStateOnTheCallersThread) {
  const auto client = makeSimulationLowLevelClient();
  const auto told = listenTo(*client);
  EXPECT_FALSE(client->setSessionFlag(true));
  EXPECT_EQ(client->getLastError(), 8U);
  EXPECT_TRUE(client->connect(0, 0));
  EXPECT_TRUE(client->connect(0, 0));
  EXPECT_TRUE(client->setSessionFlag(true));
  EXPECT_TRUE(client->connect(0, 0));
  EXPECT_TRUE(client->setSessionFlag(false));
  EXPECT_TRUE(client->disconnect());
  EXPECT_TRUE(client->disconnect());
  EXPECT_THAT(*told, ElementsAre(Pair(1, 0), Pair(2, 0), Pair(3, 0), Pair(2, 0), Pair(0, 0)));
  EXPECT_EQ(client->getState(), 0U);
}

TEST_F(SimulationClient, SaysWhyTheTransportCannotOpen) {
  const Variables cases[] = {{{"ORVANE_MOTION_DDS_DOMAIN", "999"}},
                             {{"ORVANE_MOTION_DDS_DOMAIN", "-1"}},
                             {{"ORVANE_MOTION_DDS_DOMAIN", "4294967338"}},
                             {{"ORVANE_MOTION_CONTROL_TOPIC", "motion control"}}};
  for (const auto& variables : cases) {
    SCOPED_TRACE(testing::PrintToString(variables));
    const Environment environment(variables);
    const auto client = makeSimulationLowLevelClient();
    const auto told = listenTo(*client);
    const auto text = standardErrorOf([&] { EXPECT_FALSE(client->connect(500, 0)); });
    EXPECT_THAT(text, HasSubstr("SimulationLowLevelClientImpl open transport failed: "));
    EXPECT_THAT(*told, ElementsAre(Pair(1, 0), Pair(0, 1)));
    EXPECT_EQ(client->getState(), 0U);
    EXPECT_EQ(client->getLastError(), 1U);
    EXPECT_EQ(client->getLastError(), 1U);
    EXPECT_TRUE(client->disconnect());
    EXPECT_EQ(client->getLastError(), 0U);
  }
}

TEST_F(SimulationClient, TheStateCallbackMayDoAnything) {
  auto client = makeSimulationLowLevelClient();
  int connecting = 0;
  client->setStateCallback([&](std::uint32_t state, std::uint32_t) {
    if (state == 1 && ++connecting == 1) {
      EXPECT_TRUE(client->disconnect());
    }
    if (state == 2) {
      client->setStateCallback(nullptr);
      EXPECT_TRUE(client->setSessionFlag(true));
    }
  });
  EXPECT_FALSE(client->connect(500, 0)) << "the callback has ended it";
  EXPECT_EQ(client->getState(), 0U);
  EXPECT_TRUE(client->connect(500, 0));
  EXPECT_EQ(client->getState(), 3U);
  client->disconnect();

  auto* const bare = client.get();
  client->setStateCallback([&](std::uint32_t, std::uint32_t) { client.reset(); });
  EXPECT_FALSE(bare->connect(500, 0)) << "the last reference went meanwhile";
  client = makeSimulationLowLevelClient();
  client->setStateCallback([](std::uint32_t, std::uint32_t) { throw std::string("thrown"); });
  EXPECT_TRUE(client->connect(500, 0));
}

TEST_F(SimulationClient, DisconnectEndsAWaitAndReconnectBeginsAnew) {
  Robot robot;
  const auto client = connected();
  std::atomic<bool> result{true};
  CThreadLite waiting("waiting", 0, 0, 0, [&] {
    ObservedMotionRecord record;
    result = client->requireObserved(&record, 60'000);
  });
  ASSERT_TRUE(waiting.createThread());
  clock.advance(5);
  ASSERT_FALSE(waiting.isThreadOver());
  client->disconnect();
  EXPECT_EQ(robot.commandWriters(), 0U);
  ASSERT_TRUE(client->connect(500, 0));
  clock.advance(0);
  EXPECT_TRUE(waiting.isThreadOver());
  EXPECT_FALSE(result);
  EXPECT_EQ(robot.commandWriters(), 1U);

  robot.observed.write(observedSample());
  robot.remoteControl.write(RemoteControl_{});
  clock.advance(1);
  client->disconnect();
  ObservedMotionRecord record;
  const std::uint64_t begun = nowMs();
  EXPECT_FALSE(client->requireObserved(&record, 1000)) << "of a connection that is over";
  EXPECT_EQ(nowMs(), begun) << "nothing can come";
  ASSERT_TRUE(client->connect(500, 0));
  clock.advance(0);
  EXPECT_FALSE(client->requireObserved(&record, 0));
  robot.observed.write(observedSample(7));
  clock.advance(1);
  ASSERT_TRUE(client->requireObserved(&record, 0));
  EXPECT_EQ(std::int32_t{record.motorNum}, 7);
  EXPECT_EQ(record.remoteControl.included, 0) << "that sample was the former connection's";
}

TEST_F(SimulationClient, AConnectThatAnotherHasOvertakenOpensNothing) {
  Robot robot;
  const auto client = makeSimulationLowLevelClient();
  CSemaphore goOn(0);
  std::atomic<int> connecting{0};
  std::atomic<bool> result{false};
  CThreadLite other("other", 0, 0, 0, [&] { result = client->connect(500, 0); });
  client->setStateCallback([&](std::uint32_t state, std::uint32_t) {
    if (state != 1) return;
    if (++connecting == 2) {
      EXPECT_TRUE(goOn.wait(60'000));
      return;
    }
    client->disconnect();
    EXPECT_TRUE(other.createThread());
    clock.advance(0);
  });
  EXPECT_FALSE(client->connect(500, 0));
  EXPECT_EQ(client->getState(), 1U) << "the other one's";
  EXPECT_EQ(robot.commandWriters(), 0U);
  goOn.post();
  clock.advance(0);
  EXPECT_TRUE(result);
  EXPECT_EQ(client->getState(), 2U);
  EXPECT_EQ(robot.commandWriters(), 1U);
}

TEST_F(SimulationClient, WritesNoCommandThatAnotherThreadsReconnectOvertook) {
  Robot robot;
  SimulationLowLevelClientImpl::Impl client;
  const auto command = commandOf(12);
  ASSERT_TRUE(client.connect() && client.setSessionFlag(true));
  ASSERT_TRUE(client.mayCommand(&command));  // the publisher is preempted here
  ASSERT_TRUE(client.disconnect() && client.connect());
  EXPECT_FALSE(client.write(lowlevel::controlSample(command)));
  EXPECT_EQ(client.lastError(), 9U);
  EXPECT_FALSE(robot.takeCommand());
  client.end();
}

TEST_F(SimulationClient, ReportsFailuresOfDdsOnceASecondAtMost) {
  const auto client = prepared();
  deleteParticipant();
  const auto command = commandOf(12);
  auto text = standardErrorOf([&] {
    for (int i = 0; i < 25; ++i) {
      EXPECT_FALSE(client->publishMotorAction(&command, nullptr));
      clock.advance(100);
    }
  });
  EXPECT_EQ(times("SimulationLowLevelClientImpl read failed: ", text), 3);
  EXPECT_EQ(times("SimulationLowLevelClientImpl write control failed: ", text), 3);
  EXPECT_EQ(times("SimulationLowLevelClientImpl write control: 9 more before\n", text), 2);
  EXPECT_EQ(client->getLastError(), 7U);
  EXPECT_FALSE(client->emergencyStop(0));
  EXPECT_TRUE(client->disconnect());
  ASSERT_TRUE(client->connect(500, 0)) << "with a participant of its own again";
  clock.advance(0);
  ASSERT_TRUE(client->setSessionFlag(true));
  deleteParticipant();
  text = standardErrorOf([&] { EXPECT_FALSE(client->publishMotorAction(&command, nullptr)); });
  EXPECT_EQ(times("write control failed: ", text), 1) << "at once in each connection";
}

TEST_F(SimulationClient, EndsAlthoughNobodyReadsItsStandardError) {
  const auto client = prepared();
  int ends[2];
  ASSERT_EQ(::pipe2(ends, O_NONBLOCK | O_CLOEXEC), 0);
  const char filling[4096] = {};
  while (::write(ends[1], filling, sizeof filling) > 0) {
  }
  ASSERT_EQ(::fcntl(ends[1], F_SETFL, 0), 0);
  const int former = ::dup(STDERR_FILENO);
  ASSERT_EQ(::dup2(ends[1], STDERR_FILENO), STDERR_FILENO);
  deleteParticipant();
  clock.advance(5);  // the receive thread fails
  EXPECT_TRUE(client->disconnect());
  ASSERT_EQ(::dup2(former, STDERR_FILENO), STDERR_FILENO);
  for (const int fd : {former, ends[0], ends[1]}) ::close(fd);
}

TEST(SimulationClientThreads, OperationsOfManyThreadsDoNotMixUp) {
  const Environment environment(Variables{{"ORVANE_MOTION_CONTROL_RELIABILITY", "RELIABLE"}});
  Robot robot;
  const auto client = makeSimulationLowLevelClient();
  const auto command = commandOf(12);
  std::atomic<bool> over{false};
  std::atomic<int> received{0};
  const std::function<void()> operations[] = {
      [&] { static_cast<void>(client->connect(500, 0) && client->setSessionFlag(true)); },
      [&] { static_cast<void>(client->publishMotorAction(&command, nullptr)); },
      [&] { client->setStateCallback([](std::uint32_t, std::uint32_t) {}); },
      [&] { robot.observed.write(observedSample()); },
      [&] {
        ObservedMotionRecord record;
        if (client->requireObserved(&record, 10)) ++received;
      }};
  std::vector<std::thread> threads;
  for (const auto& operation : operations) {
    threads.emplace_back([&] {
      while (!over) operation();
    });
  }
  for (int round = 0; round < 30; ++round) {
    const int before = received;
    EXPECT_TRUE(waitUntil([&] { return received > before; }));
    EXPECT_TRUE(client->disconnect());
  }
  over = true;
  for (auto& thread : threads) thread.join();

  EXPECT_TRUE(client->disconnect());
  EXPECT_EQ(client->getState(), 0U);
  EXPECT_TRUE(waitUntil([&] { return robot.commandWriters() == 0; })) << "all have closed";
  while (robot.takeCommand()) {
  }
  EXPECT_TRUE(client->connect(500, 0) && client->setSessionFlag(true));
  EXPECT_EQ(client->getState(), 3U);
  EXPECT_TRUE(client->publishMotorAction(&command, nullptr));
  EXPECT_TRUE(waitUntil([&] { return robot.takeCommand().has_value(); }));
  EXPECT_EQ(client->getLastError(), 0U);
}

// --- beside the service ---

class SimulationBesideTheService : public testing::Test {
 protected:
  void SetUp() override { restart("lo"); }
  void TearDown() override { restart(nullptr); }
  void restart(const char* interface) {
    service->shutdown();
    service->setNetworkInterface(interface);
    EXPECT_TRUE(interface == nullptr || service->initial(nullptr, "simulation", 0));
  }

  IMotionSdkService* const service = IMotionSdkService::instance();
};

TEST_F(SimulationBesideTheService, TheClientOutlivesItsShutdown) {
  const auto client = IMotionLowLevelClient::create();
  ASSERT_NE(client, nullptr);
  ASSERT_TRUE(client->connect(500, 0));
  service->shutdown();
  Robot robot;
  robot.observed.write(observedSample());
  ObservedMotionRecord record;
  EXPECT_TRUE(client->requireObserved(&record, 20'000));
  ASSERT_TRUE(service->initial(nullptr, "simulation", 0));
  robot.observed.write(observedSample());
  EXPECT_TRUE(client->requireObserved(&record, 20'000));
}

TEST_F(SimulationBesideTheService, TheChosenInterfaceHoldsInEveryDomain) {
  const Environment environment(Variables{{"ORVANE_MOTION_DDS_DOMAIN", "43"}});
  {
    const auto first = IMotionLowLevelClient::create();
    const auto second = IMotionLowLevelClient::create();
    EXPECT_TRUE(first->connect(500, 0) && second->connect(500, 0));
    first->disconnect();
    EXPECT_TRUE(first->connect(500, 0));
  }
  restart("nowhere0");
  const auto client = IMotionLowLevelClient::create();
  const auto text = standardErrorOf([&] { EXPECT_FALSE(client->connect(500, 0)); });
  EXPECT_THAT(text, HasSubstr("open transport failed: dds_create_domain(43)"));
  restart("lo");
  EXPECT_TRUE(client->connect(500, 0)) << "nothing was left of the failure";
}

TEST_F(SimulationBesideTheService, ALaterInitialAppliesTheInterfaceChosenThen) {
  const auto isJoined = [] {
    return !Pexal::PDBus::IDDSFactory::instance()->participant("host").is_nil();
  };
  const Environment environment(Variables{{"ORVANE_MOTION_CONTROL_RELIABILITY", "RELIABLE"}});
  const FarDomain far;
  Robot robot(FarDomain::kNumber, Reliability::Reliable());
  const auto client = IMotionLowLevelClient::create();
  ASSERT_TRUE(client->connect(500, 0) && client->setSessionFlag(true));
  const auto command = commandOf(12);
  const auto isHeard = [&] {
    EXPECT_TRUE(client->publishMotorAction(&command, nullptr));
    return robot.takeCommand().has_value();
  };
  ASSERT_TRUE(waitUntil(isHeard));
  restart("nowhere0");
  EXPECT_TRUE(isJoined()) << "the client keeps the domain as it is";
  service->shutdown();

  far.cutOff();
  EXPECT_TRUE(client->publishMotorAction(&command, nullptr));
  EXPECT_TRUE(client->disconnect());
  EXPECT_EQ(dds_lookup_participant(kDomain, nullptr, 0), 1) << "disconnect lingered for the robot";
  restart("nowhere0");
  EXPECT_FALSE(isJoined()) << "still on the former interface";
  restart("lo");
  EXPECT_TRUE(isJoined()) << "nothing was left of the failure";
}

}  // namespace
