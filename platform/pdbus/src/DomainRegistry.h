#pragma once

#include <dds/dds.h>

#include <cstdint>
#include <dds/domain/DomainParticipant.hpp>
#include <map>
#include <mutex>
#include <optional>
#include <string>

#include "pbase/CMutex.h"

namespace Pexal::PDBus {

/// The DDS domains of this process, shared by all contexts and members: libddsc refuses to create a
/// domain that the process already has. A domain is created by the first who joins it and deleted
/// after the last has left, or when it is joined anew if others had participants in it then; one
/// that somebody else created is used and left alone.
///
/// While a domain is being joined, libddsc's log goes to this library (its result codes don't tell
/// the cause); after that to standard error as before, with warnings and errors thinned to one of
/// each a second, until the last domain is left. A sink that the application has set itself is lost
/// by it.
///
/// Threading: any thread; operations wait for each other. mutex_ is a leaf and held while libddsc
/// opens and closes its sockets. A join waits, without it, for those who have announced to leave.
class DomainRegistry {
 public:
  /// Lives until the process ends.
  static DomainRegistry& instance();

  /// Makes a participant on domain `id`. `url`: path or file:// URL of an XML profile, or the XML
  /// text itself; empty: libddsc's defaults; nothing: as DomainMember says. Throws
  /// dds::core::Exception with all that libddsc said, also for a profile that can't be read.
  dds::domain::DomainParticipant join(std::uint32_t id, const std::optional<std::string>& url);
  /// One join of `id` will be given back within the time that libddsc lingers over a writer.
  void announceLeave(std::uint32_t id) noexcept;
  /// Gives back one join of `id`; its participant must be closed by now.
  void leave(std::uint32_t id, bool wasAnnounced = false) noexcept;

 private:
  struct Domain {
    dds_entity_t created = 0;  ///< 0: not made here
    std::uint32_t users = 0;
    std::uint32_t leaving = 0;  ///< those of the users who have announced it
    std::string settings;       ///< the profile's text; empty: libddsc's defaults, or unknown
  };
  struct Profile;

  DomainRegistry() = default;
  static Profile profileOf(const std::optional<std::string>& url);
  static Domain open(std::uint32_t id, const Profile& profile);
  void awaitLeaving(std::unique_lock<PBase::CMutex>& lock, std::uint32_t id,
                    const std::string& settings);
  /// False: nobody of ours uses it, but others are in it.
  bool closeUnused(std::uint32_t id) noexcept;
  /// Where libddsc's log goes while no join is under way.
  void chooseLogSink() noexcept;

  PBase::CMutex mutex_;  // guards domains_, and libddsc's log sink
  PBase::CCondition left_;
  std::map<std::uint32_t, Domain> domains_;
};

}  // namespace Pexal::PDBus
