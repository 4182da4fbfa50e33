// The service on the robot board. Run by tools/board-sandbox, which puts the board's files at their
// real paths; each suite names what its sandbox holds.

#include <sys/file.h>
#include <sys/stat.h>

#include <cstdlib>

#include "pbase/CThread.h"
#include "pbase/CTime.h"
#include "pbase/VirtualClock.h"
#include "scripted/ScriptedBus.h"
#include "service/ServiceAccess.h"
#include "service_support.h"

namespace service_test {
namespace {

using namespace orvane::RobotSdk;
using Pexal::PBase::CThread;
using Pexal::PBase::CTime;
using testing::ElementsAre;
using testing::IsEmpty;

constexpr char kMarker[] = "/tmp/iox-unique-roudi_ready.lock";
constexpr char kLockFile[] = "/tmp/orvane_motion_sdk.lock";

const LogLine kDetected{1, "motion sdk platform detected: 2 brain domain=2,cere domain=1\n"};
const LogLine kInitialized{1, "motion sdk initialized, clientId=probe, multiDevice=0, config=\n"};

LogLine notReady(const std::string& ms) {
  return {4, "motion sdk: RouDi not ready after " + ms + " ms, env not prepared\n"};
}

bool boardIsLocked() {
  const int descriptor = ::open(kLockFile, O_WRONLY | O_CLOEXEC);
  const bool locked = ::flock(descriptor, LOCK_EX | LOCK_NB) != 0;
  ::close(descriptor);
  return locked;
}

class BoardTest : public ServiceTest {
 protected:
  void TearDown() override {
    stop();
    std::remove(kLockFile);
  }
};

// --- a board whose shared-memory daemon runs ---

class ServiceOnBoard : public BoardTest {
 protected:
  scripted::Bus bus;
};

TEST_F(ServiceOnBoard, StartsWithTheBoardsDocumentAndHoldsTheLock) {
  service->attachRobotDiscoverCallback([](const std::string&, const std::string&) {});
  ASSERT_TRUE(start());
  EXPECT_EQ(log->take(), (Lines{kDetected, kInitialized}));
  EXPECT_THAT(bus.seen().factoryDocuments, ElementsAre(json(R"({
      "domain": [{"url": "/etc/dds/motion_config.xml", "name": "brain", "domain": 2},
                 {"url": "/etc/dds/cere_config.xml", "name": "cere", "domain": 1}],
      "client": [{"server": "motionServer", "domain": "brain"},
                 {"server": "brainServer", "domain": "brain"},
                 {"server": "cerebellumServer", "domain": "cere"},
                 {"server": "mediaServer", "domain": "brain"}],
      "eventBus": [{"topics": 32, "withService": true, "withClient": false,
                    "workers": {"count": 2, "task": 16},
                    "server": "cerebellumServer", "domain": "cere"},
                   {"topics": 32, "withService": true, "withClient": false,
                    "workers": {"count": 2, "task": 16},
                    "server": "brainServer", "domain": "brain"},
                   {"topics": 32, "withService": true, "withClient": false,
                    "workers": {"count": 2, "task": 16},
                    "server": "mediaServer", "domain": "brain"}]})")));
  EXPECT_FALSE(exists(hostProfilePath()));
  EXPECT_FALSE(service->isMultiDevice());
  EXPECT_EQ(service::deployment(), service::kRobotBoard);
  EXPECT_EQ(service::applicationServiceName(true), "brainAppService");
  EXPECT_EQ(service::applicationServiceName(false), "robotAppService");
  EXPECT_FALSE(service->discoverRobotDevice(100));
  EXPECT_EQ(log->take(), (Lines{{4, "motion sdk service initialed ,not support discover\n"}}));
  EXPECT_THAT(bus.subscribedTopics(), IsEmpty());

  EXPECT_TRUE(boardIsLocked());
  struct stat status {};
  ASSERT_EQ(::stat(kLockFile, &status), 0);
  EXPECT_EQ(status.st_mode & 0777U, 0644U);
  service->shutdown();
  EXPECT_FALSE(boardIsLocked());
  EXPECT_TRUE(exists(kLockFile));
  EXPECT_TRUE(start()) << "the lock can be taken again";
}

TEST_F(ServiceOnBoard, AWaitOfNoTimeFailsEvenWithTheMarker) {
  EXPECT_FALSE(start(nullptr, 0));
  EXPECT_EQ(log->take(), (Lines{kDetected, notReady("0")}));
  EXPECT_FALSE(exists(kLockFile));
}

TEST_F(ServiceOnBoard, ASecondProcessIsRefused) {
  ASSERT_TRUE(start());
  const auto secondProcess = [this] {
    stop();  // what it inherited; the parent's lock stays
    log->take();
    const bool refused = !start();
    const LogLine running{4,
                          "motion sdk already running on this board "
                          "(lockfile=/tmp/orvane_motion_sdk.lock, errno=11)\n"};
    std::exit(refused && log->take() == Lines{kDetected, running} ? 0 : 1);
  };
  GTEST_FLAG_SET(death_test_style, "fast");
  EXPECT_EXIT(secondProcess(), testing::ExitedWithCode(0), "");
  EXPECT_TRUE(boardIsLocked());
}

TEST_F(ServiceOnBoard, APlantedLockFileIsNeitherFollowedNorWaitedFor) {
  const char* const victim = "/tmp/victim";
  writeFile(victim, "precious");
  const auto refusedFor = [this](int planted, const std::string& reason) {
    ASSERT_EQ(planted, 0);
    EXPECT_FALSE(start());
    EXPECT_EQ(log->take().back(),
              (LogLine{4, "motion sdk open lockfile(/tmp/orvane_motion_sdk.lock) failed: " +
                              reason + "\n"}));
    std::remove(kLockFile);
  };
  refusedFor(::symlink(victim, kLockFile), "Too many levels of symbolic links");
  refusedFor(::symlink("/tmp/nothing", kLockFile), "Too many levels of symbolic links");
  refusedFor(::mkfifo(kLockFile, 0666), "No such device or address");
  EXPECT_FALSE(exists("/tmp/nothing"));
  EXPECT_EQ(contentOf(victim), "precious");
  EXPECT_TRUE(start());
}

TEST_F(ServiceOnBoard, HandsOutOneHighLevelClientAtATime) {
  ASSERT_TRUE(start());
  auto first = IMotionHighLevelClient::create(true);
  ASSERT_NE(first, nullptr);
  EXPECT_EQ(IMotionHighLevelClient::create(true), first);
  EXPECT_EQ(IMotionHighLevelClient::create(false), first) << "the role was settled by the first";
  const std::weak_ptr<IMotionHighLevelClient> former = first;
  first.reset();
  EXPECT_TRUE(former.expired());
  EXPECT_NE(IMotionHighLevelClient::create(false), nullptr);
  EXPECT_EQ(IMotionHighLevelClient::create("robot"), nullptr);
}

TEST_F(ServiceOnBoard, HandsOutOneLowLevelClientAtATime) {
  ASSERT_TRUE(start());
  auto first = IMotionLowLevelClient::create();
  ASSERT_NE(first, nullptr);
  EXPECT_EQ(IMotionLowLevelClient::create(), first);
  const std::weak_ptr<IMotionLowLevelClient> former = first;
  first.reset();
  EXPECT_TRUE(former.expired());
  EXPECT_NE(IMotionLowLevelClient::create(), nullptr);
  stop();
  EXPECT_EQ(IMotionLowLevelClient::create(), nullptr);
}

// --- a board whose daemon isn't up yet ---

class ServiceWithoutMarker : public BoardTest {
 protected:
  void TearDown() override {
    BoardTest::TearDown();
    std::remove(kMarker);
  }
  Pexal::PBase::VirtualClock clock;
  scripted::Bus bus;
  const std::uint64_t begin = CTime::getCurrentMilliSecond();
};

TEST_F(ServiceWithoutMarker, GivesUpAfterTheTimeAllowed) {
  EXPECT_FALSE(start(nullptr, 3));
  EXPECT_EQ(log->take(), (Lines{kDetected, notReady("3000")}));
  EXPECT_EQ(CTime::getCurrentMilliSecond() - begin, 3000U);
  EXPECT_EQ(service::deployment(), service::kNotInitial);
  EXPECT_THAT(bus.seen().factoryDocuments, IsEmpty());
}

TEST_F(ServiceWithoutMarker, StartsWhenTheMarkerAppears) {
  Pexal::PBase::CThreadLite daemon("daemon", 0, 0, 0, [] {
    CThread::sleep(250);
    writeFile(kMarker, "");
  });
  ASSERT_TRUE(daemon.createThread());
  EXPECT_TRUE(start(nullptr, 60));
  EXPECT_EQ(CTime::getCurrentMilliSecond() - begin, 300U);
  EXPECT_EQ(log->take(), (Lines{kDetected, kInitialized}));
}

// --- machines that have some of the board's files only ---

class ServiceBesideABoard : public BoardTest {};

TEST_F(ServiceBesideABoard, IsOnAnExternalHost) {
  const scripted::Bus bus;
  ASSERT_TRUE(start());
  EXPECT_EQ(log->take().at(0),
            (LogLine{1, "motion sdk platform detected: 1 brain domain=-1,cere domain=42\n"}));
  EXPECT_TRUE(service->isMultiDevice());
  EXPECT_TRUE(exists(hostProfilePath()));
  EXPECT_FALSE(exists(kLockFile));
  stop();
}

}  // namespace
}  // namespace service_test
