#include "Board.h"

#include "pbase/System.h"

namespace orvane::robot {

std::optional<std::string> noBoard() {
  for (const BoardDomain& domain : {kBrain, kCerebellum}) {
    if (!Pexal::PBase::File::exist(domain.profile)) {
      return std::string("this is no robot board: there is no ") + domain.profile +
             " (tools/board-sandbox makes a board)";
    }
  }
  return std::nullopt;
}

Json::Value domainEntry(const BoardDomain& domain) {
  Json::Value entry;
  entry["name"] = domain.name;
  entry["domain"] = domain.number;
  entry["url"] = domain.profile;
  return entry;
}

}  // namespace orvane::robot
