// What a control loop calls: the records byte for byte, the order and codes of refusals, the waits,
// and what happens when several threads call at once.

#include <unistd.h>

#include <atomic>
#include <numeric>

#include "lowlevel/MotionChannels.h"
#include "lowlevel_support.h"
#include "pbase/CTime.h"
#include "pbase/SharedMem.h"
#include "shm/ShareMotionDomain.h"

namespace lowlevel_test {
namespace {

using Pexal::PBase::CTime;
using testing::Each;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

constexpr char kReject[] = " local low level sendControl reject: ";

Texts rejected(const std::string& reason, int error) {
  return {kReject + reason + ", lastError=" + std::to_string(error) + "\n"};
}

class LowLevelCommands : public LowLevelTest {
 protected:
  /// One call, and what it left behind: its result, the error, the lines of level 3.
  void expectRefusal(bool result, std::uint32_t code, const Texts& wanted) {
    EXPECT_FALSE(result);
    EXPECT_EQ(lowError(), code);
    EXPECT_EQ(lines(3), wanted);
    clock.advance(1000);  // until the next line is allowed
    log.take();
  }
  void putObserved(int motorNum) {
    ObservedMotionRecord record{};
    record.motorNum = motorNum;
    EXPECT_GT(motion.put(&record, sizeof record), 0U);
  }
  void putSensor(std::uint32_t epoch) {
    ObservedSensorRecord record{};
    record.odom.epoch = epoch;
    EXPECT_GT(sensor.put(&record, sizeof record), 0U);
  }
  static std::uint64_t nowUs() { return CTime::getCurrentMicroSecond(); }

  const LowLevelMotorRecord command = motors(12);
};

// --- records ---

struct Bytes {
  std::array<std::uint8_t, sizeof(Record)> bytes{};

