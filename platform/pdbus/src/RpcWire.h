#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

#include "EndpointEntity.h"
#include "PDBus.h"
#include "pdbus/RPC.h"

namespace Pexal::PDBus {

using RequestSample = Sample<Pexal_PDBus_Request, Pexal_PDBus_Request_desc>;
using ReplySample = Sample<Pexal_PDBus_Reply, Pexal_PDBus_Reply_desc>;

/// Largest request or reply document, and longest service or method name, in bytes.
inline constexpr std::size_t kMaxDocument = 1U << 20;
inline constexpr std::size_t kMaxName = 255;

[[nodiscard]] inline std::string requestTopic(const std::string& server) {
  return server + "/rpc/request";
}
[[nodiscard]] inline std::string replyTopic(const std::string& server) {
  return server + "/rpc/reply";
}

/// What getLastErrno() gives after a call that ended with that status (not kOk).
[[nodiscard]] std::uint32_t errnoOf(RpcStatus status) noexcept;
/// True for the statuses that a server may answer with.
[[nodiscard]] bool isServerStatus(std::uint32_t status) noexcept;

}  // namespace Pexal::PDBus
