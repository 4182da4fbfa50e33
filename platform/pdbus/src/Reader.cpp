#include "Reader.h"

#include <algorithm>
#include <exception>
#include <mutex>
#include <utility>

#include "DDSContextLog.h"
#include "pbase/CTime.h"

namespace Pexal::PDBus {
namespace {

constexpr const char* kUnit = "MSGDDSReader";

}  // namespace

Reader::Reader(ReaderSettings settings)
    : settings_(std::make_shared<const ReaderSettings>(std::move(settings))) {}

Reader::~Reader() {
  remove();
}

std::weak_ptr<ReaderDelivery> Reader::bind(const dds::domain::DomainParticipant& participant) {
  const std::lock_guard lock(mutex_);
  if (removed_) return {};
  auto delivery = ReaderDelivery::start(participant, settings_);
  delivery_ = std::move(delivery);
  attachTo(*delivery_);
  return delivery_;
}

std::weak_ptr<ReaderDelivery> Reader::rebind(
    const dds::domain::DomainParticipant& participant) noexcept {
  try {
    return bind(participant);
  } catch (const std::exception& error) {
    PDBUS_LOG(4, kUnit, "rebind dds reader(%s:%s) exception:%s\n", settings_->domain.c_str(),
              settings_->topic.c_str(), error.what());
    return {};
  }
}

void Reader::beginStop() noexcept {
  const std::lock_guard lock(mutex_);
  if (delivery_) delivery_->beginStop();
}

void Reader::finishStop(std::uint64_t deadlineUs) {
  std::shared_ptr<ReaderDelivery> delivery;
  {
    const std::lock_guard lock(mutex_);
    delivery = delivery_;
    if (!delivery) return;
    detachFrom(*delivery);
  }
  delivery->beginStop();
  delivery->finishStop(deadlineUs);
  // Kept until here, so that a removal that comes meanwhile waits too.
  const std::lock_guard lock(mutex_);
  if (delivery_ == delivery) delivery_.reset();
}

void Reader::remove() {
  {
    const std::lock_guard lock(mutex_);
    removed_ = true;
  }
  finishStop(PBase::CTime::getCurrentMicroSecond() + kRemovalWaitMs * std::uint64_t{1000});
  const std::lock_guard lock(mutex_);
  attachments_.clear();
}

void Reader::addWaitSet(dds::core::cond::WaitSet& waitSet, std::uint32_t mask) {
  const std::lock_guard lock(mutex_);
  if (removed_) throw dds::core::AlreadyClosedError("addWaitSet on a removed dds reader");
  const auto found =
      std::find_if(attachments_.begin(), attachments_.end(),
                   [&](const Attachment& known) { return known.waitSet == waitSet; });
  if (found != attachments_.end()) {
    found->mask = mask;
  } else {
    if (delivery_) waitSet.attach_condition(dds::core::cond::StatusCondition(delivery_->reader()));
    attachments_.push_back({waitSet, mask});
  }
  if (delivery_) enableStatuses(*delivery_);
}

void Reader::delWaitSet(dds::core::cond::WaitSet& waitSet) {
  const std::lock_guard lock(mutex_);
  const auto found =
      std::find_if(attachments_.begin(), attachments_.end(),
                   [&](const Attachment& known) { return known.waitSet == waitSet; });
  if (found == attachments_.end()) return;
  attachments_.erase(found);
  if (!delivery_) return;
  detach(waitSet, *delivery_);
  try {
    enableStatuses(*delivery_);
  } catch (const dds::core::Exception&) {
    // The reader went with its participant; then there is no status left to enable.
  }
}

void Reader::attachTo(const ReaderDelivery& delivery) {
  for (Attachment& attachment : attachments_) {
    attachment.waitSet.attach_condition(dds::core::cond::StatusCondition(delivery.reader()));
  }
  if (!attachments_.empty()) enableStatuses(delivery);
}

void Reader::detachFrom(const ReaderDelivery& delivery) noexcept {
  for (Attachment& attachment : attachments_) detach(attachment.waitSet, delivery);
}

void Reader::detach(dds::core::cond::WaitSet& waitSet, const ReaderDelivery& delivery) noexcept {
  try {
    waitSet.detach_condition(dds::core::cond::StatusCondition(delivery.reader()));
  } catch (const dds::core::Exception& error) {
    PDBUS_LOG(3, kUnit, "detach dds reader exception:%s\n", error.what());
  }
}

void Reader::enableStatuses(const ReaderDelivery& delivery) {
  std::uint32_t mask = 0;
  for (const Attachment& attachment : attachments_) mask |= attachment.mask;
  dds::core::cond::StatusCondition(delivery.reader())
      .enabled_statuses(dds::core::status::StatusMask(mask));
}

}  // namespace Pexal::PDBus
