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
  auto awaitingAnswer = std::async(std::launch::async, [&] { return call(app, "go", request(1)); });
  auto awaitingServer =
      std::async(std::launch::async, [&] { return call(app, "go", request(1), "nobody"); });
  ASSERT_TRUE(server.meetsClient() && server.receive());

  const std::uint64_t start = CTime::getCurrentMilliSecond();
  app.factory->shutdown();
  EXPECT_LT(CTime::getCurrentMilliSecond() - start, 3000U);
  EXPECT_EQ(awaitingAnswer.get().status, code(RpcStatus::kStopped));
  EXPECT_EQ(awaitingServer.get().status, code(RpcStatus::kStopped));
  Json::Value response;
  EXPECT_EQ(client->call("service", "go", request(1), response, kLongMs, "D1"),
            code(RpcStatus::kStopped));
  EXPECT_EQ(client->sendAction("service", "go", request(1), "new"), code(RpcStatus::kStopped));
}

TEST(RpcWire, AnswersAreCheckedAndHandedOnAsTheyAre) {
  const Node app(kApp);
  RawServer server;
  const auto answered = [&](const std::function<void()>& answer) {
    auto called = std::async(std::launch::async, [&app] { return call(app, "go", request(1)); });
    EXPECT_TRUE(server.meetsClient() && server.receive());
    answer();
    return called.get();
  };
  for (const std::string& bad : badJson()) {
    const Called called = answered([&] { server.reply(bad); });
    EXPECT_EQ(called.status, code(RpcStatus::kMalformedReply)) << bad.substr(0, 20);
    EXPECT_EQ(called.response, "untouched");
    EXPECT_NE(called.error, 0U);
  }
  for (const std::uint32_t status : {1U, 77U}) {  // that no server may answer with
    EXPECT_EQ(answered([&] { server.reply("{}", status); }).status,
              code(RpcStatus::kMalformedReply));
  }
  for (const char* const odd : {"[1]", "3", "null", "\"text\"", "{\"result\":{}}"}) {
    const Called called = answered([&] { server.reply(odd); });
    EXPECT_EQ(called.status, kOk) << odd;
    EXPECT_EQ(called.response, json(odd));
  }
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

TEST(RpcWire, GarbageIsRefusedOrDroppedAndHarmsNobody) {
  const Node robot(kRobot);
  const Node app(kApp);
  Carried carried;
  const auto server = serve(robot, "D1", std::ref(carried));
  RawClient peer;
  ASSERT_TRUE(peer.matchedBothWays());
  std::uint64_t number = 0;
  auto documents = badJson();
  documents.insert(documents.end(), {"[1]", "null", "{\"n\":" + kTooLarge + "}"});
  for (const std::string& bad : documents) {
    peer.write(++number, bad);
    EXPECT_EQ(peer.read(), std::make_pair(number, code(RpcStatus::kMalformedRequest)))
        << bad.substr(0, 20);
  }
  peer.write(++number, "{\"n\":1}", false, std::string(256, 'm'));
  EXPECT_EQ(peer.read(), std::make_pair(number, code(RpcStatus::kMalformedRequest)));
  peer.write(0, "{\"n\":2}");                          // no number
  peer.write(++number, "{\"n\":3}", false, "m", 200);  // in another's name
  peer.write(UINT64_MAX, "{\"n\":4}", false, "");      // wild, but its own affair
  EXPECT_EQ(peer.read(), std::make_pair(UINT64_MAX, kOk));

  RawClient stranger("client/*", 5);  // announces nobody
  ASSERT_TRUE(stranger.matched());
  stranger.write(1, "{\"n\":5}", true);
  EXPECT_TRUE(stranger.acknowledged());
  EXPECT_EQ(call(app, "good", request(6)).status, kOk);
  EXPECT_THAT(carried.entries(), ElementsAre(4, 6));
}

TEST(RpcWire, ARequestIsCarriedOutAtMostOnceAndAnsweredToItsClientOnly) {
  const Node robot(kRobot);
  const Node app(kApp);
  Carried carried;
  const auto server = serve(robot, "D1", std::ref(carried));
  RawClient peer;
  ASSERT_TRUE(peer.matchedBothWays());
  EXPECT_EQ(call(app, "another's", request(1)).status, kOk);
  for (const int number : {5, 3, 5, 4, 3, 3, 700, 4, 6}) {
    peer.write(static_cast<std::uint64_t>(number), "{\"n\":" + std::to_string(number) + "}");
  }
  for (const std::uint64_t number : {5, 3, 4, 700}) {
    EXPECT_EQ(peer.read(), std::make_pair(number, kOk));
  }
  peer.write(701, "{\"n\":701}");
  EXPECT_EQ(peer.read(), std::make_pair(std::uint64_t{701}, kOk));
  EXPECT_THAT(carried.entries(), ElementsAre(1, 5, 3, 4, 700, 701))
      << "4 and 6 are too far back to tell";
}

}  // namespace
