#pragma once

#include <json/value.h>

#include <cstdint>
#include <dds/dds.hpp>
#include <functional>
#include <memory>
#include <string>
#include <utility>

#include "pbase/Export.h"

namespace Pexal::PDBus {

/// A typed reader as the subscriber sees it.
class PEXAL_API IBaseDDSReader {
 public:
  virtual ~IBaseDDSReader();

  /// Attaches the reader to `waitSet`, which then wakes on the statuses of `mask` (0x400: data
  /// available). Throws dds::core::Exception when DDS refuses.
  virtual void addWaitSet(dds::core::cond::WaitSet& waitSet, std::uint32_t mask) = 0;
  /// Detaches it again. Nothing happens when it isn't attached.
  virtual void delWaitSet(dds::core::cond::WaitSet& waitSet) = 0;
};

/// Subscriptions to one topic of one domain.
class PEXAL_API IDDSSubcriber {
 public:
  using RawCallback = std::function<void(const void* sample)>;

  virtual ~IDDSSubcriber();

  /// The subscriber for `topic` on the domain of that name in the started IDDSFactory::instance().
  /// Null when the DDS layer isn't started or has no such domain.
  static std::shared_ptr<IDDSSubcriber> instance(const std::string& domain, const std::string& topic);

  /// Reader QoS from {"history": "KEEP_LAST"|"KEEP_ALL", "depth": n, "reliability":
  /// "BEST_EFFORT"|"RELIABLE", "durability": "VOLATILE"|"TRANSIENT_LOCAL"}. Missing or unknown values
  /// take DDS's defaults.
  static dds::sub::qos::DataReaderQos createDDSQos(const Json::Value& document);

  /// Makes a reader whose callback runs for every valid sample on a thread of the reader's own: a slow
  /// callback delays that reader only. What it throws is logged and swallowed. Throws
  /// dds::core::Exception when DDS refuses. Application code uses MSGDDSReader<T>.
  virtual std::shared_ptr<IBaseDDSReader> createReader(const dds::topic::TypeSupport& type,
                                                       const dds::sub::qos::DataReaderQos& qos,
                                                       RawCallback onSample) = 0;
  /// When this returns no callback of `reader` runs or will run; called from inside that callback it
  /// returns at once (no further call begins). `reader` is one that createReader or MSGDDSReader made.
  virtual void removeReader(const std::shared_ptr<IBaseDDSReader>& reader) = 0;
};

/// A reader of samples of type T with a data callback. When the DDS layer is restarted with the same
/// domain name, the reader makes itself anew on the new participant; if that fails it logs
/// "[%s:%d]rebind dds reader(%s:%s) exception:%s\n" at level 4.
template <class T>
class MSGDDSReader final : public IBaseDDSReader {
 public:
  /// `onData` runs on the reader's own thread. Throws dds::core::Exception.
  MSGDDSReader(const std::shared_ptr<IDDSSubcriber>& subscriber,
               const dds::sub::qos::DataReaderQos& qos, std::function<void(const T&)> onData)
      : reader_(subscriber->createReader(
            dds::topic::typeSupport<T>(), qos,
            [onData = std::move(onData)](const void* sample) { onData(*static_cast<const T*>(sample)); })) {}

  void addWaitSet(dds::core::cond::WaitSet& waitSet, std::uint32_t mask) override {
    reader_->addWaitSet(waitSet, mask);
  }
  void delWaitSet(dds::core::cond::WaitSet& waitSet) override { reader_->delWaitSet(waitSet); }

  /// The reader behind this one; what removeReader takes apart.
  [[nodiscard]] const std::shared_ptr<IBaseDDSReader>& base() const { return reader_; }

 private:
  std::shared_ptr<IBaseDDSReader> reader_;
};

}  // namespace Pexal::PDBus
