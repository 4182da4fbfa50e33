// What the platform reads of a DDS document, of reader settings, of device ids and of what a peer's
// writer announces. The input is a JSON document and a name at the same time.

#include <algorithm>
#include <dds/dds.hpp>
#include <set>

#include "DDSContextDocument.h"
#include "FuzzSupport.h"
#include "Partition.h"
#include "pdbus/IDDSSubcriber.h"

namespace {

using namespace Pexal::PDBus;

bool within(std::uint32_t value, std::uint32_t least, std::uint32_t most) {
  return value >= least && value <= most;
}

void checkContext(const Json::Value& json) {
  const DDSContextDocument document = DDSContextDocument::parse(json);
  std::set<std::string> domains;
  for (const auto& domain : document.domains) {
    fuzz::require(!domain.name.empty() && domain.id <= 230, "a domain has a name and a number");
    fuzz::require(domains.insert(domain.name).second, "a domain is there once");
  }
  std::set<std::string> servers;
  for (const auto& client : document.clients) {
    fuzz::require(domains.count(client.domain) == 1 && !client.server.empty(),
                  "a client has a server in a known domain");
    fuzz::require(servers.insert(client.server).second, "a client is there once");
  }
  servers.clear();
  for (const auto& bus : document.buses) {
    const EventBusSettings& settings = bus.settings;
    fuzz::require(domains.count(bus.domain) == 1 && !settings.server.empty(),
                  "a bus has a server in a known domain");
    fuzz::require(servers.insert(settings.server).second, "a bus is there once");
    fuzz::require(within(settings.maxTopics, 1, 1024) && within(settings.workers, 1, 16) &&
                      within(settings.queuePerTopic, 1, 4096),
                  "the numbers of a bus lie within their ranges");
  }
}

/// The text that a partition stands for: "%xx" is a byte.
std::string unescaped(std::string_view text) {
  std::string plain;
  while (!text.empty()) {
    const bool escaped = text[0] == '%';
    plain += escaped ? static_cast<char>(std::stoi(std::string(text.substr(1, 2)), nullptr, 16))
                     : text[0];
    text.remove_prefix(escaped ? 3 : 1);
  }
  return plain;
}

void checkPartitions(std::string_view text) {
  if (const auto partition = devicePartition(text)) {
    constexpr std::string_view kPrefix = "device/";
    fuzz::require(text.empty() == partition->empty(), "only the empty id has no partition");
    fuzz::require(partition->find_first_of("*?[]!,") == std::string::npos,
                  "a device's partition has no wildcards", *partition);
    fuzz::require(
        text.empty() || (partition->compare(0, kPrefix.size(), kPrefix) == 0 &&
                         unescaped(std::string_view(*partition).substr(kPrefix.size())) == text),
        "two device ids never share a partition", *partition);
  } else {
    fuzz::require(text.size() > kMaxDeviceId, "a device id has a partition");
  }
  if (const auto client = clientOfPartition(text)) {
    fuzz::require(clientPartition(*client) == text, "an announcement is read exactly");
  }
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
  fuzz::silenceLog();
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string_view text = fuzz::textOf(data, size);
  checkPartitions(text);
  Json::Value document;
  if (!Pexal::Utils::stringToJson(text, document)) return 0;
  if (document.isObject()) checkContext(document);
  const auto qos = IDDSSubcriber::createDDSQos(document);
  dds_history_kind_t kind{};
  std::int32_t depth = 0;
  const bool hasHistory = dds_qget_history(qos.to_ddsc(), &kind, &depth);
  fuzz::require(!hasHistory || kind == DDS_HISTORY_KEEP_ALL || (depth >= 1 && depth <= 65536),
                "a history depth lies within its range");
  return 0;
}
