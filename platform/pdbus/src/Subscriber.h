#pragma once

#include <memory>
#include <string>

#include "Reader.h"
#include "pdbus/IDDSSubcriber.h"

namespace Pexal::PDBus {

/// What a subscriber needs of the context.
class ReaderHost {
 public:
  /// Binds the reader to its domain's participant and keeps it (weakly) for restarts. Throws
  /// dds::core::Exception; NotEnabledError when not started.
  virtual void adopt(const std::shared_ptr<Reader>& reader) = 0;

 protected:
  ~ReaderHost() = default;
};

/// Subscriptions to one topic: a name, as all state is in the readers. Any thread may call any
/// operation.
class Subscriber final : public IDDSSubcriber {
 public:
  Subscriber(std::weak_ptr<ReaderHost> host, std::string domain, std::string topic);

  std::shared_ptr<IBaseDDSReader> createReader(const dds::topic::TypeSupport& type,
                                               const dds::sub::qos::DataReaderQos& qos,
                                               RawCallback onSample,
                                               WriterFilter takesWriter) override;
  void removeReader(const std::shared_ptr<IBaseDDSReader>& reader) override;

 private:
  const std::weak_ptr<ReaderHost> host_;
  const std::string domain_;
  const std::string topic_;
};

}  // namespace Pexal::PDBus
