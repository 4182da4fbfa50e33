#include <gmock/gmock.h>

#include <atomic>
#include <cstring>
#include <future>
#include <mutex>
#include <optional>
#include <thread>
#include <vector>

#include "PDBus.h"
#include "pbase/CSemaphore.h"
#include "pbase/System.h"
#include "pdbus/RPC.h"
#include "pdbus_rpc_support.h"

using namespace pdbus_test;
using namespace Pexal::PDBus;
using Pexal::PBase::CSemaphore;
using Pexal::PBase::getLastErrno;
using Pexal::PBase::setLastErrno;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

constexpr std::uint32_t kRobot = 1;
constexpr std::uint32_t kApp = 2;
constexpr std::uint32_t kPeer = 3;
constexpr std::uint32_t kLongMs = 10'000;
constexpr auto kOk = static_cast<std::uint32_t>(RpcStatus::kOk);
constexpr auto code(RpcStatus status) {
  return static_cast<std::uint32_t>(status);
}

std::shared_ptr<RPCServer> serve(const Node& node, const std::string& device,
                                 RPCServer::Handler handler) {
  auto server = RPCServer::create(node.factory, "host", "robotServer", device, std::move(handler));
  EXPECT_NE(server, nullptr);
  return server;
}

RpcReply echo(const RpcRequest& request) {
  return {request.document, 0, RpcStatus::kOk};
}

struct Called {
  std::uint32_t status;
  Json::Value response;
  std::uint32_t error;
  std::uint64_t ms;
};

Called call(const Node& node, const std::string& method, const Json::Value& request,
            const std::string& device = "D1", std::uint32_t timeoutMs = kLongMs) {
  const auto client = node.factory->rpcClient("robotServer");
  Called result{99, "untouched", 0, CTime::getCurrentMilliSecond()};
  setLastErrno(4711);
  result.status = client->call("service", method, request, result.response, timeoutMs, device);
  result.error = getLastErrno();
  result.ms = CTime::getCurrentMilliSecond() - result.ms;
  return result;
}

std::uint32_t sendAction(const Node& node, const Json::Value& request) {
  return node.factory->rpcClient("robotServer")->sendAction("service", "act", request, "D1");
}

/// Remembers the requests that it carried out.
class Log {
 public:
  RpcReply operator()(const RpcRequest& request) {
    const std::lock_guard lock(mutex_);
    entries_.push_back(request.document["n"].asInt());
    return {};
  }
  std::vector<int> entries() {
    const std::lock_guard lock(mutex_);
    return entries_;
  }

 private:
  Pexal::PBase::CMutex mutex_;  // guards entries_
  std::vector<int> entries_;
};

Json::Value numbered(int n) {
  return json("{\"n\":" + std::to_string(n) +
              "}");  // as it comes back: integers have several types
}

/// A client of device "D1" that speaks the wire protocol by hand.
class RawClient {
 public:
  static constexpr const char* kHex = "000102030405060708090a0b0c0d0e0f";

  explicit RawClient(const std::string& announced = std::string("client/") + kHex)
      : requests_(participant_.topic(Pexal_PDBus_Request_desc, "robotServer/rpc/request")),
        replies_(participant_.topic(Pexal_PDBus_Reply_desc, "robotServer/rpc/reply")),
        reader_(participant_.reader(replies_, std::string("client/") + kHex)),
        writer_(participant_.writer(requests_, "device/D1", announced)) {
    for (std::uint8_t i = 0; i < 16; ++i) id_[i] = i;
  }

  bool matched() {
    return eventually([this] { return hasReader(writer_); });
  }
  bool matchedBothWays() {
    return matched() && eventually([this] { return hasWriter(reader_); });
  }
  void write(std::uint64_t number, const std::string& document, bool oneWay = false,
             const std::string& method = "act", std::uint8_t firstIdByte = 0) {
    Pexal_PDBus_Request request{};
    std::memcpy(request.client, id_, sizeof(id_));
    request.client[0] = firstIdByte;
    request.number = number;
    request.oneWay = oneWay;
    request.service = const_cast<char*>("service");
    request.method = const_cast<char*>(method.c_str());
    request.document = octets(document);
    EXPECT_EQ(dds_write(writer_, &request), DDS_RETCODE_OK);
  }
  /// (number, status) of the next reply; nothing when none comes in time.
  std::optional<std::pair<std::uint64_t, std::uint32_t>> read() {
    Pexal_PDBus_Reply reply{};
    void* pointer = &reply;
    dds_sample_info_t info;
    const bool came = eventually(
        [&] { return dds_take(reader_, &pointer, &info, 1, 1) == 1 && info.valid_data; });
    const auto result = std::make_pair(reply.number, reply.status);
    dds_sample_free(&reply, &Pexal_PDBus_Reply_desc, DDS_FREE_CONTENTS);
    if (!came) return std::nullopt;
    return result;
  }

