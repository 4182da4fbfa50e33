#pragma once

#include <dds/dds.h>

#include <cstdint>
#include <string>

#include "dds/core/Entity.hpp"

namespace dds::domain {

/// A DDS domain as this process has it: its settings, and what the participants in it share.
/// Without one, the first participant makes the domain with libddsc's own settings, and it goes
/// with the last.
class Domain : public core::Entity {
 public:
  Domain(core::null_type = core::null) noexcept {}
  /// Makes domain `id` with these settings, an XML text. Null when the process has that domain
  /// already, whose settings stay.
  static Domain create(std::uint32_t id, const std::string& settings) {
    const dds_entity_t created = dds_create_domain(id, settings.c_str());
    if (created == DDS_RETCODE_PRECONDITION_NOT_MET) return core::null;
    return Domain(created, "dds_create_domain(" + std::to_string(id) + ")");
  }

  /// There are participants in it, anybody's; deleting it would take them along.
  [[nodiscard]] bool is_used() const {
    return core::detail::check(dds_get_children(get_ddsc_entity(), nullptr, 0),
                               "dds_get_children") > 0;
  }

 private:
  Domain(dds_entity_t created, const std::string& operation)
      : Entity(created, operation, nullptr) {}
};

}  // namespace dds::domain
