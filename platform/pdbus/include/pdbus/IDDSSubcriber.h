#pragma once

#include <json/value.h>

#include <cstdint>
#include <dds/dds.hpp>
#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <utility>

#include "pbase/Export.h"

namespace Pexal::PDBus {

/// A typed reader as the subscriber sees it. Any thread may call any operation. The last reference
/// may be dropped on any thread, inside the reader's own callback too: no callback begins after
/// that, and the drop waits for one in flight as removeReader does.
class PEXAL_API IBaseDDSReader {
 public:
  virtual ~IBaseDDSReader();

  /// Attaches the reader to `waitSet`, which then wakes on the statuses of `mask` (numbered as in
  /// the DDS standard; 0x400: data available). The statuses are the reader's: with several wait
  /// sets, each wakes on those of all. Since the reader's own thread takes the samples, a wait set
  /// may find that one gone already and sleep on. The attachment outlives a restart of the DDS
  /// layer. Throws dds::core::Exception when DDS refuses.
  virtual void addWaitSet(dds::core::cond::WaitSet& waitSet, std::uint32_t mask) = 0;
  /// Detaches it again. Nothing happens when it isn't attached. Never throws.
  virtual void delWaitSet(dds::core::cond::WaitSet& waitSet) = 0;

  /// The reader that does the work: this one, unless it stands in front of another.
  [[nodiscard]] virtual IBaseDDSReader& inner() noexcept { return *this; }
};

/// Subscriptions to one topic of one domain.
class PEXAL_API IDDSSubcriber {
 public:
  using RawCallback = std::function<void(const void* sample)>;
  /// Whether to listen to a writer, by the user data that it announces ("" when none).
  using WriterFilter = std::function<bool(std::string_view userData)>;

  virtual ~IDDSSubcriber();

  /// The subscriber for `topic` on the domain of that name in the started IDDSFactory::instance().
  /// Null when the DDS layer isn't started or has no such domain.
  static std::shared_ptr<IDDSSubcriber> instance(const std::string& domain,
                                                 const std::string& topic);

  /// Reader QoS from {"history": "KEEP_LAST"|"KEEP_ALL", "depth": n (1 to 65536), "reliability":
  /// "BEST_EFFORT"|"RELIABLE", "durability": "VOLATILE"|"TRANSIENT_LOCAL"}. Missing, unknown and
  /// wrongly typed values take DDS's defaults for readers (keep-last 1, best effort, volatile), as
  /// does a document that is no object. Never throws.
  static dds::sub::qos::DataReaderQos createDDSQos(const Json::Value& document);

  /// Makes a reader whose callback runs for every valid sample on a thread of the reader's own: a
  /// slow callback delays that reader only. `sample` is valid for the length of the call. What the
  /// callback throws is logged and swallowed. Throws dds::core::Exception when DDS refuses,
  /// NotEnabledError when the DDS layer isn't started. Application code uses MSGDDSReader<T>.
  /// The thread waits inside DDS, on real time: made under a VirtualClock it keeps simulated time
  /// from passing.
  ///
  /// `takesWriter`, when set, is asked once for each writer, on the reader's thread, at the
  /// writer's first sample; `userData` is valid for the length of the call. A writer that it
  /// refuses, or on which it throws (logged), is ignored for as long as it is matched: its samples
  /// take no room in the history. A first sample whose writer is gone by then is dropped.
  virtual std::shared_ptr<IBaseDDSReader> createReader(const dds::topic::TypeSupport& type,
                                                       const dds::sub::qos::DataReaderQos& qos,
                                                       RawCallback onSample,
                                                       WriterFilter takesWriter) = 0;
  /// When this returns no callback of `reader` runs or will run; called from inside that callback
  /// it returns at once (no further call begins, the reader's thread ends by itself). It waits for
  /// a callback in flight on another thread, at most 1 s: two callbacks that remove each other's
  /// readers, or one that never ends, are given up with a log line; IDDSFactory::shutdown waits for
  /// them once more. `reader` is one that createReader or MSGDDSReader made; with a null one
  /// nothing happens.
  virtual void removeReader(const std::shared_ptr<IBaseDDSReader>& reader) = 0;
};

/// A reader of samples of type T with a data callback. When the DDS layer is restarted with the
/// same domain name, the reader makes itself anew on the new participant; if that fails it logs
/// "[%s:%d]rebind dds reader(%s:%s) exception:%s\n" at level 4.
template <class T>
class MSGDDSReader final : public IBaseDDSReader {
 public:
  /// `onData` runs on the reader's own thread, `takesWriter` is as of createReader. Throws
  /// dds::core::Exception; NullReferenceError without a subscriber or an `onData`.
  MSGDDSReader(const std::shared_ptr<IDDSSubcriber>& subscriber,
               const dds::sub::qos::DataReaderQos& qos, std::function<void(const T&)> onData,
               IDDSSubcriber::WriterFilter takesWriter = {}) {
    if (!subscriber || !onData) {
      throw dds::core::NullReferenceError("dds reader without subscriber or callback");
    }
    reader_ = subscriber->createReader(
        dds::topic::typeSupport<T>(), qos,
        [onData = std::move(onData)](const void* sample) {
          onData(*static_cast<const T*>(sample));
        },
        std::move(takesWriter));
  }

  void addWaitSet(dds::core::cond::WaitSet& waitSet, std::uint32_t mask) override {
    reader_->addWaitSet(waitSet, mask);
  }
  void delWaitSet(dds::core::cond::WaitSet& waitSet) override { reader_->delWaitSet(waitSet); }
  [[nodiscard]] IBaseDDSReader& inner() noexcept override { return reader_->inner(); }

  /// The reader behind this one; what removeReader takes apart.
  [[nodiscard]] const std::shared_ptr<IBaseDDSReader>& base() const { return reader_; }

 private:
  std::shared_ptr<IBaseDDSReader> reader_;
};

}  // namespace Pexal::PDBus
