#pragma once

#include <cstdint>
#include <dds/dds.hpp>
#include <memory>
#include <string>
#include <vector>

#include "ReaderDelivery.h"
#include "pbase/CMutex.h"
#include "pdbus/IDDSSubcriber.h"

namespace Pexal::PDBus {

/// The reader that createReader hands out. Bound to a participant it delivers; the context unbinds
/// it at shutdown and binds it again, to the new participant, at the next start.
///
/// Threading: any thread may call any operation. Lock order: the context's attach lock, then mutex_
/// (held while DDS entities are made and attached, never during a callback or a wait).
class Reader final : public IBaseDDSReader {
 public:
  /// How long a callback in flight is waited for: when the DDS layer is shut down, and when only
  /// this reader is removed.
  static constexpr std::uint32_t kCallbackWaitMs = 3000;
  static constexpr std::uint32_t kRemovalWaitMs = 1000;

  explicit Reader(ReaderSettings settings);
  ~Reader() override;
  Reader(const Reader&) = delete;
  Reader& operator=(const Reader&) = delete;

  void addWaitSet(dds::core::cond::WaitSet& waitSet, std::uint32_t mask) override;
  void delWaitSet(dds::core::cond::WaitSet& waitSet) override;

  /// Begins to deliver from `participant`, and tells by what. Throws dds::core::Exception. Nothing
  /// once removed.
  std::weak_ptr<ReaderDelivery> bind(const dds::domain::DomainParticipant& participant);
  /// The same for a participant that comes after another; a failure is logged.
  std::weak_ptr<ReaderDelivery> rebind(const dds::domain::DomainParticipant& participant) noexcept;
  /// Ends the delivery, in two steps as of ReaderDelivery.
  void beginStop() noexcept;
  void finishStop(std::uint64_t deadlineUs);
  /// Ends it for good.
  void remove();

  [[nodiscard]] const std::string& domain() const noexcept { return settings_->domain; }

 private:
  struct Attachment {
    dds::core::cond::WaitSet waitSet;
    std::uint32_t mask;
  };
  void attachTo(const ReaderDelivery& delivery);
  void detachFrom(const ReaderDelivery& delivery) noexcept;
  static void detach(dds::core::cond::WaitSet& waitSet, const ReaderDelivery& delivery) noexcept;
  void enableStatuses(const ReaderDelivery& delivery);

  const std::shared_ptr<const ReaderSettings> settings_;

  PBase::CMutex mutex_;  // guards what follows
  bool removed_ = false;
  std::shared_ptr<ReaderDelivery> delivery_;  ///< null: not bound
  std::vector<Attachment> attachments_;       ///< wait sets of the application
};

}  // namespace Pexal::PDBus
