// What the RPC makes of a peer that speaks its wire types by hand.

#include <future>

#include "pdbus_rpc_support.h"

using namespace platform_test;
using testing::ElementsAre;

namespace {

TEST(RpcWire, ACallEndsEarlyWhenItsServerVanishes) {
  const Node app(kApp);
  RawServer server;
  auto called = std::async(std::launch::async, [&app] { return call(app, "go", request(1)); });
  ASSERT_TRUE(server.meetsClient() && server.receive());
  server.vanish();
  const Called result = called.get();
  EXPECT_EQ(result.status, code(RpcStatus::kServerGone));
  EXPECT_EQ(result.error, static_cast<std::uint32_t>(ECONNRESET));
  EXPECT_LT(result.ms, kLongMs / 2);
}

TEST(RpcWire, AShutdownEndsWaitingCallsAtOnce) {
  Node app(kApp);
  const auto client = app.factory->rpcClient("robotServer");
  RawServer server;
  const auto statusOf = [&client](const char* device) {
    Json::Value response;
    return client->call("service", "go", request(1), response, kLongMs, device);
  };
  auto awaitingAnswer = std::async(std::launch::async, statusOf, "D1");
  auto awaitingServer = std::async(std::launch::async, statusOf, "nobody");
  ASSERT_TRUE(server.meetsClient() && server.receive());

  const std::uint64_t start = CTime::getCurrentMilliSecond();
  app.factory->shutdown();
  EXPECT_LT(CTime::getCurrentMilliSecond() - start, 3000U);
  EXPECT_EQ(awaitingAnswer.get(), code(RpcStatus::kStopped));
  EXPECT_EQ(awaitingServer.get(), code(RpcStatus::kStopped));
  EXPECT_EQ(statusOf("D1"), code(RpcStatus::kStopped));
  EXPECT_EQ(client->sendAction("service", "go", request(1), "new"), code(RpcStatus::kStopped));
}

TEST(RpcWire, AnswersAreCheckedAndCountForTheirOwnCallOnly) {
  const Node app(kApp);
  RawServer server;
  const auto answered = [&](const std::function<void()>& answer) {
    auto called = std::async(std::launch::async, [&app] { return call(app, "go", request(1)); });
    EXPECT_TRUE(server.meetsClient() && server.receive());
    answer();
    return called.get();
  };
  const Called bad = answered([&] { server.reply(badJson().front()); });
  EXPECT_EQ(bad.status, code(RpcStatus::kMalformedReply));
  EXPECT_EQ(bad.response, "untouched");
  EXPECT_NE(bad.error, 0U);
  const LogWatch log;
  const Called called = answered([&] {
    server.reply("{\"n\":1}", 0, -1);    // to the call before
    server.reply("{\"n\":2}", 0, 1);     // to the call after
    server.reply("{\"n\":3}", 0, 0, 9);  // to another client
    for (int copy = 0; copy < 3; ++copy) server.reply("{\"n\":4}");
  });
  EXPECT_EQ(called.response, request(4));
  EXPECT_EQ(answered([&] { server.reply("{\"n\":5}"); }).response, request(5))
      << "copies answered nothing else";
  EXPECT_EQ(log.with("dropped 1 replies meant for another client").size(), 1U) << log.all();
}

TEST(RpcWire, GarbageIsRefusedAndTheRestCarriedOutAtMostOnceForItsClientOnly) {
  const Node robot(kRobot);
  const Node app(kApp);
  Carried carried;
  const auto server = serve(robot, "D1", std::ref(carried));
  RawClient peer;
  ASSERT_TRUE(peer.matchedBothWays());
  EXPECT_EQ(call(app, "another's", request(1)).status, kOk);
  peer.write(1, badJson().front());
  EXPECT_EQ(peer.read(), std::make_pair(std::uint64_t{1}, code(RpcStatus::kMalformedRequest)));
  peer.write(2, "{\"n\":2}", false, "m", 200);  // in another's name
  for (const int number : {5, 3, 5, 700, 3, 6}) {
    peer.write(static_cast<std::uint64_t>(number), "{\"n\":" + std::to_string(number) + "}");
  }
  for (const std::uint64_t number : {5, 3, 700}) {
    EXPECT_EQ(peer.read(), std::make_pair(number, kOk));
  }
  EXPECT_EQ(call(app, "another's", request(8)).status, kOk);
  EXPECT_THAT(carried.entries(), ElementsAre(1, 5, 3, 700, 8)) << "6 is too far back to tell";
}

}  // namespace
