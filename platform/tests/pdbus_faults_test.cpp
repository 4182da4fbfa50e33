// Faults of the network, of processes and of peers.

#include <array>
#include <atomic>
#include <sstream>

#include "pdbus_bus_support.h"
#include "pdbus_rpc_support.h"
#include "peer_process.h"

using namespace platform_test;

namespace {

/// A robot and an application with RPC and events both ways; what they did is expected to be what
/// they were asked for, once each and in order.
class Traffic {
 public:
  explicit Traffic(int lossPerMille = 0) : pair_(lossPerMille) {
    server_ = serve(pair_.robot, "D1", std::ref(carried_));
  }
  [[nodiscard]] const BusPair& pair() const { return pair_; }

  /// A call, a one-way request and an event each way.
  void step() {
    const int n = static_cast<int>(requests_.size());
    requests_.insert(requests_.end(), {n, n + 1});
    EXPECT_EQ(call(pair_.app, "call", request(n)).status, kOk) << n;
    EXPECT_EQ(sendAction(pair_.app, request(n + 1)), kOk) << n;
    ups_.push_back("up=" + std::to_string(n));
    downs_.push_back("down=" + std::to_string(n));
    EXPECT_TRUE(pair_.app.bus->publish("up", n)) << n;
    EXPECT_TRUE(pair_.robot.bus->publish("down", n)) << n;
    // The application queues few events, and drops the oldest when it is slow.
    EXPECT_TRUE(atApp_->hears(downs_.back())) << n;
  }
  void expectComplete() {
    EXPECT_TRUE(atRobot_->hears(ups_.back()));
    EXPECT_TRUE(waitUntil([&] { return carried_.entries().size() >= requests_.size(); }));
    EXPECT_EQ(carried_.entries(), requests_);
    EXPECT_EQ(atRobot_->heard(), ups_);
    EXPECT_EQ(atApp_->heard(), downs_);
  }

