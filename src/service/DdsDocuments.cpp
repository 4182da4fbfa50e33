#include "service/DdsDocuments.h"

namespace orvane::RobotSdk::service {
namespace {

struct ServerRow {
  const char* server;
  const char* domain;
};

constexpr ServerRow kBoardClients[] = {{"motionServer", "brain"},
                                       {"brainServer", "brain"},
                                       {"cerebellumServer", "cere"},
                                       {"mediaServer", "brain"}};
constexpr ServerRow kBoardBuses[] = {
    {"cerebellumServer", "cere"}, {"brainServer", "brain"}, {"mediaServer", "brain"}};
constexpr ServerRow kHostClients[] = {{"cerebellumServer", "host"}, {"robotServer", "host"}};
constexpr ServerRow kHostBuses[] = {{"robotServer", "host"}};

Json::Value domainEntry(const char* name, std::int32_t domain, const std::string& url) {
  Json::Value entry(Json::objectValue);
  entry["name"] = name;
  entry["domain"] = domain;
  entry["url"] = url;
  return entry;
}

Json::Value serverEntry(const ServerRow& row) {
  Json::Value entry(Json::objectValue);
  entry["server"] = row.server;
  entry["domain"] = row.domain;
  return entry;
}

Json::Value busEntry(const ServerRow& row, int topics, bool withClient) {
  Json::Value entry = serverEntry(row);
  entry["topics"] = topics;
  entry["withService"] = true;
  entry["withClient"] = withClient;
  entry["workers"]["count"] = 2;
  entry["workers"]["task"] = 16;
  return entry;
}

}  // namespace

Json::Value boardDdsDocument(std::int32_t brainDomain, std::int32_t cereDomain) {
  Json::Value document(Json::objectValue);
  document["domain"].append(domainEntry("brain", brainDomain, kMotionProfile));
  document["domain"].append(domainEntry("cere", cereDomain, kCerebellumProfile));
  for (const auto& row : kBoardClients) document["client"].append(serverEntry(row));
  for (const auto& row : kBoardBuses) document["eventBus"].append(busEntry(row, 32, false));
  return document;
}

Json::Value hostDdsDocument(std::int32_t domain, const std::string& profilePath) {
  Json::Value document(Json::objectValue);
  document["domain"].append(domainEntry("host", domain, profilePath));
  for (const auto& row : kHostClients) document["client"].append(serverEntry(row));
  for (const auto& row : kHostBuses) document["eventBus"].append(busEntry(row, 16, true));
  return document;
}

}  // namespace orvane::RobotSdk::service
