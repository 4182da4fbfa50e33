// A request's round trip: the library, its request layer alone, raw libddsc, gRPC; the server in a
// process of its own, the client in another. One after the other in blocks, everything else running
// on idly.

#include <unistd.h>

#include <list>
#include <optional>

#include "cases/HostCases.h"
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

/// The library's request layer by itself, with a server of its own.
struct LayerPair {
  LayerPair(const char* device, const std::string& request, const std::string& reply)
      : server(startRole("rpc-server",
                         object({{"domain", kHostDomain}, {"device", device}, {"reply", reply}}))),
        client(startRole(
            "rpc-client",
            object({{"domain", kHostDomain}, {"device", device}, {"request", request}}))) {}
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
  LayerPair layer("SAME", texts.request, texts.reply);
  LayerPair layerTiny("TINY", kTinyRequest, kTinyReply);

  enum Side { kSdk, kRaw, kRawWaitSet, kRawTiny, kLayer, kLayerTiny, kGrpc };
  std::vector<Contender> sides = {
      {sdk, {}},          {raw.client, {}},      {rawWaitSet.client, {}}, {rawTiny.client, {}},
      {layer.client, {}}, {layerTiny.client, {}}};
#ifdef BENCH_GRPC
  GrpcPair grpc(texts);
  sides.push_back({grpc.client, {}});
#endif
  Json::Value run = command("run");
  run["count"] = plan.of(50, 100, 100);
  interleave(sides, run, plan.of(3U, 100U, 1000U));

  std::vector<Row> rows;
  const auto add = [&](Row row, Side ours, Side baseline, std::optional<double> wantedP50 = {},
                       std::optional<double> wantedP99 = {}) {
    rows.push_back(compare(std::move(row), scaled(sides[ours].ns, kUsPerNs),
                           scaled(sides[baseline].ns, kUsPerNs), wantedP50, wantedP99));
  };
  const char* const ours = "queryMotionState";
  const Row againstGrpc =
      rowOf("rpc.query_motion_state.grpc", ours, "gRPC unary, Unix socket", "us");
  add(rowOf("rpc.query_motion_state.raw", ours, "raw libddsc, same texts", "us"), kSdk, kRaw, 1.5,
      2.0);
  rows.back().note = std::to_string(texts.request.size()) + " bytes asked, " +
                     std::to_string(texts.reply.size()) + " answered";
  if (sides.size() > kGrpc) {
    add(againstGrpc, kSdk, kGrpc, 0.9);
  } else {
    rows.push_back(againstGrpc);
    rows.back().note = "not measured: gRPC isn't installed";
  }
  add(rowOf("rpc.query_motion_state.raw_waitset", ours, "raw libddsc, caller in a wait set", "us"),
      kSdk, kRawWaitSet);
  add(rowOf("rpc.layer.raw", "request layer alone, same documents", "raw libddsc, same texts",
            "us"),
      kLayer, kRaw);
  add(rowOf("rpc.layer_tiny.raw", "request layer alone, tiny documents", "raw libddsc, tiny texts",
            "us"),
      kLayerTiny, kRawTiny);
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
                          "raw libddsc, same texts", "us"),
                    scaled(sides[0].ns, kUsPerNs), scaled(sides[1].ns, kUsPerNs), std::nullopt,
                    std::nullopt);
  const auto tail = [](const Figures& figures) {
    const std::string longest = "longest " + std::to_string(static_cast<long>(figures.max));
    if (!figures.p999) return longest;
    return "p99.9 " + std::to_string(static_cast<long>(*figures.p999)) + ", " + longest;
  };
  row.note = tail(*row.oursFigures) + "; raw: " + tail(*row.baselineFigures);
  return {row};
}

}  // namespace bench
