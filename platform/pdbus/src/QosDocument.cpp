#include <json/value.h>

#include <algorithm>
#include <cstdint>
#include <dds/dds.hpp>
#include <string>

#include "pdbus/IDDSSubcriber.h"

namespace Pexal::PDBus {
namespace {

constexpr std::int32_t kMostDepth = 65536;

/// The text under `key`; empty when there is none.
std::string textOf(const Json::Value& document, const char* key) {
  const Json::Value& value = document[key];
  return value.isString() ? value.asString() : std::string();
}

}  // namespace

dds::sub::qos::DataReaderQos IDDSSubcriber::createDDSQos(const Json::Value& document) {
  using namespace dds::core::policy;
  dds::sub::qos::DataReaderQos qos;
  if (!document.isObject()) return qos;

  std::int32_t depth = 1;
  if (const Json::Value& value = document["depth"]; value.isInt() && value.asInt() > 0) {
    depth = std::min(value.asInt(), kMostDepth);
  }
  qos << (textOf(document, "history") == "KEEP_ALL" ? History::KeepAll()
                                                    : History::KeepLast(depth));
  if (textOf(document, "reliability") == "RELIABLE") qos << Reliability::Reliable();
  if (textOf(document, "durability") == "TRANSIENT_LOCAL") qos << Durability::TransientLocal();
  return qos;
}

}  // namespace Pexal::PDBus
