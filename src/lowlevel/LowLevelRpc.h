#pragma once

#include <json/value.h>

#include <cstdint>
#include <memory>

#include "pbase/CMutex.h"
#include "pdbus/RPC.h"

namespace orvane::RobotSdk::lowlevel {

/// A server of the low-level client and the words with which the lines about it begin.
struct LowLevelServer {
  const char* name;
  const char* service;
  const char* absentWords;
  const char* transportWords;
  const char* refusalWords;
};

inline constexpr LowLevelServer kMotionServer{"motionServer", "motionService", "low level ",
                                              "motion ", ""};
inline constexpr LowLevelServer kCerebellumServer{
    "cerebellumServer", "robotAppService", "low level cerebellum ", "cerebellum ", "cerebellum "};

/// True when `object` is one and its member reads true. Takes any document.
[[nodiscard]] bool readsTrue(const Json::Value& object, const char* member);

/// The low-level client's requests. Every failure is logged, once per request.
///
/// Threading contract: any thread. mutex_ guards motion_; it is a leaf and never held across a
/// request.
class LowLevelRpc {
 public:
  /// Asks the service for the motion server's client, in place of the former one. False: there is
  /// none.
  [[nodiscard]] bool renewMotionClient();

  /// A request of the motion server; waits for the answer, at most `timeoutMs`. `output` is the
  /// answer's "params" (null: none) whatever the verdict, and stays as it is without an answer.
  [[nodiscard]] bool callMotion(const char* method, const Json::Value& params, Json::Value& output,
                                std::uint32_t timeoutMs);
  /// The same of the cerebellum's server.
  [[nodiscard]] bool callCerebellum(const char* method, const Json::Value& params,
                                    Json::Value& output, std::uint32_t timeoutMs);
  /// A request of the motion server that nobody answers; blocks for 500 ms at the most.
  bool sendAction(const char* method, const Json::Value& params);

 private:
  using Client = std::shared_ptr<Pexal::PDBus::RPCClient>;
  [[nodiscard]] Client motion() const;

  mutable Pexal::PBase::CMutex mutex_;
  Client motion_;
};

}  // namespace orvane::RobotSdk::lowlevel
