#include "RpcIntake.h"

#include <utility>

namespace Pexal::PDBus {

bool RpcIntake::push(dds_instance_handle_t writer, RequestSample& request) {
  const std::size_t size = request.value.document._length;
  if (entries_.size() >= kMaxRequests || bytes_ + size > kMaxBytes) return false;
  std::size_t& queued = perClient_[writer];
  if (queued >= kMaxPerClient) return false;
  ++queued;
  bytes_ += size;
  entries_.push_back({writer, std::move(request)});
  return true;
}

std::optional<RpcIntake::Entry> RpcIntake::pop() {
  if (entries_.empty()) return std::nullopt;
  Entry entry = std::move(entries_.front());
  entries_.pop_front();
  bytes_ -= entry.request.value.document._length;
  const auto queued = perClient_.find(entry.writer);
  if (--queued->second == 0) perClient_.erase(queued);
  return entry;
}

void RpcIntake::clear() {
  entries_.clear();
  perClient_.clear();
  bytes_ = 0;
}

}  // namespace Pexal::PDBus
