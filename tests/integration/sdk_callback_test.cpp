// What an application may do inside a callback: disconnect its client or let go of the last
// reference to it (that returns without waiting for the library's threads, which end by
// themselves), ask the robot, throw, and take its time, which holds up nothing else.

#include <gtest/gtest.h>

#include <array>
#include <atomic>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <stdexcept>
#include <string>
#include <tuple>

#include "pbase/CSemaphore.h"
#include "sdk_robot.h"
#include "sdk_support.h"

namespace sdk_test {
namespace {

enum class Source { kConnect, kEvent, kMotion, kSensor, kDiscover };
constexpr std::size_t kSources = 5;
constexpr std::array<const char*, kSources> kNames{"Connect", "Event", "Motion", "Sensor",
                                                   "Discover"};
enum class Way { kDisconnect, kLastReference };

constexpr std::uint32_t kPromptMs = 2000;

/// Lets go of a client inside a callback, once, as soon as it has been handed one.
class LettingGo {
 public:
  explicit LettingGo(Way way) : way_(way) {}

  void arm(std::shared_ptr<IMotionHighLevelClient> client) {
    const std::lock_guard lock(mutex_);
    client_ = std::move(client);
  }
  void act() {
    std::shared_ptr<IMotionHighLevelClient> client;
    {
      const std::lock_guard lock(mutex_);
      client.swap(client_);
    }
    if (!client) return;
    const auto begun = nowMs();
    if (way_ == Way::kDisconnect) client->disconnect();
    const auto state = client->getState();
    client.reset();
    tookMs = nowMs() - begun;
    stateAfter = state;
    done = true;
  }

  std::atomic<bool> done{false};  // with the two below
  std::uint64_t tookMs = 0;
  std::uint32_t stateAfter = 0;

 private:
  const Way way_;
  std::mutex mutex_;  // guards client_
  std::shared_ptr<IMotionHighLevelClient> client_;
};

/// Has that callback of the client do `act`. The discover callback is the service's own.
void attach(Source source, IMotionHighLevelClient& client, const std::function<void()>& act) {
  if (source == Source::kConnect) {
    client.setConnectCallback([act](std::uint32_t, std::uint32_t) { act(); });
  } else if (source == Source::kEvent) {
    client.setEventCallback([act](const std::string&, const std::string&) { act(); });
  } else if (source == Source::kMotion) {
    client.setMotionObservedCallback(
        [act](const orvane::RobotSdk::ObservedMotionRecord&) { act(); });
  } else if (source == Source::kSensor) {
    client.setSensorObservedCallback(
        [act](const orvane::RobotSdk::ObservedSensorRecord&) { act(); });
  }
}

class InsideACallback : public testing::TestWithParam<std::tuple<Source, Way>> {};

TEST_P(InsideACallback, AClientMayBeLetGo) {
  const auto [source, way] = GetParam();
  const LocalRobot robot("dog");
  const auto lettingGo = std::make_shared<LettingGo>(way);
  std::weak_ptr<IMotionHighLevelClient> weak;
  const Sdk sdk(source == Source::kDiscover ? [lettingGo] { lettingGo->act(); }
                                            : std::function<void()>());
  ASSERT_TRUE(sdk.initialised());

  std::shared_ptr<IMotionHighLevelClient> kept;  // only where the client outlives its disconnect
  {
    auto client = IMotionHighLevelClient::create("dog");
    ASSERT_TRUE(client);
    weak = client;
    if (way == Way::kDisconnect) kept = client;
    attach(source, *client, [lettingGo] { lettingGo->act(); });
    ASSERT_TRUE(client->connect(60000));
    ASSERT_TRUE(enableStreams({client, nullptr}));
    if (source == Source::kConnect) {
      ASSERT_TRUE(client->takeMotionControl(20000));
    }
    lettingGo->arm(std::move(client));
  }
  if (source == Source::kEvent) {
    robot.stir();
  }
  if (source == Source::kDiscover) {
    ASSERT_TRUE(sdk->discoverRobotDevice(kLimitMs));
  }

  ASSERT_TRUE(waitUntil([&] { return lettingGo->done.load(); }));
  EXPECT_LT(lettingGo->tookMs, kPromptMs);
  if (way == Way::kLastReference) {
    EXPECT_TRUE(weak.expired());
    return;
  }
  EXPECT_EQ(lettingGo->stateAfter, 0U);
  // The client is as good as new.
  ASSERT_TRUE(kept->connect(60000));
  std::string state;
  EXPECT_TRUE(kept->queryMotionState(&state, kRequestMs)) << kept->getLastError();
  EXPECT_TRUE(kept->disconnect());
}

std::string nameOf(const testing::TestParamInfo<std::tuple<Source, Way>>& info) {
  return std::string(kNames.at(static_cast<std::size_t>(std::get<0>(info.param)))) +
         (std::get<1>(info.param) == Way::kDisconnect ? "Disconnect" : "LastReference");
}

INSTANTIATE_TEST_SUITE_P(Callbacks, InsideACallback,
                         testing::Combine(testing::Values(Source::kConnect, Source::kEvent,
                                                          Source::kMotion, Source::kSensor,
                                                          Source::kDiscover),
                                          testing::Values(Way::kDisconnect, Way::kLastReference)),
                         nameOf);

/// A client of a robot that keeps all five callbacks coming, each of which does `act`.
class EveryCallback {
 public:
  using Act = std::function<void(Source, IMotionHighLevelClient&)>;

