#pragma once

#include <atomic>
#include <cstdint>
#include <dds/dds.hpp>
#include <memory>
#include <string>

#include "PeerMismatch.h"
#include "WriterSelection.h"
#include "pbase/CMutex.h"
#include "pbase/CThread.h"
#include "pdbus/IDDSSubcriber.h"

namespace Pexal::PDBus {

/// What a reader is made from; stays the same when it is made anew.
struct ReaderSettings {
  std::string domain;
  std::string topic;
  dds::topic::TypeSupport type;
  dds::sub::qos::DataReaderQos qos;
  IDDSSubcriber::RawCallback callback;
  IDDSSubcriber::WriterFilter takesWriter;
};

/// A reader's DDS entities on one participant, and the thread that takes samples and calls back.
///
/// A data listener would run the callback on a receive thread of libddsc, where it delays every
/// other topic and where the reader can't be deleted; hence a thread and a wait set of its own.
///
/// Threading: beginStop and finishStop may be called from any thread, the callback's own included.
/// The thread holds the object while it runs and takes the DDS entities apart when it ends, so the
/// object may be dropped inside the callback. mutex_ is a leaf and held for flags only.
class ReaderDelivery : public std::enable_shared_from_this<ReaderDelivery> {
 public:
  /// Throws dds::core::Exception.
  static std::shared_ptr<ReaderDelivery> start(const dds::domain::DomainParticipant& participant,
                                               std::shared_ptr<const ReaderSettings> settings);
  ~ReaderDelivery();
  ReaderDelivery(const ReaderDelivery&) = delete;
  ReaderDelivery& operator=(const ReaderDelivery&) = delete;

  /// No callback begins once this has returned, but for one that is just beginning. Doesn't wait.
  void beginStop() noexcept;
  /// Waits until the thread has ended, at most until `deadlineUs` (CTime); returns at once when
  /// called on that thread. False (and logged, once): the callback in flight didn't end in time.
  bool finishStop(std::uint64_t deadlineUs);

  [[nodiscard]] const dds::sub::AnyDataReader& reader() const noexcept { return reader_; }

 private:
  struct SampleDeleter {
    const dds_topic_descriptor_t* descriptor;
    void operator()(void* sample) const noexcept {
      dds_sample_free(sample, descriptor, DDS_FREE_ALL);
    }
  };

  ReaderDelivery(const dds::domain::DomainParticipant& participant,
                 std::shared_ptr<const ReaderSettings> settings);
  void run();
  void takeAll();
  void deliver() noexcept;
  void reportCallbackFailure(const char* text);
  void awaitWork();
  void closeEntities() noexcept;

  const std::shared_ptr<const ReaderSettings> settings_;

  // What DDS's threads touch goes before the reader, so that it is there as long as the reader.
  dds::core::cond::GuardCondition wake_;
  PeerMismatch mismatch_;
  std::atomic<bool> stopping_{false};
  WriterSelection writers_;

  dds::topic::AnyTopic topic_;
  dds::sub::AnyDataReader reader_;
  dds::sub::cond::ReadCondition samples_;
  dds::core::cond::WaitSet waitSet_;

  // Used by the delivery thread only.
  dds::core::cond::ConditionSeq triggered_;
  std::unique_ptr<void, SampleDeleter> sample_;
  std::uint64_t lastFailureReportMs_ = 0;

  PBase::CMutex mutex_;  // guards what follows
  PBase::CCondition endedChanged_;
  bool ended_ = false;
  bool givenUp_ = false;  ///< and logged
  std::unique_ptr<PBase::CThreadLite> thread_;
};

}  // namespace Pexal::PDBus