 private:
  Carried carried_;
  BusPair pair_;
  std::shared_ptr<RPCServer> server_;
  const std::shared_ptr<Listener> atRobot_ = listen(pair_.robot, "up");
  const std::shared_ptr<Listener> atApp_ = listen(pair_.app, "down");
  std::vector<int> requests_;
  std::vector<std::string> ups_;
  std::vector<std::string> downs_;
};

TEST(Faults, LossOnBothSidesCostsNothing) {
  Traffic traffic(50);
  for (int i = 0; i < 200; ++i) traffic.step();
  traffic.expectComplete();
  const Node mute(kPeer, {1000});  // loses all
  EXPECT_EQ(call(mute, "call", request(0), "D1", 500).status, code(RpcStatus::kNoServer));
}

TEST(Faults, ACallEndsEarlyWhenItsServersProcessIsKilled) {
  const Node app(kApp);
  const PeerProcess server({"serve", "1000"});
  ASSERT_EQ(call(app, "echo", request(1)).response, request(1));
  const Called called = call(app, "die", request(2));
  EXPECT_EQ(called.status, code(RpcStatus::kServerGone));
  EXPECT_LT(called.ms, kLongMs / 2);
  EXPECT_EQ(call(app, "echo", request(3), "D1", 200).status, code(RpcStatus::kNoServer));
  const PeerProcess next({"serve", "1000"});
  EXPECT_EQ(call(app, "echo", request(4)).response, request(4));
}

TEST(Faults, CallsOfAStoppedServerTimeOutAndTheirLateAnswersAreNobodys) {
  const Node app(kApp);
  const PeerProcess server({"serve", "60000"});
  ASSERT_EQ(call(app, "echo", request(1)).response, request(1));
  const Called called = call(app, "freeze", request(2), "D1", 300);
  EXPECT_EQ(called.status, code(RpcStatus::kTimeout));
  EXPECT_EQ(called.response, "untouched");
  EXPECT_GE(called.ms, 300U);
  ASSERT_TRUE(server.stopped());
  EXPECT_EQ(call(app, "echo", request(3), "D1", 300).status, code(RpcStatus::kTimeout));
  server.signal(SIGCONT);
  EXPECT_EQ(call(app, "echo", request(4)).response, request(4));
}

constexpr std::array kTopics = {"robotServer/rpc/request", "robotServer/rpc/reply",
                                "robotServer/event/client", "robotServer/event/server"};

TEST(Faults, PeersOfOtherTypeOrQosAreReportedOncePerTopicAndPolicy) {
  const LogWatch log;
  Traffic traffic;
  traffic.step();
  const auto reported = [&] { return log.with("doesn't match"); };
  for (int round = 0; round < 2; ++round) {  // the second time by another participant
    RawParticipant stranger;
    for (const char* const name : kTopics) {
      const bool request = name == kTopics[0];
      const auto& type = request              ? Pexal_PDBus_Request_desc
                         : name == kTopics[1] ? Pexal_PDBus_Reply_desc
                                              : Pexal_PDBus_Event_desc;
      RawQos qos{request ? "device/D1" : name == kTopics[1] ? "client/*" : "", {}};
      const dds_entity_t same = stranger.topic(type, name);
      const dds_entity_t other = stranger.topic(dds_test_Stranger_desc, name);
      for (int i = 0; i < 2; ++i) {
        const dds_entity_t writer = stranger.writer(other, qos);
        const Stranger garbage{1, 2};
        for (int n = 0; n < 100; ++n) EXPECT_EQ(dds_write(writer, &garbage), DDS_RETCODE_OK);
        static_cast<void>(stranger.reader(other, qos));
      }
      qos.durability = DDS_DURABILITY_TRANSIENT_LOCAL;
      static_cast<void>(stranger.reader(same, qos));
      qos.reliability = DDS_RELIABILITY_BEST_EFFORT;
      static_cast<void>(stranger.writer(same, qos));
    }
    // Announcements are heard in order: who has met the last endpoints has met those before.
    for (const char* const name : {kTopics[2], kTopics[3]}) {
      const dds_entity_t topic = stranger.topic(Pexal_PDBus_Event_desc, name);
      const dds_entity_t writer = stranger.writer(topic);
      EXPECT_TRUE(awaitReader(writer) && awaitWriter(stranger.reader(topic)));
      Pexal_PDBus_Event noise{};
      noise.number = 1;
      noise.topic = const_cast<char*>("noise");
      EXPECT_EQ(dds_write(writer, &noise), DDS_RETCODE_OK);
      EXPECT_EQ(dds_wait_for_acks(writer, DDS_SECS(10)), DDS_RETCODE_OK);
    }
    EXPECT_TRUE(waitUntil([&] {
      traffic.step();  // an RPC client reports when it is used
      return reported().size() >= 4 * kTopics.size();
    })) << log.all();
  }
  traffic.expectComplete();
  EXPECT_EQ(reported().size(), 4 * kTopics.size()) << log.all();
  for (const std::string name : kTopics) {
    for (const char* const what :
         {"writer's type", "writer's reliability", "reader's type", "reader's durability"}) {
      EXPECT_EQ(log.with("topic " + name + ": a " + what + " doesn't match").size(), 1U)
          << name << ' ' << what;
    }
  }
}

/// Without type information only the type's name counts: libddsc matches the two and has a warning
/// for each sample that it can't decode.
TEST(Faults, SamplesThatCannotBeDecodedAreHarmlessAndWarnedOfSparingly) {
  const dds_topic_descriptor_t& real = dds_test_Stranger_desc;
  const dds_topic_descriptor_t disguised{real.m_size,
                                         real.m_align,
                                         DDS_TOPIC_FIXED_SIZE,
                                         0,
                                         "Pexal::PDBus::Event",
                                         nullptr,
                                         real.m_nops,
                                         real.m_ops,
                                         "",
                                         {},
                                         {},
                                         0};
  Traffic traffic;
  RawParticipant stranger;
  testing::internal::CaptureStderr();
  const std::uint64_t start = CTime::getCurrentMilliSecond();
  for (const char* const name : {kTopics[2], kTopics[3]}) {
    const dds_entity_t writer = stranger.writer(stranger.topic(disguised, name));
    EXPECT_TRUE(awaitReader(writer));
    const Stranger garbage{1, 2};
    for (int n = 0; n < 300; ++n) EXPECT_EQ(dds_write(writer, &garbage), DDS_RETCODE_OK);
    EXPECT_EQ(dds_wait_for_acks(writer, DDS_SECS(10)), DDS_RETCODE_OK);
  }
  traffic.step();
  traffic.expectComplete();
  std::istringstream said(testing::internal::GetCapturedStderr());
  std::uint64_t warnings = 0;
  for (std::string line; std::getline(said, line);) {
    if (line.find("deserialization") != std::string::npos) ++warnings;
  }
  EXPECT_GE(warnings, 1U);
  EXPECT_LE(warnings, 2 + (CTime::getCurrentMilliSecond() - start) / 1000);
}

TEST(Faults, AFloodOfGarbageIsReportedSparinglyAndHoldsNobodyUp) {
  Traffic traffic;
  traffic.step();
  const LogWatch log;
  const std::uint64_t start = CTime::getCurrentMilliSecond();
  RawClient client;
  RawServer server(5);
  RawPublisher toRobot("robotServer/event/server", 6);
  RawPublisher toApp("robotServer/event/client", 7);
  ASSERT_TRUE(client.matchedBothWays() && server.meetsClient() && toRobot.matched() &&
              toApp.matched());
  for (std::uint64_t n = 1; n <= 2000; ++n) toRobot.write(n, "{", "up");  // it can't be answered
  std::atomic<bool> stop{false};
  const auto flood = startThread([&] {
    const auto documents = badJson();
    for (std::uint64_t n = 5000; !stop; ++n) {
      const std::string& document = n % 100 == 0 ? documents.back() : documents[n % 4];
      client.write(n % 3 == 0 ? 1 : n, document, n % 2 == 0, "", n % 5 == 0 ? 9 : 0);
      server.reply(document, static_cast<std::uint32_t>(n), static_cast<int>(n % 7), n % 2);
      for (RawPublisher* const peer : {&toRobot, &toApp}) {
        peer->write(n, document, n % 50 == 0 ? "up" : "noise", n % 4 == 0 ? 1000 : 0);
        peer->write(n % 3, document, n % 2 == 0 ? "" : std::string(300, 't'));
      }
    }
  });
  for (int i = 0; i < 100; ++i) traffic.step();
  stop = true;
  traffic.expectComplete();
  const std::uint64_t seconds = (CTime::getCurrentMilliSecond() - start) / 1000;
  // One line a second at most from each of: server, routes, client, two buses' cores, workers'
  // payloads and drops.
  EXPECT_LE(log.with("").size(), 9 * (seconds + 2)) << log.all();
  // What is left of the flood may still be in the server's queue.
  EXPECT_TRUE(waitUntil([&] { return !log.with("rpc server robotServer: ").empty(); }))
      << log.all();
  EXPECT_TRUE(log.with("doesn't match").empty()) << "partitions that differ are no mismatch";
}

}  // namespace