 private:
  RawParticipant participant_{kPeer};
  RawEntity requests_;
  RawEntity replies_;
  RawEntity reader_;
  RawEntity writer_;
  std::uint8_t id_[16];
};

/// A server of device "D1" that speaks the wire protocol by hand, for the first client it meets.
class RawServer {
 public:
  RawServer()
      : requests_(participant_.topic(Pexal_PDBus_Request_desc, "robotServer/rpc/request")),
        replies_(participant_.topic(Pexal_PDBus_Reply_desc, "robotServer/rpc/reply")),
        reader_(participant_.reader(requests_, "device/D1")) {}

  /// Makes the way back once the client announces itself.
  bool meetClient() {
    std::string announced;
    const bool met = eventually([&] {
      dds_instance_handle_t handle = 0;
      if (dds_get_matched_publications(reader_, &handle, 1) < 1) return false;
      auto* const data = dds_get_matched_publication_data(reader_, handle);
      void* bytes = nullptr;
      std::size_t size = 0;
      if (data != nullptr && dds_qget_userdata(data->qos, &bytes, &size)) {
        announced.assign(static_cast<const char*>(bytes), size);
      }
      dds_free(bytes);
      if (data != nullptr) dds_builtintopic_free_endpoint(data);
      return !announced.empty();
    });
    if (!met) return false;
    writer_.emplace(participant_.writer(replies_, announced));
    return eventually([this] { return hasReader(*writer_); });
  }
  /// Answers the next request with that; false when none comes.
  bool answer(const std::string& document, std::uint32_t status = 0, int times = 1) {
    Pexal_PDBus_Request request{};
    if (!receive(request)) return false;
    Pexal_PDBus_Reply reply{};
    std::memcpy(reply.client, request.client, sizeof(reply.client));
    reply.number = request.number;
    reply.status = status;
    reply.document = octets(document);
    for (int i = 0; i < times; ++i) EXPECT_EQ(dds_write(*writer_, &reply), DDS_RETCODE_OK);
    dds_sample_free(&request, &Pexal_PDBus_Request_desc, DDS_FREE_CONTENTS);
    return true;
  }
  bool swallow() {
    Pexal_PDBus_Request request{};
    const bool came = receive(request);
    dds_sample_free(&request, &Pexal_PDBus_Request_desc, DDS_FREE_CONTENTS);
    return came;
  }
  void vanish() {
    writer_.reset();
    reader_.remove();
  }

 private:
  bool receive(Pexal_PDBus_Request& request) {
    void* pointer = &request;
    dds_sample_info_t info;
    return eventually(
        [&] { return dds_take(reader_, &pointer, &info, 1, 1) == 1 && info.valid_data; });
  }

  RawParticipant participant_{kPeer};
  RawEntity requests_;
  RawEntity replies_;
  RawEntity reader_;
  std::optional<RawEntity> writer_;
};

class AnyWire : public testing::TestWithParam<std::uint32_t> {};
// In one domain object libddsc delivers on the writer's own thread, else over the network.
INSTANTIATE_TEST_SUITE_P(Rpc, AnyWire, testing::Values(kRobot, kApp));

