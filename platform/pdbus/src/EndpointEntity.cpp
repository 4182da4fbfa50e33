#include "EndpointEntity.h"

#include <algorithm>

#include "pbase/CThread.h"
#include "pbase/CTime.h"
#include "pbase/ILogger.h"

namespace Pexal::PDBus {
namespace {

std::optional<RemoteEndpoint> takeEndpoint(dds_builtintopic_endpoint_t* data) {
  if (data == nullptr) return std::nullopt;
  RemoteEndpoint endpoint;
  static_assert(sizeof(data->participant_key.v) == sizeof(PeerId));
  std::copy_n(data->participant_key.v, endpoint.participant.size(), endpoint.participant.begin());
  void* bytes = nullptr;
  std::size_t size = 0;
  if (data->qos != nullptr && dds_qget_userdata(data->qos, &bytes, &size) && bytes != nullptr) {
    endpoint.userData.assign(static_cast<const char*>(bytes), size);
  }
  dds_free(bytes);
  dds_builtintopic_free_endpoint(data);
  return endpoint;
}

template <class Query>
std::vector<dds_instance_handle_t> matched(const Query& query) {
  std::vector<dds_instance_handle_t> handles(8);
  for (;;) {
    const dds_return_t count = query(handles.data(), handles.size());
    if (count <= 0) return {};
    const auto total = static_cast<std::size_t>(count);
    const bool complete = total <= handles.size();
    handles.resize(total);
    if (complete) return handles;
  }
}

}  // namespace

bool LogLimiter::permit() noexcept {
  const std::uint64_t now = PBase::CTime::getCurrentMilliSecond();
  std::uint64_t last = lastMs_.load(std::memory_order_relaxed);
  return (last == 0 || now >= last + 1000) &&
         lastMs_.compare_exchange_strong(last, now, std::memory_order_relaxed);
}

Entity checkedEntity(dds_entity_t handle, const char* what, const std::string& name) {
  if (handle > 0) return Entity(handle);
  ILogger::instance()->log(4, kLogTag, "cannot make the %s of %s: %s\n", what, name.c_str(),
                           dds_strretcode(handle));
  return {};
}

QosPtr reliableQos(std::int64_t maxBlockingMs) {
  QosPtr qos(dds_create_qos());
  dds_qset_reliability(qos.get(), DDS_RELIABILITY_RELIABLE, DDS_MSECS(maxBlockingMs));
  dds_qset_history(qos.get(), DDS_HISTORY_KEEP_ALL, 0);
  dds_qset_durability(qos.get(), DDS_DURABILITY_VOLATILE);
  return qos;
}

QosPtr partitionQos(const std::string& partition) {
  QosPtr qos(dds_create_qos());
  dds_qset_partition1(qos.get(), partition.c_str());
  return qos;
}

ListenerPtr makeListener(void* argument) {
  return ListenerPtr(dds_create_listener(argument));
}

void deleteWriters(std::vector<Entity> writers) {
  std::erase_if(writers, [](const Entity& writer) {
    return !writer || dds_wait_for_acks(writer.get(), 0) == DDS_RETCODE_OK;
  });                                                        // erasing deletes
  std::vector<std::unique_ptr<PBase::CThreadLite>> threads;  // all at once, then joined
  for (Entity& lingering : writers) {
    const auto writer = std::make_shared<Entity>(std::move(lingering));
    auto thread = std::make_unique<PBase::CThreadLite>("pdbus:linger", 0, 0, 0,
                                                       [writer] { writer->reset(); });
    if (thread->createThread()) threads.push_back(std::move(thread));
  }
}

std::optional<RemoteEndpoint> matchedWriter(dds_entity_t reader, dds_instance_handle_t handle) {
  return takeEndpoint(dds_get_matched_publication_data(reader, handle));
}

std::optional<RemoteEndpoint> matchedReader(dds_entity_t writer, dds_instance_handle_t handle) {
  return takeEndpoint(dds_get_matched_subscription_data(writer, handle));
}

std::vector<dds_instance_handle_t> matchedWriters(dds_entity_t reader) {
  return matched([reader](dds_instance_handle_t* handles, std::size_t room) {
    return dds_get_matched_publications(reader, handles, room);
  });
}

std::vector<dds_instance_handle_t> matchedReaders(dds_entity_t writer) {
  return matched([writer](dds_instance_handle_t* handles, std::size_t room) {
    return dds_get_matched_subscriptions(writer, handles, room);
  });
}

dds_sequence_octet octetsOf(const std::string& text) {
  dds_sequence_octet octets{};
  octets._length = octets._maximum = static_cast<std::uint32_t>(text.size());
  // libddsc only reads what is written.
  octets._buffer = reinterpret_cast<std::uint8_t*>(const_cast<char*>(text.data()));
  octets._release = false;
  return octets;
}

bool SequenceWindow::accept(std::uint64_t number) {
  if (number == 0) return false;
  if (number > highest_) {
    const std::uint64_t step = number - highest_;
    if (step < kSize) {
      seen_ <<= static_cast<std::size_t>(step);
    } else {
      seen_.reset();
    }
    seen_.set(0);
    highest_ = number;
    return true;
  }
  const std::uint64_t offset = highest_ - number;
  if (offset >= kSize || seen_.test(static_cast<std::size_t>(offset))) return false;
  seen_.set(static_cast<std::size_t>(offset));
  return true;
}

}  // namespace Pexal::PDBus
