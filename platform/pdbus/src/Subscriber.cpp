#include "Subscriber.h"

#include <utility>

#include "DDSContextLog.h"

namespace Pexal::PDBus {

Subscriber::Subscriber(std::weak_ptr<ReaderHost> host, std::string domain, std::string topic)
    : host_(std::move(host)), domain_(std::move(domain)), topic_(std::move(topic)) {}

std::shared_ptr<IBaseDDSReader> Subscriber::createReader(const dds::topic::TypeSupport& type,
                                                         const dds::sub::qos::DataReaderQos& qos,
                                                         RawCallback onSample,
                                                         WriterFilter takesWriter) {
  if (!onSample) throw dds::core::NullReferenceError("dds reader without callback");
  const auto host = host_.lock();
  if (!host) throw dds::core::NotEnabledError("the dds layer is gone");
  auto reader = std::make_shared<Reader>(
      ReaderSettings{domain_, topic_, type, qos, std::move(onSample), std::move(takesWriter)});
  host->adopt(reader);
  return reader;
}

void Subscriber::removeReader(const std::shared_ptr<IBaseDDSReader>& reader) {
  if (!reader) return;
  auto* const own = dynamic_cast<Reader*>(&reader->inner());
  if (own == nullptr) {
    PDBUS_LOG(3, "IDDSSubcriber", "remove dds reader(%s:%s): not a reader of this layer\n",
              domain_.c_str(), topic_.c_str());
    return;
  }
  own->remove();
}

}  // namespace Pexal::PDBus
