#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "doctor/Network.h"
#include "doctor/Spdp.h"

namespace robotctl::doctor {

struct SeenParticipant {
  std::uint32_t domain;
  std::string interface;
  Participant participant;
};

/// Asks the participants of every domain on these interfaces to announce themselves, and collects
/// who does within `windowMs`, each once, 1024 at most. By multicast, and on this machine's own
/// participant slots one by one too, for where multicast doesn't work. `pause` is called often;
/// what it throws ends the scan.
[[nodiscard]] std::vector<SeenParticipant> scanDomains(
    const std::vector<NetworkInterface>& interfaces, std::uint32_t windowMs,
    const std::function<void()>& pause);

}  // namespace robotctl::doctor