TEST_P(AnyWire, CarriesNamesDocumentAndReason) {
  const Node robot(kRobot);
  const Node app(GetParam());
  std::uint32_t reason = 29;
  const auto server = serve(robot, "D1", [&reason](const RpcRequest& request) {
    RpcReply reply;
    reply.document["heard"] = request.service + "::" + request.method;
    reply.document["oneWay"] = request.oneWay;
    reply.document["request"] = request.document;
    reply.reason = reason;
    return reply;
  });
  const Json::Value request = json(R"({"call": {"clientId": "ü"}, "params": [1, 2.5, null]})");

  Called called = call(app, "go", request);
  EXPECT_EQ(called.status, kOk);
  EXPECT_EQ(called.error, 29U);
  EXPECT_EQ(called.response["heard"], "service::go");
  EXPECT_EQ(called.response["oneWay"], false);
  EXPECT_EQ(called.response["request"], request);

  reason = 0;
  called = call(app, "go", request);
  EXPECT_EQ(called.status, kOk);
  EXPECT_EQ(called.error, 0U) << "a reason of an earlier call is gone";
}

TEST(Rpc, RefusalsOfTheServerAndFailuresOfItsHandlerHaveStatuses) {
  const Node robot(kRobot);
  const Node app(kApp);
  const auto server = serve(robot, "D1", [](const RpcRequest& request) -> RpcReply {
    if (request.method == "service?") return {{}, 29, RpcStatus::kNoService};
    if (request.method == "method?") return {{}, 29, RpcStatus::kNoMethod};
    if (request.method == "nonsense") return {{}, 0, RpcStatus::kServerGone};
    if (request.method == "large") return {std::string(2U << 20, 'x'), 0, RpcStatus::kOk};
    if (request.method == "int") throw 5;
    throw std::runtime_error("broken");
  });
  const std::vector<std::pair<std::string, RpcStatus>> expected = {
      {"service?", RpcStatus::kNoService},     {"method?", RpcStatus::kNoMethod},
      {"nonsense", RpcStatus::kHandlerFailed}, {"large", RpcStatus::kHandlerFailed},
      {"int", RpcStatus::kHandlerFailed},      {"exception", RpcStatus::kHandlerFailed}};
  for (const auto& [method, status] : expected) {
    const Called called = call(app, method, Json::objectValue);
    EXPECT_EQ(called.status, code(status)) << method;
    EXPECT_EQ(called.response, "untouched") << method;
    EXPECT_NE(called.error, 0U) << method;
    EXPECT_NE(called.error, 29U) << method << ": that would read as a revoked lease";
  }
}

TEST(Rpc, EveryStatusHasANameAndAText) {
  std::vector<std::string> texts;
  for (std::uint32_t status = 0; status < 14; ++status)
    texts.push_back(RPCServer::dumpCode(status));
  EXPECT_THAT(texts[1], testing::StartsWith("kTimeout: "));
  EXPECT_EQ(texts[12], texts[13]) << "unknown ones say so";
  texts.pop_back();
  std::ranges::sort(texts);
  EXPECT_EQ(std::ranges::adjacent_find(texts), texts.end());
}

TEST(Rpc, ADeviceIdReachesExactlyItsRobot) {
  const Node robot(kRobot);
  const Node app(kApp);
  const std::vector<std::string> ids = {"",
                                        "*",
                                        "?",
                                        "a*",
                                        "a?",
                                        "a",
                                        "%2a",
                                        "\"q\" 'x'",
                                        "D1/[a-z]*\n",
                                        "\xff",
                                        "D1",
                                        "device/D1",
                                        std::string("a\0b", 3),
                                        std::string(255, '*')};
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
  const Node second(4);
  RawClient bystander;
  const auto server = serve(robot, "D1", echo);
  ASSERT_TRUE(bystander.matchedBothWays());

  std::atomic<int> right{0};
  std::vector<std::jthread> callers;
  for (int thread = 0; thread < 8; ++thread) {
    callers.emplace_back([&, thread] {
      for (int i = 0; i < 50; ++i) {
        const Json::Value request = numbered(thread * 1000 + i);
        if (call(thread % 2 == 0 ? first : second, "echo", request).response == request) ++right;
      }
    });
  }
  callers.clear();
  EXPECT_EQ(right, 400);

  bystander.write(1, "{}");
  EXPECT_EQ(bystander.read(), std::make_pair(std::uint64_t{1}, kOk)) << "nobody else's reply came";
}

