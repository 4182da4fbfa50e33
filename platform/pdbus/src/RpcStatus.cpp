#include <array>
#include <cerrno>

#include "RpcWire.h"

namespace Pexal::PDBus {
namespace {

struct StatusRow {
  RpcStatus status;
  bool fromServer;
  std::uint32_t error;
  const char* text;
};

constexpr std::array<StatusRow, 12> kStatuses{{
    {RpcStatus::kOk, true, 0, "kOk: answered by the server"},
    {RpcStatus::kTimeout, false, ETIMEDOUT, "kTimeout: no answer within the time-out"},
    {RpcStatus::kNoServer, false, EHOSTUNREACH, "kNoServer: no server found, nothing sent"},
    {RpcStatus::kServerGone, false, ECONNRESET,
     "kServerGone: the server vanished while the answer was awaited"},
    {RpcStatus::kStopped, false, ESHUTDOWN, "kStopped: the DDS layer is shut down"},
    {RpcStatus::kInvalidArgument, false, EINVAL,
     "kInvalidArgument: document or name too large, or bad device id"},
    {RpcStatus::kMalformedReply, false, EBADMSG,
     "kMalformedReply: the answer is no JSON document or exceeds the bounds"},
    {RpcStatus::kSendFailed, false, EIO, "kSendFailed: the DDS layer didn't take the request"},
    {RpcStatus::kNoService, true, ENOENT, "kNoService: the server doesn't serve that service"},
    {RpcStatus::kNoMethod, true, ENOSYS, "kNoMethod: the service has no such method"},
    {RpcStatus::kMalformedRequest, true, EPROTO,
     "kMalformedRequest: the server couldn't read the request"},
    {RpcStatus::kHandlerFailed, true, EREMOTEIO, "kHandlerFailed: the server's handler failed"},
}};

constexpr bool isIndexedByStatus() {
  for (std::size_t i = 0; i < kStatuses.size(); ++i) {
    if (static_cast<std::size_t>(kStatuses[i].status) != i) return false;
  }
  return true;
}
static_assert(isIndexedByStatus());

}  // namespace

const char* RPCServer::dumpCode(std::uint32_t status) noexcept {
  return status < kStatuses.size() ? kStatuses[status].text : "unknown RPC status";
}

std::uint32_t errnoOf(RpcStatus status) noexcept {
  const auto index = static_cast<std::size_t>(status);
  return index < kStatuses.size() ? kStatuses[index].error : EPROTO;
}

bool isServerStatus(std::uint32_t status) noexcept {
  return status < kStatuses.size() && kStatuses[status].fromServer;
}

}  // namespace Pexal::PDBus
