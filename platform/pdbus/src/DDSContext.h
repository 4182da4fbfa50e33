#pragma once

#include <dds/dds.h>

#include <memory>
#include <string>

#include "Endpoints.h"
#include "pdbus/IDDSFactory.h"

namespace Pexal::PDBus {

/// The factory as the rooms of this library see it.
class DDSContext : public IDDSFactory {
 public:
  /// The participant on the domain of that name; 0 when not started or unknown. Valid until the
  /// context has run finishStop on everything attached.
  [[nodiscard]] virtual dds_entity_t participantOf(const std::string& domain) = 0;
  /// Has `endpoint` stopped with the context (RPC servers, readers). False when it isn't started.
  virtual bool attach(const std::weak_ptr<Stoppable>& endpoint) = 0;
};

}  // namespace Pexal::PDBus