  explicit EveryCallback(Act act) : act_(std::move(act)) {
    for (std::size_t i = 0; i < kSources; ++i) {
      const auto source = Source(i);
      attach(source, *client_, [this, source] { arrive(source); });
    }
  }
  ~EveryCallback() { client_->disconnect(); }
  EveryCallback(const EveryCallback&) = delete;
  EveryCallback& operator=(const EveryCallback&) = delete;

  [[nodiscard]] bool begin() {
    return sdk_.initialised() && client_->connect(60000) && enableStreams({client_, nullptr}) &&
           client_->takeMotionControl(20000) &&
           waitUntil([this] { return counts_[static_cast<std::size_t>(Source::kConnect)] > 0; });
  }
  /// Gives each callback a reason to come. Not before begin.
  void stir() const {
    robot_.stir();
    if (!robot_.suffers("restore")) static_cast<void>(robot_.suffers("preempt"));
    static_cast<void>(sdk_->discoverRobotDevice(kLimitMs));
  }
  /// True when each callback but that of `held` has come `times` more often and requests are
  /// answered.
  [[nodiscard]] bool goOn(int times, Source held = Source(kSources)) {
    std::array<int, kSources> enough{};
    for (std::size_t i = 0; i < kSources; ++i) enough[i] = counts_[i] + times;
    return waitUntil([&] {
      stir();
      std::string state;
      bool all = client_->queryMotionState(&state, kRequestMs);
      for (std::size_t i = 0; i < kSources; ++i) {
        all = all && (Source(i) == held || counts_[i] >= enough[i]);
      }
      return all;
    });
  }
  [[nodiscard]] IMotionHighLevelClient& client() { return *client_; }

 private:
  void arrive(Source source) {
    ++counts_[static_cast<std::size_t>(source)];
    act_(source, *client_);
  }

  const Act act_;
  std::array<std::atomic<int>, kSources> counts_{};
  const LocalRobot robot_{"dog"};
  const Sdk sdk_{[this] { arrive(Source::kDiscover); }};
  const std::shared_ptr<IMotionHighLevelClient> client_ = IMotionHighLevelClient::create("dog");
};

TEST(EveryCallbackOfAClient, MayThrowAndAskTheRobot) {
  std::array<std::atomic<unsigned>, kSources> turns{};
  std::atomic<int> refused{0};
  EveryCallback traffic([&](Source source, IMotionHighLevelClient& client) {
    const unsigned turn = ++turns[static_cast<std::size_t>(source)] % 3;
    if (turn == 0) throw std::runtime_error("an application's own");
    if (turn == 1) throw 7;
    std::string state;
    if (!client.queryMotionState(&state, kRequestMs)) ++refused;
  });
  ASSERT_TRUE(traffic.begin());
  EXPECT_TRUE(traffic.goOn(9));
  EXPECT_EQ(refused, 0);
}

TEST(EveryCallbackOfAClient, MayTakeItsTimeWhileAllElseGoesOn) {
  constexpr Source kNone = Source(kSources);
  std::atomic<Source> toHold{Source::kConnect};
  std::atomic<Source> held{kNone};
  Pexal::PBase::CSemaphore release(0);
  EveryCallback traffic([&](Source source, IMotionHighLevelClient&) {
    Source expected = source;
    if (!toHold.compare_exchange_strong(expected, kNone)) return;
    held = source;
    static_cast<void>(release.wait(kLimitMs));
    held = kNone;
  });
  const auto hold = [&](Source source) {
    toHold = source;
    return waitUntil([&] {
      traffic.stir();
      return held == source;
    });
  };
  ASSERT_TRUE(traffic.begin());
  ASSERT_TRUE(waitUntil([&] { return held == Source::kConnect; }));  // the client's worker
  EXPECT_TRUE(traffic.goOn(5, Source::kConnect));
  EXPECT_EQ(held, Source::kConnect);
  release.post();
  for (std::size_t i = 0; i < kSources; ++i) {
    SCOPED_TRACE(kNames[i]);
    ASSERT_TRUE(waitUntil([&] { return held == kNone; }));
    ASSERT_TRUE(hold(Source(i)));
    EXPECT_TRUE(traffic.goOn(5, Source(i)));
    EXPECT_EQ(held, Source(i));
    release.post();
  }
  ASSERT_TRUE(waitUntil([&] { return held == kNone; }));
  // Nor does a disconnect wait for it for long.
  ASSERT_TRUE(hold(Source::kMotion));
  const std::uint64_t begun = nowMs();
  EXPECT_TRUE(traffic.client().disconnect());
  EXPECT_LT(nowMs() - begun, 3000U);
  EXPECT_EQ(held, Source::kMotion);
  release.post();
  EXPECT_TRUE(waitUntil([&] { return held == kNone; }));
}

}  // namespace
}  // namespace sdk_test
