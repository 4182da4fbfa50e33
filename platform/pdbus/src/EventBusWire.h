#pragma once

#include <cstddef>
#include <string>

#include "EndpointEntity.h"
#include "PDBus.h"

namespace Pexal::PDBus {

using EventSample = Sample<Pexal_PDBus_Event, Pexal_PDBus_Event_desc>;

/// Largest payload and longest topic of an event, in bytes.
inline constexpr std::size_t kMaxEventPayload = 256U << 10;
inline constexpr std::size_t kMaxEventTopic = 255;

[[nodiscard]] inline std::string eventsToClients(const std::string& server) {
  return server + "/event/client";
}
[[nodiscard]] inline std::string eventsToServer(const std::string& server) {
  return server + "/event/server";
}

}  // namespace Pexal::PDBus
