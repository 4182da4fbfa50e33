#include "WriterSelection.h"

#include <algorithm>
#include <exception>
#include <utility>

#include "DDSContextLog.h"
#include "EndpointEntity.h"

namespace Pexal::PDBus {
namespace {

constexpr const char* kUnit = "MSGDDSReader";

}  // namespace

WriterSelection::WriterSelection(IDDSSubcriber::WriterFilter filter, std::string name)
    : filter_(std::move(filter)), name_(std::move(name)) {}

void WriterSelection::applyTo(const dds::topic::AnyTopic& topic) {
  if (!filter_) return;
  dds_topic_filter filter{};
  filter.mode = DDS_TOPIC_FILTER_SAMPLEINFO_ARG;
  filter.f.sampleinfo_arg = &WriterSelection::admits;
  filter.arg = this;
  dds::core::detail::check(dds_set_topic_filter_extended(topic.get_ddsc_entity(), &filter),
                           "dds_set_topic_filter_extended");
}

bool WriterSelection::admits(const dds_sample_info_t* info, void* selection) {
  const auto& ignored = static_cast<const WriterSelection*>(selection)->ignored_;
  return std::none_of(ignored.begin(), ignored.end(), [&](const auto& slot) {
    return slot.load(std::memory_order_relaxed) == info->publication_handle;
  });
}

bool WriterSelection::takes(const dds::sub::AnyDataReader& reader, dds_instance_handle_t writer) {
  if (!filter_) return true;
  const auto known = find(writer);
  if (known != verdicts_.end() && known->writer == writer) return known->taken;
  return judge(reader, writer);
}

bool WriterSelection::judge(const dds::sub::AnyDataReader& reader, dds_instance_handle_t writer) {
  forgetAllBut(matchedWriters(reader.get_ddsc_entity()));
  const auto endpoint = matchedWriter(reader.get_ddsc_entity(), writer);
  if (!endpoint) return false;
  const bool taken = ask(endpoint->userData);
  verdicts_.insert(find(writer), {writer, taken});
  if (!taken) ignore(writer);
  return taken;
}

bool WriterSelection::ask(std::string_view userData) const noexcept {
  try {
    return filter_(userData);
  } catch (const std::exception& error) {
    PDBUS_LOG(4, kUnit, "writer filter of dds reader(%s) exception:%s\n", name_.c_str(),
              error.what());
  } catch (...) {
    PDBUS_LOG(4, kUnit, "writer filter of dds reader(%s) exception:of unknown type\n",
              name_.c_str());
  }
  return false;
}

void WriterSelection::forgetAllBut(std::vector<dds_instance_handle_t> matched) {
  std::sort(matched.begin(), matched.end());
  const auto gone = [&](dds_instance_handle_t writer) {
    return !std::binary_search(matched.begin(), matched.end(), writer);
  };
  std::erase_if(verdicts_, [&](const Verdict& verdict) { return gone(verdict.writer); });
  for (auto& slot : ignored_) {
    const dds_instance_handle_t writer = slot.load(std::memory_order_relaxed);
    if (writer != 0 && gone(writer)) slot.store(0, std::memory_order_relaxed);
  }
}

std::vector<WriterSelection::Verdict>::iterator WriterSelection::find(
    dds_instance_handle_t writer) {
  return std::lower_bound(
      verdicts_.begin(), verdicts_.end(), writer,
      [](const Verdict& verdict, dds_instance_handle_t sought) { return verdict.writer < sought; });
}

void WriterSelection::ignore(dds_instance_handle_t writer) noexcept {
  for (auto& slot : ignored_) {
    if (slot.load(std::memory_order_relaxed) != 0) continue;
    slot.store(writer, std::memory_order_relaxed);
    return;
  }
}

}  // namespace Pexal::PDBus
