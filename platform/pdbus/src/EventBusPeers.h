#pragma once

#include <dds/dds.h>

#include <cstdint>
#include <optional>
#include <unordered_map>
#include <vector>

#include "Partition.h"

namespace Pexal::PDBus {

/// Knows from which clients a server's bus may hand on events: an answer must be able to reach the
/// client's process, so the bus's own writer has to be matched with that process's event reader
/// first.
///
/// Threading: the bus's housekeeping thread only.
class EventBusPeers {
 public:
  /// How long an event waits for the way back before it is handed on without it.
  static constexpr std::uint64_t kWaitUs = 1'000'000;

  EventBusPeers(dds_entity_t reader, dds_entity_t writer) : reader_(reader), writer_(writer) {}

  /// To be called when matches of the reader or the writer have changed.
  void matchesChanged();
  /// Whether an event of that writer, here since `sinceUs`, may be handed on now.
  [[nodiscard]] bool mayHandOn(dds_instance_handle_t eventWriter, std::uint64_t sinceUs,
                               std::uint64_t nowUs);

 private:
  struct Peer {
    std::optional<PeerId> participant;  ///< nothing: it isn't matched any more
    bool reachable = false;             ///< or waited for long enough
  };
  [[nodiscard]] bool hasWayBack(const PeerId& participant);

  const dds_entity_t reader_;
  const dds_entity_t writer_;
  std::unordered_map<dds_instance_handle_t, Peer> peers_;
  std::optional<std::vector<PeerId>> listeners_;  ///< participants with a matched event reader
};

}  // namespace Pexal::PDBus
