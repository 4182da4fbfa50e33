// A request's round trip: the library, its request layer alone, raw libddsc, gRPC; the server in a
// process of its own, the client in another. One after the other in blocks, everything else running
// on idly.

#include <unistd.h>

#include <list>
#include <optional>

#include "cases/Case.h"
#include "peers/RpcPair.h"

namespace bench {
namespace {

constexpr const char* kDevice = "BENCH-RPC";

/// What the library sends and gets for queryMotionState, as text.
struct Texts {
  std::string request = R"({"call":{"clientId":"bench"}})";
  std::string reply;
};

/// A raw libddsc client with a server of its own.
struct RawPair {
  RawPair(const char* topic, const std::string& request, const std::string& reply, const char* wait)
      : server(startRole("raw-server",
                         object({{"domain", kRawDomain}, {"topic", topic}, {"reply", reply}}))),
        client(startRole("raw-client", object({{"domain", kRawDomain},
                                               {"topic", topic},
                                               {"request", request},
                                               {"wait", wait}}))) {}
  Child server;
  Child client;
};

#ifdef BENCH_GRPC
struct GrpcPair {
  explicit GrpcPair(const Texts& texts)
      : socket("/tmp/bench_grpc_" + std::to_string(::getpid()) + ".sock"),
        server(Child::role(BENCH_GRPC, "grpc-server",
                           object({{"socket", socket}, {"reply", texts.reply}}))),
        client(Child::role(BENCH_GRPC, "grpc-client",
                           object({{"socket", socket}, {"request", texts.request}}))) {}
  std::string socket;
  Child server;
  Child client;
};
#endif

Row rowOf(const char* id, const char* ours, const char* baseline) {
  Row row;
  row.id = id;
  row.ours = ours;
  row.baseline = baseline;
  row.unit = "us";
  return row;
}

/// The library's client and the text that the raw ones have to carry.
Texts textsOf(Child& sdk) {
  Texts texts;
  const std::string state = sdk.ask(command("state"))["text"].asString();
  texts.reply = R"({"params":)" + state + R"(,"result":true})";
  return texts;
}

}  // namespace

std::vector<Row> measureRoundTrip(const Plan& plan) {
  const Child robot = startRobot(kDevice);
  Child sdk = startRole("sdk-client", object({{"device", kDevice}}));
  const Texts texts = textsOf(sdk);
  RawPair raw("round_trip", texts.request, texts.reply, "condition");
  RawPair rawWaitSet("round_trip_waitset", texts.request, texts.reply, "waitset");
  RawPair rawTiny("round_trip_tiny", kTinyRequest, kTinyReply, "condition");
  const Child rpcServer = startRole("rpc-server", object({{"domain", kHostDomain}}));
  Child rpc = startRole("rpc-client", object({{"domain", kHostDomain}}));

  std::vector<Contender> sides = {
      {sdk, {}}, {raw.client, {}}, {rawWaitSet.client, {}}, {rpc, {}}, {rawTiny.client, {}}};
#ifdef BENCH_GRPC
  GrpcPair grpc(texts);
  sides.push_back({grpc.client, {}});
#endif
  Json::Value run = command("run");
  run["count"] = plan.of(50, 100, 100);
  interleave(sides, run, plan.of(3U, 100U, 1000U));

  const auto us = [&sides](std::size_t side) { return scaled(sides[side].ns, kUsPerNs); };
  const char* const ours = "queryMotionState";
  std::vector<Row> rows;
  rows.push_back(compare(rowOf("rpc.query_motion_state.raw", ours, "raw libddsc, same texts"),
                         us(0), us(1), 1.5, 2.0));
#ifdef BENCH_GRPC
  rows.push_back(compare(rowOf("rpc.query_motion_state.grpc", ours, "gRPC unary, Unix socket"),
                         us(0), us(5), 0.9, std::nullopt));
#else
  rows.push_back(rowOf("rpc.query_motion_state.grpc", ours, "gRPC unary, Unix socket"));
  rows.back().note = "not measured: gRPC isn't installed";
#endif
  rows.push_back(compare(
      rowOf("rpc.query_motion_state.raw_waitset", ours, "raw libddsc, caller in a wait set"), us(0),
      us(2), std::nullopt, std::nullopt));
  rows.push_back(compare(
      rowOf("rpc.layer.raw", "request layer alone, tiny document", "raw libddsc, tiny text"), us(3),
      us(4), std::nullopt, std::nullopt));
  rows.front().note = std::to_string(texts.request.size()) + " bytes asked, " +
                      std::to_string(texts.reply.size()) + " answered";
  return rows;
}

std::vector<Row> measureSoak(const Plan& plan) {
  constexpr std::uint32_t kPerSecond = 100;
  constexpr std::uint32_t kBlockSeconds = 5;
  const Child robot = startRobot(kDevice);
  Child sdk = startRole("sdk-client", object({{"device", kDevice}}));
  const Texts texts = textsOf(sdk);
  RawPair raw("soak", texts.request, texts.reply, "condition");
  std::vector<Contender> sides = {{sdk, {}}, {raw.client, {}}};
  Json::Value run = command("run");
  run["intervalUs"] = 1'000'000 / kPerSecond;
  run["count"] = plan.of(1U, kBlockSeconds, kBlockSeconds) * kPerSecond;
  const std::uint32_t blocks = plan.soakSeconds / (2 * kBlockSeconds);
  interleave(sides, run, plan.of(1U, blocks, blocks));
  Row row = compare(rowOf("soak.query_motion_state.raw", "queryMotionState, 100 a second",
                          "raw libddsc, same texts"),
                    scaled(sides[0].ns, kUsPerNs), scaled(sides[1].ns, kUsPerNs), std::nullopt,
                    std::nullopt);
  const auto tail = [](const Figures& figures) {
    return "p99.9 " + std::to_string(static_cast<long>(figures.p999)) + ", longest " +
           std::to_string(static_cast<long>(figures.max));
  };
  row.note = tail(*row.oursFigures) + "; raw: " + tail(*row.baselineFigures);
  return {row};
}

}  // namespace bench
