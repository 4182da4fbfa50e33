#pragma once

#include <dds/dds.h>

#include <cstddef>
#include <cstdint>
#include <deque>
#include <optional>
#include <unordered_map>

#include "RpcWire.h"

namespace Pexal::PDBus {

/// The requests that wait for the server's thread, in order of arrival. Bounded per client, so that
/// one that floods crowds out nobody else, and in total; what exceeds a bound is dropped (its
/// caller runs into its time-out). Not synchronised.
class RpcIntake {
 public:
  static constexpr std::size_t kMaxPerClient = 256;
  static constexpr std::size_t kMaxRequests = 4096;
  static constexpr std::size_t kMaxBytes = 64U << 20;

  struct Entry {
    dds_instance_handle_t writer;
    RequestSample request;
  };

  /// False: dropped.
  bool push(dds_instance_handle_t writer, RequestSample& request);
  [[nodiscard]] std::optional<Entry> pop();
  [[nodiscard]] bool empty() const { return entries_.empty(); }
  void clear();

 private:
  std::deque<Entry> entries_;
  std::unordered_map<dds_instance_handle_t, std::size_t> perClient_;
  std::size_t bytes_ = 0;
};

}  // namespace Pexal::PDBus
