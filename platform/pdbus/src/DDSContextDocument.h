#pragma once

#include <json/value.h>

#include <cstdint>
#include <string>
#include <vector>

#include "Endpoints.h"

namespace Pexal::PDBus {

/// The factory's document, read and checked.
struct DDSContextDocument {
  struct Domain {
    std::string name;
    std::uint32_t id = 0;
    std::string url;
  };
  struct Client {
    std::string server;
    std::string domain;
  };
  struct Bus {
    EventBusSettings settings;
    std::string domain;
  };

  std::vector<Domain> domains;
  std::vector<Client> clients;
  std::vector<Bus> buses;

  /// `document` must be an object. Entries that lack what they need, name an unknown domain or
  /// repeat a name are logged (level 5) and left out; values of a wrong type or out of range take
  /// their defaults.
  static DDSContextDocument parse(const Json::Value& document);
};

}  // namespace Pexal::PDBus
