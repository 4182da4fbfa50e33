#include "low_level/peers/BoardRobot.h"

#include <stdexcept>
#include <string>

namespace bench {
namespace {

using namespace orvane::robot;

RobotSettings onBoard() {
  RobotSettings settings;
  settings.deployments = {Deployment::kBoard};
  return settings;
}

}  // namespace

BoardRobot::BoardRobot(const Json::Value&) : robot_(onBoard()) {
  std::string error;
  if (!robot_.start(error)) throw std::runtime_error(error);
}

Json::Value BoardRobot::handle(const Json::Value& command) {
  if (command["do"] != "records") throw std::runtime_error("unknown command");
  const RecordCounts counts = robot_.status().session.records;
  Json::Value answer(Json::objectValue);
  answer["commands"] = static_cast<Json::UInt64>(counts.commands);
  answer["refused"] = static_cast<Json::UInt64>(counts.refused);
  answer["lost"] = static_cast<Json::UInt64>(counts.lost);
  return answer;
}

}  // namespace bench
