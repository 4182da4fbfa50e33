#pragma once

#include <cstdint>
#include <dds/domain/DomainParticipant.hpp>
#include <optional>
#include <string>

#include "pbase/Export.h"

namespace Pexal::PDBus {

/// A participant of one's own in a DDS domain, for code that works apart from the factories. It is
/// counted with theirs: their shutdown leaves it the domain, and it leaves them theirs.
///
/// Threading: made and destroyed on any thread; both wait for others that are just joining or
/// leaving a domain. One object is used by one thread at a time.
class PEXAL_API DomainMember {
 public:
  /// `profile` as the factory's "url": path, file:// URL or XML text; it has no effect, and that is
  /// logged, when this process has the domain with other settings. Nothing: whatever settings the
  /// domain has, or the DDS library's own (CYCLONEDDS_URI) when it is made now. Throws
  /// dds::core::Exception with the DDS library's words. May wait up to 3 s, see announceEnd.
  DomainMember(std::uint32_t domain, const std::optional<std::string>& profile);
  /// All that was made from the participant is gone by now.
  ~DomainMember();
  DomainMember(const DomainMember&) = delete;
  DomainMember& operator=(const DomainMember&) = delete;

  [[nodiscard]] const dds::domain::DomainParticipant& participant() const { return participant_; }

  /// Says that this member ends within a second or so: who joins with other settings and finds none
  /// but such members waits for their end, so that the settings apply.
  void announceEnd() noexcept;

 private:
  const std::uint32_t domain_;
  bool isLeaving_ = false;
  dds::domain::DomainParticipant participant_;
};

}  // namespace Pexal::PDBus