  template <class Value>
  Bytes& at(std::size_t offset, Value value) {
    std::memcpy(&bytes[offset], &value, sizeof value);
    return *this;
  }
  friend bool operator==(const Bytes& a, const Record& b) {
    return std::memcmp(a.bytes.data(), &b, sizeof b) == 0;
  }
};

TEST_F(LowLevelCommands, WriteTheseBytesWithOneCountForAllKinds) {
  putObserved(1);
  prepare();
  EXPECT_EQ(::access("/dev/shm/orvane.motionControl:motionCtrlShared", F_OK), 0);
  ControlTap tap;
  LowLevelTrailer trailer;
  std::iota(std::begin(trailer.bytes), std::end(trailer.bytes), std::uint8_t{100});
  ObservedMotionRecord observed;
  const std::uint64_t firstUs = nowUs();

  EXPECT_TRUE(low->publishMotorAction(&command, nullptr));
  EXPECT_TRUE(low->publishMotorAction(&command, &trailer));
  clock.advanceMicroseconds(7);
  EXPECT_TRUE(low->publishMaxTorque(&command));
  clock.advanceMicroseconds(5);
  EXPECT_FALSE(low->requireObserved(&observed, 3));
  // The wait is as long as the record says: 704 us.
  EXPECT_FALSE(low->requireObserved(&observed, 4294968));
  const std::uint64_t lastUs = nowUs();
  EXPECT_LT(lastUs, firstUs + 12 + 3000 + 100 + 704 + 100);
  // The stop comes behind the request that is granted: that one's answer sends a record itself.
  int asked = 0;
  robot.on("setMotionPrepare", [&](const Request&) {
    if (++asked < 3) return asked == 1 ? refused() : ready(false);
    EXPECT_TRUE(low->publishMotorAction(&command, nullptr));
    return ready(true);
  });
  ASSERT_TRUE(low->setSessionFlag(false));
  clock.advance(4000);
  EXPECT_EQ(asked, 3);
  robot.on("setMotionPrepare", ready(true));
  ASSERT_TRUE(low->setSessionFlag(true));
  robot.on("renewWorkModeSession", sessionInvalid());
  clock.advance(kRenewMs);
  ASSERT_EQ(low->getState(), kPrepared);
  EXPECT_TRUE(low->publishMotorAction(&command, nullptr));

  const auto base = [](std::uint32_t kind, std::uint64_t session, std::uint64_t seq) {
    return Bytes().at(0, kind).at(8, session).at(16, seq).at(420, std::int32_t{-1});
  };
  ASSERT_TRUE(soon([&] { return tap.records().size() >= 8; }));
  const auto got = tap.records();
  ASSERT_THAT(got, SizeIs(8));
  EXPECT_TRUE(base(0, 1001, 1).at(32, command) == got[0]);
  EXPECT_TRUE(base(3, 1001, 2).at(32, command).at(420, trailer) == got[1]);
  EXPECT_TRUE(base(2, 1001, 3).at(24, firstUs + 7).at(32, command) == got[2]);
  EXPECT_TRUE(base(1, 1001, 4).at(4, 3000U).at(24, firstUs + 12) == got[3]);
  EXPECT_TRUE(base(1, 1001, 5).at(4, 704U).at(24, got[4].timestampUs) == got[4]);
  EXPECT_TRUE(base(0, 1001, 6).at(32, command) == got[5]) << "inside the request";
  EXPECT_TRUE(base(3, 1001, 7) == got[6]) << "the stop";
  EXPECT_TRUE(base(0, 1002, 1).at(32, command) == got[7]) << "the next session counts afresh";
}

// --- refusals ---

TEST_F(LowLevelCommands, NeedTheRightState) {
  struct Case {
    State state;
    std::uint32_t send, observed, sensor, stop, restore;  // codes; 0: it succeeds
  };
  constexpr Case kCases[] = {{kDisconnected, 8, 8, 8, 8, 8},
                             {kConnecting, 8, 8, 8, 8, 8},
                             {kConnected, 9, 7, 7, 8, 0},
                             {kPrepared, 0, 7, 7, 0, 8},
                             {kSessionLost, 8, 8, 8, 8, 8}};
  ObservedMotionRecord observed;
  ObservedSensorRecord sensed;
  for (const Case& row : kCases) {
    SCOPED_TRACE(row.state);
    serve();
    if (row.state == kPrepared) prepare();
    if (row.state == kConnected || row.state == kSessionLost) connectLow();
    if (row.state == kConnecting || row.state == kSessionLost) {
      robot.on("setMotionMasterRole", refused());
      robot.on("renewWorkModeSession", sessionInvalid());
      EXPECT_TRUE(low->connect(1, 0));
      clock.advance(kRenewMs);
    }
    ASSERT_EQ(low->getState(), row.state);
    log.take();
    static_cast<void>(lowError());
    const auto expect = [&](const char* what, bool result, std::uint32_t code) {
      EXPECT_EQ(result, code == 0) << what;
      EXPECT_EQ(lowError(), code) << what;
    };
    // The state comes before the count.
    const LowLevelMotorRecord none = motors(row.send == 0 ? 1 : 0);
    expect("motor action", low->publishMotorAction(&none, nullptr), row.send);
    expect("max torque", low->publishMaxTorque(&none), row.send);
    EXPECT_EQ(lines(3), row.send == 0   ? Texts()
                        : row.send == 9 ? rejected("state=kConnected (need kPrepared)", 9)
                                        : rejected("state not connected/no session", 8));
    log.take();
    expect("no record", low->requireObserved(nullptr, 0), 10);
    expect("no record", low->requireSensor(nullptr, 0), 8);
    EXPECT_THAT(lines(3), IsEmpty());
    expect("observed", low->requireObserved(&observed, 0), row.observed);
    expect("sensor", low->requireSensor(&sensed, 0), row.sensor);
    EXPECT_THAT(lines(3), SizeIs(row.observed == 7 ? 2 : 0));
    expect("emergency stop", low->emergencyStop(10), row.stop);
    expect("restore", low->restoreMotionControlMode(10), row.restore);
    low->disconnect();
    static_cast<void>(told());
    clock.advance(1000);
  }
  serve();
  prepare();
  log.take();
  robot.on("emergencyStop", refused());
  expectRefusal(low->emergencyStop(10), 7, {});
}

TEST_F(LowLevelCommands, RefuseInThisOrder) {
  prepare();
  log.take();
  for (const std::uint32_t count : {0U, 17U, 0xFFFFFFFFU}) {
    const LowLevelMotorRecord wrong = motors(count);
    expectRefusal(low->publishMotorAction(&wrong, nullptr), 10, rejected("invalid motorNum", 10));
    expectRefusal(low->publishMaxTorque(&wrong), 10, rejected("invalid motorNum", 10));
  }
  expectRefusal(low->publishMotorAction(nullptr, nullptr), 10, rejected("invalid motorNum", 10));
  for (const std::uint32_t count : {1U, 16U}) {
    const LowLevelMotorRecord good = motors(count);
    EXPECT_TRUE(low->publishMotorAction(&good, nullptr));
  }
}

/// The gate is held by a wait; what needs no gate goes on, and switching the drive off does, too.
TEST_F(LowLevelCommands, AreRefusedWhileAnotherThreadIsInside) {
  prepare();
  std::atomic<int> result{-1};
  beside([&] {
    ObservedMotionRecord observed;
    result = low->requireObserved(&observed, 10'000) ? 1 : 0;
  });
  clock.advance(1);
  log.take();
  ObservedMotionRecord observed;
  const auto busy = rejected("gate busy (concurrent send or cleanup)", 8);
  expectRefusal(low->publishMotorAction(&command, nullptr), 8, busy);
  expectRefusal(low->publishMaxTorque(&command), 8, busy);
  const LowLevelMotorRecord none = motors(0);
  expectRefusal(low->publishMotorAction(&none, nullptr), 10, rejected("invalid motorNum", 10));
  expectRefusal(low->requireObserved(&observed, 0), 8, {});
  ObservedSensorRecord sensed;
  beside([&] {
    Pexal::PBase::CThread::sleep(1);
    putSensor(7);
  });
  EXPECT_TRUE(low->requireSensor(&sensed, 2000));

  ASSERT_TRUE(low->setSessionFlag(false));
  EXPECT_EQ(told(), "2:0");
  EXPECT_EQ(lines(3),
            (Texts{rejected("publish stopped cmd rejected: gate busy", 0).at(0),
                   " local low level publish stopped motion cmd failed, continue disable state "
                   "transition\n"}));
  EXPECT_EQ(result, -1);
  low->disconnect();  // waits for the wait, which leaves
  EXPECT_EQ(result, 0);
}

/// A reader that keeps all it gets.
TEST_F(LowLevelCommands, FailToWriteWhenAllChunksAreHeld) {
  prepare();
  std::mutex mutex;  // guards kept
  std::vector<std::shared_ptr<Pexal::PBase::SharedMemBuffer>> kept;
  const auto count = [&] {
    const std::lock_guard lock(mutex);
    return kept.size();
  };
  const auto keeper =
      Robot::Motion::ShareMotionDomain::instance(Robot::Motion::MotionChannel::kControl)
          .node()
          ->subscriber("motionCtrlShared");
  keeper->setCallback([&](const auto& chunk) {
    const std::lock_guard lock(mutex);
    kept.push_back(chunk);
  });
  ASSERT_TRUE(keeper->setMode(Pexal::PBase::SharedMemSubscriber::kOn));
  std::size_t written = 0;
  while (low->publishMotorAction(&command, nullptr)) {
    ++written;
    ASSERT_TRUE(soon([&] { return count() == written; }));
  }
  EXPECT_EQ(written, 32U);
  EXPECT_EQ(lowError(), 0U);
  EXPECT_EQ(lines(3), rejected("shm publish motor action failed", 0));
  clock.advance(1000);
  log.take();

  const LowLevelMotorRecord none = motors(0);
  EXPECT_FALSE(low->publishMotorAction(&none, nullptr));
  clock.advance(1000);
  log.take();
  expectRefusal(low->publishMaxTorque(&command), 10,  // as it was left
                rejected("shm publish max torque failed", 10));
  ObservedMotionRecord observed;
  EXPECT_FALSE(low->requireObserved(&observed, 5));
  expectRefusal(low->requireObserved(&observed, 5), 8,  // one line a second
                {" local low level require observed reject: publish quire-obs failed, "
                 "sessionId=1001\n"});
  ASSERT_TRUE(low->setSessionFlag(false));
  clock.advance(3);
  EXPECT_EQ(low->getState(), kPrepared) << "the stop comes before the state";
  clock.advance(7);  // the attempts
  EXPECT_EQ(told(), "2:0");
  EXPECT_EQ(lines(3),
            (Texts{rejected("publish stopped cmd failed", 0).at(0),
                   " local low level publish stopped motion cmd failed, continue disable state "
                   "transition\n"}));
  // A robot that answers before the request's write is through has answered all the same.
  beside([&] {
    Pexal::PBase::CThread::sleep(3);
    putObserved(9);
    const std::lock_guard lock(mutex);
    kept.clear();
  });
  EXPECT_TRUE(low->requireObserved(&observed, 0));
  EXPECT_EQ(+observed.motorNum, 9);
  EXPECT_TRUE(keeper->setMode(Pexal::PBase::SharedMemSubscriber::kOff));
}

TEST_F(LowLevelCommands, RefusalsOfManyThreadsAreOneLineASecond) {
  connectLow();
  log.take();
  std::atomic<int> refusals{0};
  for (int thread = 0; thread < 8; ++thread) {
    beside([&] {
      for (int i = 0; i < 300; ++i) {
        if (!low->publishMotorAction(&command, nullptr)) ++refusals;
        Pexal::PBase::CThread::sleep(10);
      }
    });
  }
  clock.advance(2999);
  EXPECT_EQ(refusals, 8 * 300);
  EXPECT_THAT(
      lines(3),
      testing::AllOf(SizeIs(3), Each(rejected("state=kConnected (need kPrepared)", 9).at(0))));
}

// --- waits ---

TEST_F(LowLevelCommands, WaitForARecordThatIsNewerThanTheCall) {
  putObserved(1);
  putSensor(1);
  connectLow();
  ObservedMotionRecord observed{};
  ObservedSensorRecord sensed{};
  log.take();
  for (const bool isSensor : {false, true}) {
    SCOPED_TRACE(isSensor);
    const auto require = [&](std::uint32_t ms) {
      return isSensor ? low->requireSensor(&sensed, ms * 1000)
                      : low->requireObserved(&observed, ms);
    };
    const std::string what = isSensor ? "sensor" : "observed";
    const std::string reject = " local low level require " + what + " reject: ";
    auto begin = nowUs();
    EXPECT_FALSE(require(5));
    EXPECT_GE(nowUs() - begin, 5000U);
    EXPECT_LE(nowUs() - begin, 5100U);
    EXPECT_EQ(lowError(), 7U);
    begin = nowUs();
    EXPECT_FALSE(require(0));
    EXPECT_LE(nowUs() - begin, 100U);
    EXPECT_EQ(lowError(), 7U);
    const std::string late = std::string(isSensor ? "wait sensor" : "wait obs SHM") +
                             " timeout (server didn't write), sessionId=1001\n";
    EXPECT_EQ(lines(3), (Texts{reject + late, reject + late})) << "told every time";
    log.take();

    beside([&] {
      Pexal::PBase::CThread::sleep(3);
      if (isSensor) putSensor(9);
      if (!isSensor) putObserved(9);
    });
    begin = nowUs();
    EXPECT_TRUE(require(5));
    EXPECT_LE(nowUs() - begin, 3100U);
    EXPECT_EQ(isSensor ? sensed.odom.epoch : static_cast<std::uint32_t>(observed.motorNum), 9U);
    EXPECT_EQ(lowError(), 0U);
  }
}

TEST_F(LowLevelCommands, EndAWaitWhenTheStateLeaves) {
  for (const bool isSensor : {false, true}) {
    connectLow();
    log.take();
    beside([&] {
      Pexal::PBase::CThread::sleep(5);
      low->disconnect();
    });
    ObservedMotionRecord observed;
    ObservedSensorRecord sensed;
    const auto begin = nowUs();
    EXPECT_FALSE(isSensor ? low->requireSensor(&sensed, 1'000'000)
                          : low->requireObserved(&observed, 1000));
    EXPECT_LE(nowUs() - begin, 5100U);
    EXPECT_EQ(lowError(), 8U);
    EXPECT_THAT(lines(3),
                ElementsAre(testing::StartsWith(
                    std::string(" local low level require ") + (isSensor ? "sensor" : "observed") +
                    " reject: sdk not connected (state not in connected/prepared), sessionId=")));
    clock.advance(100);
    EXPECT_THAT(lines(1, "worker stopped"), SizeIs(1));
  }
}

TEST_F(LowLevelCommands, TheSensorReaderStaysWhileItIsUsed) {
  MotionChannels channels;
  ASSERT_TRUE(channels.open());
  putSensor(1);
  const auto end = now() + 5;
  beside([&] {
    const MotionChannels::SensorUse use(channels);
    Pexal::PBase::CThread::sleep(5);
    EXPECT_EQ(use.reader()->latestSeq(), sensor.latestSeq());
  });
  clock.advance(1);
  channels.close();
  EXPECT_EQ(now(), end);
  EXPECT_EQ(MotionChannels::SensorUse(channels).reader(), nullptr);
}

// --- many threads ---

/// What is written is exactly what was not refused, in order, while the channels come and go under
/// the callers.
TEST_F(LowLevelCommands, ManyThreadsAndAChangingConnectionLoseNothing) {
  constexpr std::uint64_t kAhead = 8;  // the reader isn't what is tried here
  std::atomic<bool> over{false};
  std::atomic<bool> sending{false};
  std::atomic<int> inside{0};
  std::atomic<std::uint64_t> written{0};
  std::atomic<std::uint64_t> taken{0};
  std::vector<std::thread> threads;
  for (int thread = 0; thread < 3; ++thread) {
    threads.emplace_back([&] {
      for (; !over; --inside) {
        ++inside;
        const bool may = sending && written <= taken + kAhead;
        if (may && low->publishMotorAction(&command, nullptr)) ++written;
      }
    });
    threads.emplace_back([&] {
      ObservedSensorRecord sensed;
      while (!over) static_cast<void>(low->requireSensor(&sensed, 0));
    });
  }
  for (int round = 0; round < 8; ++round) {
    prepare();
    const ControlTap tap;
    written = taken = 0;
    sending = true;
    EXPECT_TRUE(soon([&] {
      taken = tap.records().size();
      return taken > 50;
    }));
    low->disconnect();
    sending = false;
    EXPECT_TRUE(soon([&] { return inside == 0; }));
    EXPECT_TRUE(soon([&] { return tap.records().size() == written; }));
    const auto got = tap.records();
    for (std::size_t i = 0; i < got.size(); ++i) ASSERT_EQ(got[i].seq, i + 1);
  }
  over = true;
  for (auto& thread : threads) thread.join();
}

}  // namespace
}  // namespace lowlevel_test
