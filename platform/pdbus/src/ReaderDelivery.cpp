#include "ReaderDelivery.h"

#include <exception>
#include <mutex>
#include <new>
#include <utility>

#include "DDSContextLog.h"
#include "pbase/CTime.h"

namespace Pexal::PDBus {
namespace {

using PBase::CTime;

constexpr const char* kUnit = "MSGDDSReader";
/// The wait is ended by the stop condition; the time-out only keeps it from being endless.
constexpr dds::core::Duration kLongWait(60, 0);
constexpr std::uint32_t kPauseAfterErrorMs = 100;
constexpr std::uint64_t kReportIntervalMs = 1000;

dds::topic::AnyTopic makeTopic(const dds::domain::DomainParticipant& participant,
                               const ReaderSettings& settings, WriterSelection& writers) {
  dds::topic::AnyTopic topic(participant, settings.topic, settings.type);
  writers.applyTo(topic);
  return topic;
}

dds::sub::AnyDataReader makeReader(const dds::domain::DomainParticipant& participant,
                                   const dds::topic::AnyTopic& topic,
                                   const ReaderSettings& settings) {
  return {dds::sub::Subscriber(participant), topic, settings.qos};
}

}  // namespace

ReaderDelivery::ReaderDelivery(const dds::domain::DomainParticipant& participant,
                               std::shared_ptr<const ReaderSettings> settings)
    : settings_(std::move(settings)),
      mismatch_(
          "dds reader(" + settings_->domain + ':' + settings_->topic + ')',
          [this] { static_cast<void>(dds_set_guardcondition(wake_.get_ddsc_entity(), true)); }),
      writers_(settings_->takesWriter, settings_->domain + ':' + settings_->topic),
      topic_(makeTopic(participant, *settings_, writers_)),
      reader_(makeReader(participant, topic_, *settings_)),
      samples_(reader_),
      sample_(dds_alloc(settings_->type.sampleSize), {settings_->type.descriptor}) {
  if (!sample_) throw std::bad_alloc();
  triggered_.reserve(2);
  waitSet_.attach_condition(wake_).attach_condition(samples_);
  const std::unique_ptr<dds_listener_t, void (*)(dds_listener_t*)> listener(
      dds_create_listener(this), dds_delete_listener);
  mismatch_.listenWith(listener.get());
  dds::core::detail::check(dds_set_listener(reader_.get_ddsc_entity(), listener.get()),
                           "dds_set_listener");
  // Writers that were there before the listener have been judged already.
  dds_requested_incompatible_qos_status_t status{};
  dds_get_requested_incompatible_qos_status(reader_.get_ddsc_entity(), &status);
  if (status.total_count > 0) mismatch_.noteWriter(status.last_policy_id);
}

ReaderDelivery::~ReaderDelivery() {
  closeEntities();
}

std::shared_ptr<ReaderDelivery> ReaderDelivery::start(
    const dds::domain::DomainParticipant& participant,
    std::shared_ptr<const ReaderSettings> settings) {
  const std::shared_ptr<ReaderDelivery> delivery(
      new ReaderDelivery(participant, std::move(settings)));
  // Weak, since the object owns the thread that owns this function.
  delivery->thread_ = std::make_unique<PBase::CThreadLite>("pdbus:reader", 0, 0, 0,
                                                           [weak = std::weak_ptr(delivery)] {
                                                             if (const auto self = weak.lock())
                                                               self->run();
                                                           });
  if (!delivery->thread_->createThread()) {
    throw dds::core::OutOfResourcesError("no thread for a dds reader");
  }
  return delivery;
}

void ReaderDelivery::beginStop() noexcept {
  stopping_ = true;
  try {
    wake_.trigger_value(true);
  } catch (const dds::core::Exception& error) {
    PDBUS_LOG(4, kUnit, "wake dds reader(%s:%s) exception:%s\n", settings_->domain.c_str(),
              settings_->topic.c_str(), error.what());
  }
}

bool ReaderDelivery::finishStop(std::uint64_t deadlineUs) {
  std::unique_ptr<PBase::CThreadLite> finished;
  std::unique_lock lock(mutex_);
  if (thread_ && thread_->isCurrentThread()) return true;
  if (!endedChanged_.waitUntil(lock, deadlineUs, [this] { return ended_; })) {
    const bool told = std::exchange(givenUp_, true);
    lock.unlock();
    if (!told) {
      PDBUS_LOG(3, kUnit, "dds reader(%s:%s): its callback doesn't end, not waiting any longer\n",
                settings_->domain.c_str(), settings_->topic.c_str());
    }
    return false;
  }
  finished = std::move(thread_);
  lock.unlock();
  return true;  // joins the thread, which has nothing left to do
}

void ReaderDelivery::run() {
  while (!stopping_) {
    try {
      mismatch_.report();
      takeAll();
      if (!stopping_) awaitWork();
    } catch (const std::exception& error) {
      if (stopping_) break;
      PDBUS_LOG(4, kUnit, "read dds reader(%s:%s) exception:%s\n", settings_->domain.c_str(),
                settings_->topic.c_str(), error.what());
      PBase::CThread::sleep(kPauseAfterErrorMs);
    }
  }
  closeEntities();
  const std::lock_guard lock(mutex_);
  ended_ = true;
  endedChanged_.notifyAll();
}

void ReaderDelivery::takeAll() {
  dds::sub::SampleInfo info;
  while (!stopping_ && reader_.take_into(sample_.get(), info)) {
    if (!info.valid() || stopping_) continue;
    if (writers_.takes(reader_, info.publication_handle())) deliver();
  }
}

void ReaderDelivery::deliver() noexcept {
  try {
    settings_->callback(sample_.get());
  } catch (const std::exception& error) {
    reportCallbackFailure(error.what());
  } catch (...) {
    reportCallbackFailure("of unknown type");
  }
}

void ReaderDelivery::reportCallbackFailure(const char* text) {
  const std::uint64_t now = CTime::getCurrentMilliSecond();
  if (lastFailureReportMs_ != 0 && now - lastFailureReportMs_ < kReportIntervalMs) return;
  lastFailureReportMs_ = now;
  PDBUS_LOG(4, kUnit, "callback of dds reader(%s:%s) exception:%s\n", settings_->domain.c_str(),
            settings_->topic.c_str(), text);
}

// What triggers wake_ has left its mark before (stopping_, a policy noted), and the marks are
// looked at after the reset: so none is missed. A trigger that comes late only costs a turn of the
// loop.
void ReaderDelivery::awaitWork() {
  waitSet_.wait(triggered_, kLongWait);
  for (const auto& condition : triggered_) {
    if (condition.handle() == wake_.handle()) wake_.trigger_value(false);
  }
}

void ReaderDelivery::closeEntities() noexcept {
  samples_.close();
  reader_.close();
  topic_.close();
}

}  // namespace Pexal::PDBus
