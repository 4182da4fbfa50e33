#include <atomic>
#include <future>
#include <stdexcept>
#include <thread>

#include "pbase/CSemaphore.h"
#include "pdbus_rpc_support.h"

using namespace platform_test;
using Pexal::PBase::CSemaphore;

namespace {

TEST(Rpc, CarriesNamesDocumentAndReason) {
  const Node robot(kRobot);
  std::uint32_t reason = 0;
  const auto server = serve(robot, "D1", [&reason](const RpcRequest& got) {
    RpcReply reply;
    reply.document["heard"] = got.service + "::" + got.method;
    reply.document["oneWay"] = got.oneWay;
    reply.document["request"] = got.document;
    reply.reason = reason;
    return reply;
  });
  const Json::Value asked = json(R"({"call": {"clientId": "ü"}, "params": [1, 2.5, null]})");
  // In one domain object libddsc delivers on the writer's own thread, else over the network.
  for (const std::uint32_t domain : {kRobot, kApp}) {
    const Node app(domain);
    for (const std::uint32_t given : {29U, 0U}) {  // a reason of an earlier call is gone
      reason = given;
      const Called called = call(app, "go", asked);
      EXPECT_EQ(called.status, kOk);
      EXPECT_EQ(called.error, given);
      EXPECT_EQ(called.response["heard"], "service::go");
      EXPECT_EQ(called.response["oneWay"], false);
      EXPECT_EQ(called.response["request"], asked);
    }
  }
}

TEST(Rpc, RefusalsOfTheServerAndFailuresOfItsHandlerHaveStatuses) {
  const Node robot(kRobot);
  const Node app(kApp);
  const auto server = serve(robot, "D1", [](const RpcRequest& got) -> RpcReply {
    if (got.method == "service?") return {{}, 29, RpcStatus::kNoService};
    if (got.method == "method?") return {{}, 29, RpcStatus::kNoMethod};
    if (got.method == "nonsense") return {{}, 0, RpcStatus::kServerGone};
    if (got.method == "large") return {std::string(2U << 20, 'x'), 0, RpcStatus::kOk};
    if (got.method == "int") throw 5;
    throw std::runtime_error("broken");
  });
  const std::vector<std::pair<std::string, RpcStatus>> expected = {
      {"service?", RpcStatus::kNoService},
      {"method?", RpcStatus::kNoMethod},
      {"nonsense", RpcStatus::kHandlerFailed},
      {"large", RpcStatus::kHandlerFailed},
      {"int", RpcStatus::kHandlerFailed},
      {"exception", RpcStatus::kHandlerFailed},
      {std::string(256, 'm'), RpcStatus::kInvalidArgument}};
  for (const auto& [method, status] : expected) {
    const Called called = call(app, method, Json::objectValue);
    EXPECT_EQ(called.status, code(status)) << method;
    EXPECT_EQ(called.response, "untouched") << method;
    EXPECT_NE(called.error, 0U) << method;
    EXPECT_NE(called.error, 29U) << method << ": that would read as a revoked lease";
  }
  EXPECT_EQ(call(app, "go", std::string(2U << 20, 'x')).status, code(RpcStatus::kInvalidArgument));
}

TEST(Rpc, ADeviceIdReachesExactlyItsRobot) {
  const Node robot(kRobot);
  const Node app(kApp);
  std::vector<std::string> ids = {"", "*", "?", "a*", "a?", "a", "%2a", "\"q\" 'x'", "\xff", "D1"};
  ids.insert(ids.end(), {"D1/[a-z]*\n", "device/D1", {"a\0b", 3}, std::string(255, '*')});
  std::vector<std::shared_ptr<RPCServer>> servers;
  for (std::size_t i = 0; i < ids.size(); ++i) {
    servers.push_back(serve(robot, ids[i], [i](const RpcRequest&) {
      return RpcReply{static_cast<Json::UInt64>(i), 0, RpcStatus::kOk};
    }));
  }
  for (std::size_t i = 0; i < ids.size(); ++i) {
    const Called called = call(app, "who", Json::objectValue, ids[i]);
    EXPECT_EQ(called.status, kOk) << testing::PrintToString(ids[i]);
    EXPECT_EQ(called.response.asUInt64(), i) << testing::PrintToString(ids[i]);
  }
  for (const char* const id : {"b", "**", "a**", "d1"}) {
    EXPECT_EQ(call(app, "who", Json::objectValue, id, 200).status, code(RpcStatus::kNoServer))
        << id;
  }
  EXPECT_EQ(call(app, "who", Json::objectValue, std::string(256, 'a')).status,
            code(RpcStatus::kInvalidArgument));
  EXPECT_EQ(RPCServer::create(robot.factory, "host", "robotServer", std::string(256, 'a'), echo),
            nullptr);
  EXPECT_EQ(RPCServer::create(robot.factory, "elsewhere", "robotServer", "D1", echo), nullptr);
}

TEST(Rpc, EachOfManyCallersGetsItsOwnAnswer) {
  const Node robot(kRobot);
  const Node first(kApp);
  const Node second(kPeer);
  const auto server = serve(robot, "D1", echo);
  std::atomic<int> right{0};
  std::vector<std::jthread> callers;
  for (int thread = 0; thread < 8; ++thread) {
    callers.emplace_back([&, thread] {
      for (int i = 0; i < 50; ++i) {
        const Json::Value asked = request(thread * 1000 + i);
        if (call(thread % 2 == 0 ? first : second, "echo", asked).response == asked) ++right;
      }
    });
  }
  callers.clear();
  EXPECT_EQ(right, 400);
}

TEST(Rpc, AFirstCallRightAfterTheStartSucceeds) {
  for (int round = 0; round < 10; ++round) {
    const Node app(kApp);
    auto robot = std::async(std::launch::async, [] {
      auto node = std::make_unique<Node>(kRobot);
      auto server = serve(*node, "D1", echo);
      return std::make_pair(std::move(node), std::move(server));
    });
    EXPECT_EQ(call(app, "echo", request(round)).response, request(round));
    EXPECT_EQ(sendAction(app, request(round)), kOk);
    robot.get();
  }
}

TEST(Rpc, WithoutAServerACallEndsByItsTimeoutAndAOneWayRequestAtOnce) {
  const Node app(kApp);
  const Called called = call(app, "echo", Json::objectValue, "D1", 150);
  EXPECT_EQ(called.status, code(RpcStatus::kNoServer));
  EXPECT_NE(called.error, 0U);
  EXPECT_GE(called.ms, 150U);
  EXPECT_LT(called.ms, 1000U);

  const std::uint64_t start = CTime::getCurrentMilliSecond();
  EXPECT_EQ(sendAction(app, Json::objectValue), code(RpcStatus::kNoServer));
  EXPECT_LT(CTime::getCurrentMilliSecond() - start, 450U) << "it waits as for a full queue";
}

TEST(Rpc, AOneWayRequestReachesTheServerAlthoughItsClientLeavesAtOnce) {
  const Node robot(kRobot);
  Carried carried;
  CSemaphore busy(0);
  CSemaphore leave(0);
  const auto server = serve(robot, "D1", [&](const RpcRequest& got) {
    if (got.method != "hold") return carried(got);
    busy.post();
    EXPECT_TRUE(leave.wait(kDeadlineMs));
    return RpcReply();
  });
  std::vector<int> expected;
  for (int round = 0; round < 5; ++round) {
    const Node app(kApp, {200});  // a fifth of what it sends is lost
    ASSERT_EQ(call(app, "call", request(-round)).status, kOk);
    ASSERT_EQ(sendAction(app, request(round)), kOk);
    expected.insert(expected.end(), {-round, round});
    app.factory->shutdown();
    EXPECT_TRUE(waitUntil([&] { return carried.entries() == expected; })) << round;
  }

  // The same while the server is busy with something else: the client is long gone.
  {
    const Node app(kApp);
    const Node other(kPeer);
    ASSERT_EQ(call(app, "call", request(10)).status, kOk);
    auto held = std::async(std::launch::async, [&] { return call(other, "hold", request(0)); });
    ASSERT_TRUE(busy.wait(kDeadlineMs));
    ASSERT_EQ(sendAction(app, request(11)), kOk);
    app.factory->shutdown();
    leave.post();
    EXPECT_EQ(held.get().status, kOk);
  }
  EXPECT_TRUE(waitUntil([&] { return carried.entries().back() == 11; }));
}

TEST(Rpc, AStoppedServerCallsItsHandlerNoMore) {
  const Node robot(kRobot);
  const Node app(kApp);
  CSemaphore entered(0);
  CSemaphore leave(0);
  CSemaphore stopped(0);
  std::atomic<int> runs{0};
  auto server = serve(robot, "D1", [&](const RpcRequest&) {
    ++runs;
    entered.post();
    EXPECT_TRUE(leave.wait(kDeadlineMs));
    return RpcReply();
  });
  auto first = std::async(std::launch::async, [&] { return call(app, "go", request(1)); });
  auto second = std::async(std::launch::async, [&] { return call(app, "go", request(2)); });
  ASSERT_TRUE(entered.wait(kDeadlineMs));
  const auto stopper = startThread([&] {
    server->stop();
    stopped.post();
  });
  EXPECT_FALSE(stopped.wait(100)) << "stop waits for the handler";
  leave.post();
  EXPECT_TRUE(stopped.wait(kDeadlineMs));
  first.get();
  second.get();
  EXPECT_EQ(runs, 1);

  std::shared_ptr<RPCServer> suicidal;
  suicidal = serve(robot, "D1", [&suicidal](const RpcRequest&) {
    suicidal->stop();
    suicidal.reset();
    return RpcReply();
  });
  EXPECT_EQ(call(app, "go", request(1)).status, kOk) << "its last answer still arrives";
  EXPECT_THAT(call(app, "go", request(1), "D1", 200).status,
              testing::AnyOf(code(RpcStatus::kNoServer), code(RpcStatus::kServerGone)));
}

}  // namespace
