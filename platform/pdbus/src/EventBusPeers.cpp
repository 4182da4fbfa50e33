#include "EventBusPeers.h"

#include <algorithm>

#include "EndpointEntity.h"

namespace Pexal::PDBus {

void EventBusPeers::matchesChanged() {
  listeners_.reset();
  const std::vector<dds_instance_handle_t> matched = matchedWriters(reader_);
  std::erase_if(peers_, [&matched](const auto& entry) {
    return std::ranges::find(matched, entry.first) == matched.end();
  });
}

bool EventBusPeers::mayHandOn(dds_instance_handle_t eventWriter, std::uint64_t sinceUs,
                              std::uint64_t nowUs) {
  const auto [found, added] = peers_.try_emplace(eventWriter);
  Peer& peer = found->second;
  if (added) {
    if (const auto writer = matchedWriter(reader_, eventWriter)) {
      peer.participant = writer->participant;
    }
  }
  if (!peer.reachable) {
    peer.reachable = writer_ <= 0 || !peer.participant || nowUs >= sinceUs + kWaitUs ||
                     hasWayBack(*peer.participant);
  }
  return peer.reachable;
}

bool EventBusPeers::hasWayBack(const PeerId& participant) {
  if (!listeners_) {
    listeners_.emplace();
    for (const dds_instance_handle_t handle : matchedReaders(writer_)) {
      if (const auto reader = matchedReader(writer_, handle)) {
        listeners_->push_back(reader->participant);
      }
    }
  }
  return std::ranges::find(*listeners_, participant) != listeners_->end();
}

}  // namespace Pexal::PDBus
