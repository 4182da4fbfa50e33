// An application may disconnect a client, or let go of the last reference to it, from inside any
// callback: that returns without waiting for the library's threads, which end by themselves.

#include <gtest/gtest.h>

#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <tuple>

#include "sdk_robot.h"
#include "sdk_support.h"

namespace sdk_test {
namespace {

enum class Source { kConnect, kEvent, kMotion, kSensor, kDiscover };
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
    const auto begun = Pexal::PBase::CTime::getCurrentMilliSecond();
    if (way_ == Way::kDisconnect) client->disconnect();
    const auto state = client->getState();
    client.reset();
    const std::lock_guard lock(mutex_);
    tookMs_ = Pexal::PBase::CTime::getCurrentMilliSecond() - begun;
    stateAfter_ = state;
    done_ = true;
  }
  [[nodiscard]] bool done() const {
    const std::lock_guard lock(mutex_);
    return done_;
  }
  [[nodiscard]] std::uint64_t tookMs() const {
    const std::lock_guard lock(mutex_);
    return tookMs_;
  }
  [[nodiscard]] std::uint32_t stateAfter() const {
    const std::lock_guard lock(mutex_);
    return stateAfter_;
  }

 private:
  const Way way_;
  mutable std::mutex mutex_;  // guards everything below
  std::shared_ptr<IMotionHighLevelClient> client_;
  bool done_ = false;
  std::uint64_t tookMs_ = 0;
  std::uint32_t stateAfter_ = 0;
};

class InsideACallback : public testing::TestWithParam<std::tuple<Source, Way>> {
 protected:
  static void attach(Source source, IMotionHighLevelClient& client,
                     const std::shared_ptr<LettingGo>& lettingGo) {
    if (source == Source::kConnect) {
      client.setConnectCallback([lettingGo](std::uint32_t, std::uint32_t) { lettingGo->act(); });
    } else if (source == Source::kEvent) {
      client.setEventCallback(
          [lettingGo](const std::string&, const std::string&) { lettingGo->act(); });
    } else if (source == Source::kMotion) {
      client.setMotionObservedCallback(
          [lettingGo](const orvane::RobotSdk::ObservedMotionRecord&) { lettingGo->act(); });
    } else if (source == Source::kSensor) {
      client.setSensorObservedCallback(
          [lettingGo](const orvane::RobotSdk::ObservedSensorRecord&) { lettingGo->act(); });
    }
  }
};

TEST_P(InsideACallback, AClientMayBeLetGo) {
  const auto [source, way] = GetParam();
  const LocalRobot robot("dog");
  const auto lettingGo = std::make_shared<LettingGo>(way);
  std::weak_ptr<IMotionHighLevelClient> weak;
  const Sdk sdk(source == Source::kDiscover ? [lettingGo] { lettingGo->act(); }
                                            : std::function<void()>());
  ASSERT_TRUE(sdk.initialised());

  Client other;  // makes the robot do what is worth an event
  if (source == Source::kEvent) {
    other = connectTo("dog");
    ASSERT_TRUE(other.handle && takeControl(other));
  }
  std::shared_ptr<IMotionHighLevelClient> kept;  // only where the client outlives its disconnect
  {
    auto client = IMotionHighLevelClient::create("dog");
    ASSERT_TRUE(client);
    weak = client;
    if (way == Way::kDisconnect) kept = client;
    attach(source, *client, lettingGo);
    ASSERT_TRUE(client->connect(60000));
    std::string accepted;
    ASSERT_TRUE(client->setMotionObservedEnable(R"({"motionEnable":true,"sensorEnable":true})",
                                                &accepted, kRequestMs));
    if (source == Source::kConnect) {
      ASSERT_TRUE(client->takeMotionControl(20000));
    }
    lettingGo->arm(std::move(client));
  }
  if (source == Source::kEvent) {
    ASSERT_TRUE(other->standing(kRequestMs));
  }
  if (source == Source::kDiscover) {
    ASSERT_TRUE(sdk->discoverRobotDevice(kLimitMs));
  }

  ASSERT_TRUE(eventually([&] { return lettingGo->done(); }));
  EXPECT_LT(lettingGo->tookMs(), kPromptMs);
  if (way == Way::kLastReference) {
    EXPECT_TRUE(weak.expired());
    return;
  }
  EXPECT_EQ(lettingGo->stateAfter(), 0U);
  // The client is as good as new.
  ASSERT_TRUE(kept->connect(60000));
  std::string state;
  EXPECT_TRUE(kept->queryMotionState(&state, kRequestMs)) << kept->getLastError();
  EXPECT_TRUE(kept->disconnect());
}

std::string nameOf(const testing::TestParamInfo<std::tuple<Source, Way>>& info) {
  static constexpr const char* kSources[] = {"Connect", "Event", "Motion", "Sensor", "Discover"};
  return std::string(kSources[static_cast<int>(std::get<0>(info.param))]) +
         (std::get<1>(info.param) == Way::kDisconnect ? "Disconnect" : "LastReference");
}

INSTANTIATE_TEST_SUITE_P(Callbacks, InsideACallback,
                         testing::Combine(testing::Values(Source::kConnect, Source::kEvent,
                                                          Source::kMotion, Source::kSensor,
                                                          Source::kDiscover),
                                          testing::Values(Way::kDisconnect, Way::kLastReference)),
                         nameOf);

}  // namespace
}  // namespace sdk_test