TEST(Rpc, AFirstCallRightAfterTheStartSucceeds) {
  for (int round = 0; round < 10; ++round) {
    const Node app(kApp);
    auto robot = std::async(std::launch::async, [] {
      auto node = std::make_unique<Node>(kRobot);
      auto server = serve(*node, "D1", echo);
      return std::make_pair(std::move(node), std::move(server));
    });
    EXPECT_EQ(call(app, "echo", numbered(round)).response, numbered(round));
    EXPECT_EQ(sendAction(app, numbered(round)), kOk);
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
  EXPECT_LT(CTime::getCurrentMilliSecond() - start, 100U);
}

TEST(Rpc, ALateAnswerIsNobodysAnswer) {
  const Node robot(kRobot);
  const Node app(kApp);
  CSemaphore entered(0);
  CSemaphore leave(0);
  const auto server = serve(robot, "D1", [&](const RpcRequest& request) {
    if (request.method == "slow") {
      entered.post();
      EXPECT_TRUE(leave.wait(kLongMs));
    }
    return echo(request);
  });
  ASSERT_EQ(call(app, "echo", numbered(0)).status, kOk);

  const Called slow = call(app, "slow", numbered(1), "D1", 200);
  EXPECT_EQ(slow.status, code(RpcStatus::kTimeout));
  EXPECT_EQ(slow.response, "untouched");
  EXPECT_GE(slow.ms, 200U);
  EXPECT_LT(slow.ms, 1200U);
  EXPECT_TRUE(entered.wait(kLongMs));
  leave.post();
  EXPECT_EQ(call(app, "echo", numbered(2)).response, numbered(2));
}

TEST(Rpc, ACallEndsEarlyWhenItsServerVanishes) {
  const Node app(kApp);
  RawServer server;
  auto called = std::async(std::launch::async, [&app] { return call(app, "go", numbered(1)); });
  ASSERT_TRUE(server.meetClient());
  ASSERT_TRUE(server.swallow());
  server.vanish();
  const Called result = called.get();
  EXPECT_EQ(result.status, code(RpcStatus::kServerGone));
  EXPECT_EQ(result.error, static_cast<std::uint32_t>(ECONNRESET));
  EXPECT_LT(result.ms, kLongMs / 2);
}

TEST(Rpc, AShutdownEndsWaitingCallsAtOnce) {
  Node app(kApp);
  const auto client = app.factory->rpcClient("robotServer");
  RawServer server;
  auto awaitingAnswer =
      std::async(std::launch::async, [&] { return call(app, "go", numbered(1)); });
  auto awaitingServer =
      std::async(std::launch::async, [&] { return call(app, "go", numbered(1), "nobody"); });
  ASSERT_TRUE(server.meetClient());
  ASSERT_TRUE(server.swallow());

  const std::uint64_t start = CTime::getCurrentMilliSecond();
  app.factory->shutdown();
  EXPECT_LT(CTime::getCurrentMilliSecond() - start, 3000U);
  EXPECT_EQ(awaitingAnswer.get().status, code(RpcStatus::kStopped));
  EXPECT_EQ(awaitingServer.get().status, code(RpcStatus::kStopped));
  Json::Value response;
  EXPECT_EQ(client->call("service", "go", numbered(1), response, kLongMs, "D1"),
            code(RpcStatus::kStopped));
  EXPECT_EQ(client->sendAction("service", "go", numbered(1), "new"), code(RpcStatus::kStopped));
}

TEST(Rpc, AnswersAreCheckedAndHandedOnAsTheyAre) {
  const Node app(kApp);
  RawServer server;
  auto first = std::async(std::launch::async, [&app] { return call(app, "go", numbered(0)); });
  ASSERT_TRUE(server.meetClient());
  ASSERT_TRUE(server.answer("{}"));
  ASSERT_EQ(first.get().status, kOk);

  const auto answered = [&](const std::string& document, std::uint32_t status = 0, int times = 1) {
    auto called = std::async(std::launch::async, [&app] { return call(app, "go", numbered(1)); });
    EXPECT_TRUE(server.answer(document, status, times));
    return called.get();
  };
  for (const std::string& bad : {std::string("{\"a\":"), std::string(), std::string("\xff\xfe"),
                                 nested(1000), std::string(100'000, '['), kTooLarge}) {
    const Called called = answered(bad);
    EXPECT_EQ(called.status, code(RpcStatus::kMalformedReply)) << bad.substr(0, 20);
    EXPECT_EQ(called.response, "untouched");
    EXPECT_NE(called.error, 0U);
  }
  for (const char* const odd : {"[1]", "3", "null", "\"text\"", "{\"result\":{}}"}) {
    const Called called = answered(odd);
    EXPECT_EQ(called.status, kOk) << odd;
    EXPECT_EQ(called.response, json(odd));
  }
  // A status that no server may answer with.
  EXPECT_EQ(answered("{}", 1).status, code(RpcStatus::kMalformedReply));
  EXPECT_EQ(answered("{}", 77).status, code(RpcStatus::kMalformedReply));
  EXPECT_EQ(answered("{}", 0, 3).status, kOk);
  EXPECT_EQ(answered("{\"last\":1}").response, json("{\"last\":1}"))
      << "copies answered nothing else";
}

TEST(Rpc, GarbageIsRefusedOrDroppedAndHarmsNobody) {
  const Node robot(kRobot);
  const Node app(kApp);
  Log log;
  const auto server = serve(robot, "D1", std::ref(log));
  RawClient peer;
  ASSERT_TRUE(peer.matchedBothWays());

  std::uint64_t number = 0;
  for (const std::string& bad :
       {std::string("no json"), std::string(), std::string("[1]"), std::string("null"),
        "{\"n\":" + nested(1000) + "}", "{\"n\":" + kTooLarge + "}"}) {
    peer.write(++number, bad);
    EXPECT_EQ(peer.read(), std::make_pair(number, code(RpcStatus::kMalformedRequest)))
        << bad.substr(0, 20);
  }
  peer.write(++number, "{\"n\":1}", false, std::string(256, 'm'));
  EXPECT_EQ(peer.read(), std::make_pair(number, code(RpcStatus::kMalformedRequest)));

  peer.write(0, "{\"n\":2}");                          // no number
  peer.write(++number, "{\"n\":3}", false, "m", 200);  // in another's name
  peer.write(UINT64_MAX, "{\"n\":4}");                 // wild, but its own affair
  EXPECT_EQ(peer.read(), std::make_pair(UINT64_MAX, kOk));

  RawParticipant stranger(5);  // announces nothing
  const RawEntity topic = stranger.topic(Pexal_PDBus_Request_desc, "robotServer/rpc/request");
  const RawEntity writer = stranger.writer(topic, "device/D1", "client/*");
  ASSERT_TRUE(eventually([&] { return hasReader(writer); }));
  Pexal_PDBus_Request request{};
  request.number = 1;
  request.oneWay = true;
  request.service = request.method = const_cast<char*>("x");
  const std::string document = "{\"n\":5}";
  request.document = octets(document);
  EXPECT_EQ(dds_write(writer, &request), DDS_RETCODE_OK);
  EXPECT_EQ(dds_wait_for_acks(writer, DDS_SECS(5)), DDS_RETCODE_OK);

  EXPECT_EQ(call(app, "good", numbered(6)).status, kOk);
  EXPECT_THAT(log.entries(), ElementsAre(4, 6));

  EXPECT_EQ(call(app, "go", std::string(2U << 20, 'x')).status, code(RpcStatus::kInvalidArgument));
  EXPECT_EQ(call(app, std::string(256, 'm'), numbered(7)).status,
            code(RpcStatus::kInvalidArgument));
}

TEST(Rpc, ARequestIsCarriedOutAtMostOnce) {
  const Node robot(kRobot);
  Log log;
  const auto server = serve(robot, "D1", std::ref(log));
  RawClient peer;
  ASSERT_TRUE(peer.matchedBothWays());
  for (const int number : {5, 3, 5, 4, 3, 3, 700, 4, 6}) {
    peer.write(static_cast<std::uint64_t>(number), "{\"n\":" + std::to_string(number) + "}");
  }
  for (const std::uint64_t number : {5, 3, 4, 700}) {
    EXPECT_EQ(peer.read(), std::make_pair(number, kOk));
  }
  peer.write(701, "{\"n\":701}");
  EXPECT_EQ(peer.read(), std::make_pair(std::uint64_t{701}, kOk));
  EXPECT_THAT(log.entries(), ElementsAre(5, 3, 4, 700, 701)) << "4 and 6 are too far back to tell";
}

TEST(Rpc, RequestsOfOneClientAreCarriedOutInOrder) {
  const Node robot(kRobot);
  const Node app(kApp);
  Log log;
  const auto server = serve(robot, "D1", std::ref(log));
  std::vector<int> expected;
  for (int i = 0; i < 100; ++i) {
    expected.push_back(i);
    if (i % 10 == 0) {
      EXPECT_EQ(call(app, "call", numbered(i)).status, kOk);
    } else {
      EXPECT_EQ(sendAction(app, numbered(i)), kOk);
    }
  }
  EXPECT_TRUE(eventually([&] { return log.entries().size() == expected.size(); }));
  EXPECT_EQ(log.entries(), expected);
}

TEST(Rpc, AOneWayRequestReachesTheServerAlthoughItsClientLeavesAtOnce) {
  const Node robot(kRobot);
  Log log;
  CSemaphore busy(0);
  CSemaphore leave(0);
  const auto server = serve(robot, "D1", [&](const RpcRequest& request) {
    if (request.method == "hold") {
      busy.post();
      EXPECT_TRUE(leave.wait(kLongMs));
      return RpcReply();
    }
    return log(request);
  });
  std::vector<int> expected;
  for (int round = 0; round < 5; ++round) {
    const Node app(kApp, 200);  // a fifth of what it sends is lost
    ASSERT_EQ(call(app, "call", numbered(-round)).status, kOk);
    ASSERT_EQ(sendAction(app, numbered(round)), kOk);
    expected.insert(expected.end(), {-round, round});
    app.factory->shutdown();
    EXPECT_TRUE(eventually([&] { return log.entries() == expected; })) << round;
  }

  // The same while the server is busy with something else: the client is long gone.
  {
    const Node app(kApp);
    const Node other(kPeer);
    ASSERT_EQ(call(app, "call", numbered(10)).status, kOk);
    auto held = std::async(std::launch::async, [&] { return call(other, "hold", numbered(0)); });
    ASSERT_TRUE(busy.wait(kLongMs));
    ASSERT_EQ(sendAction(app, numbered(11)), kOk);
    app.factory->shutdown();
    leave.post();
    EXPECT_EQ(held.get().status, kOk);
  }
  EXPECT_TRUE(eventually([&] { return log.entries().back() == 11; }));
}

TEST(Rpc, LossOnBothSidesCostsNoRequest) {
  const Node robot(kRobot, 50);
  const Node app(kApp, 50);
  Log log;
  const auto server = serve(robot, "D1", std::ref(log));
  std::vector<int> expected;
  for (int i = 0; i < 200; ++i) {
    expected.push_back(i);
    EXPECT_EQ(call(app, "call", numbered(i)).status, kOk) << i;
  }
  EXPECT_EQ(log.entries(), expected);
}

TEST(Rpc, AStoppedServerCallsItsHandlerNoMore) {
  const Node robot(kRobot);
  const Node app(kApp);
  CSemaphore entered(0);
  std::atomic<bool> inHandler{false};
  std::atomic<int> runs{0};
  auto server = serve(robot, "D1", [&](const RpcRequest&) {
    inHandler = true;
    ++runs;
    entered.post();
    Pexal::PBase::CThread::sleep(100);
    inHandler = false;
    return RpcReply();
  });
  auto first = std::async(std::launch::async, [&] { return call(app, "go", numbered(1)); });
  auto second = std::async(std::launch::async, [&] { return call(app, "go", numbered(2)); });
  ASSERT_TRUE(entered.wait(kLongMs));
  server->stop();
  EXPECT_FALSE(inHandler) << "stop waits for the handler";
  first.get();
  second.get();
  EXPECT_EQ(runs, 1);

  std::shared_ptr<RPCServer> suicidal;
  suicidal = serve(robot, "D1", [&suicidal](const RpcRequest&) {
    suicidal->stop();
    suicidal.reset();
    return RpcReply();
  });
  EXPECT_EQ(call(app, "go", numbered(1)).status, kOk) << "its last answer still arrives";
  EXPECT_THAT(call(app, "go", numbered(1), "D1", 200).status,
              testing::AnyOf(code(RpcStatus::kNoServer), code(RpcStatus::kServerGone)));
}

}  // namespace
