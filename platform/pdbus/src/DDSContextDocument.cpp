#include "DDSContextDocument.h"

#include <algorithm>
#include <functional>
#include <utility>

#include "DDSContextLog.h"

namespace Pexal::PDBus {
namespace {

constexpr const char* kUnit = "DDSContextDocument";
/// Port numbers end there.
constexpr std::uint32_t kMostDomainId = 230;
/// More entries than any robot has; a list beyond it is cut.
constexpr Json::ArrayIndex kMostEntries = 64;

struct Range {
  std::uint32_t least;
  std::uint32_t most;
};
constexpr Range kTopics{1, 1024};
constexpr Range kWorkers{1, 16};
constexpr Range kTasks{1, 4096};

/// The text under `key` of an object; empty when there is none.
std::string textOf(const Json::Value& object, const char* key) {
  const Json::Value& value = object[key];
  return value.isString() ? value.asString() : std::string();
}

bool flagOf(const Json::Value& object, const char* key, bool fallback) {
  const Json::Value& value = object[key];
  return value.isBool() ? value.asBool() : fallback;
}

std::uint32_t numberOf(const Json::Value& object, const char* key, Range range,
                       std::uint32_t fallback) {
  const Json::Value& value = object[key];
  if (value.isNull()) return fallback;
  if (value.isUInt() && value.asUInt() >= range.least && value.asUInt() <= range.most) {
    return value.asUInt();
  }
  PDBUS_LOG(5, kUnit, "\"%s\" isn't a number from %u to %u, taking %u\n", key, range.least,
            range.most, fallback);
  return fallback;
}

/// Calls `read` for every object of the list under `key`.
void forEachEntry(const Json::Value& document, const char* key,
                  const std::function<void(const Json::Value&)>& read) {
  const Json::Value& list = document[key];
  if (list.isNull()) return;
  if (!list.isArray()) {
    PDBUS_LOG(5, kUnit, "\"%s\" is no list, left out\n", key);
    return;
  }
  for (Json::ArrayIndex i = 0; i < std::min(list.size(), kMostEntries); ++i) {
    if (list[i].isObject()) {
      read(list[i]);
    } else {
      PDBUS_LOG(5, kUnit, "entry %u of \"%s\" is no object, left out\n", i, key);
    }
  }
}

class Parser {
 public:
  explicit Parser(DDSContextDocument& out) : out_(out) {}

  void domain(const Json::Value& entry) {
    const Json::Value& id = entry["domain"];
    std::string name = textOf(entry, "name");
    if (name.empty() || !id.isUInt() || id.asUInt() > kMostDomainId) {
      PDBUS_LOG(5, kUnit, "a domain needs \"name\" and \"domain\" (0 to %u), left out\n",
                kMostDomainId);
      return;
    }
    if (knowsDomain(name)) {
      PDBUS_LOG(5, kUnit, "domain %s is given twice, the second left out\n", name.c_str());
      return;
    }
    out_.domains.push_back({std::move(name), id.asUInt(), textOf(entry, "url")});
  }

  void client(const Json::Value& entry) {
    std::string server = textOf(entry, "server");
    if (!usable("client", entry, server)) return;
    const auto same = [&](const DDSContextDocument::Client& known) {
      return known.server == server;
    };
    if (std::any_of(out_.clients.begin(), out_.clients.end(), same)) {
      PDBUS_LOG(5, kUnit, "client of %s is given twice, the second left out\n", server.c_str());
      return;
    }
    out_.clients.push_back({std::move(server), textOf(entry, "domain")});
  }

  void bus(const Json::Value& entry) {
    EventBusSettings settings;
    settings.server = textOf(entry, "server");
    if (!usable("event bus", entry, settings.server)) return;
    const auto same = [&](const DDSContextDocument::Bus& known) {
      return known.settings.server == settings.server;
    };
    if (std::any_of(out_.buses.begin(), out_.buses.end(), same)) {
      PDBUS_LOG(5, kUnit, "event bus of %s is given twice, the second left out\n",
                settings.server.c_str());
      return;
    }
    settings.maxTopics = numberOf(entry, "topics", kTopics, settings.maxTopics);
    settings.receive = flagOf(entry, "withService", settings.receive);
    settings.publish = flagOf(entry, "withClient", settings.publish);
    settings.serverRole = textOf(entry, "role") == "server";
    if (const Json::Value& workers = entry["workers"]; workers.isObject()) {
      settings.workers = numberOf(workers, "count", kWorkers, settings.workers);
      settings.queuePerTopic = numberOf(workers, "task", kTasks, settings.queuePerTopic);
    }
    out_.buses.push_back({std::move(settings), textOf(entry, "domain")});
  }

 private:
  [[nodiscard]] bool knowsDomain(const std::string& name) const {
    return std::any_of(out_.domains.begin(), out_.domains.end(),
                       [&](const DDSContextDocument::Domain& known) { return known.name == name; });
  }
  [[nodiscard]] bool usable(const char* kind, const Json::Value& entry,
                            const std::string& server) const {
    const std::string domain = textOf(entry, "domain");
    if (!server.empty() && knowsDomain(domain)) return true;
    PDBUS_LOG(5, kUnit, "%s \"%s\" on domain \"%s\": no server name or no such domain, left out\n",
              kind, server.c_str(), domain.c_str());
    return false;
  }

  DDSContextDocument& out_;
};

}  // namespace

DDSContextDocument DDSContextDocument::parse(const Json::Value& document) {
  DDSContextDocument result;
  Parser parser(result);
  forEachEntry(document, "domain", [&](const Json::Value& entry) { parser.domain(entry); });
  forEachEntry(document, "client", [&](const Json::Value& entry) { parser.client(entry); });
  forEachEntry(document, "eventBus", [&](const Json::Value& entry) { parser.bus(entry); });
  return result;
}

}  // namespace Pexal::PDBus
