#pragma once

#include <vector>

#include "core/Context.h"
#include "doctor/Finding.h"
#include "doctor/Machine.h"
#include "doctor/Network.h"
#include "doctor/RobotSearch.h"

namespace robotctl::doctor {

struct PeerReport {
  Findings findings;
  std::vector<RobotAnswer> robots;  ///< those that applications on this machine find
};

/// Can DDS start, who is there, which robots answer, and if none does, whether they are in another
/// domain or on another interface. Takes --find-timeout at most, and some seconds more for other
/// domains. Throws Interrupted.
[[nodiscard]] PeerReport checkPeers(const Machine& machine,
                                    const std::vector<NetworkInterface>& all,
                                    const Context& context, LogCapture& log);

}  // namespace robotctl::doctor
