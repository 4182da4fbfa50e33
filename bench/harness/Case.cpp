#include "harness/Case.h"

namespace bench {

Child startRole(const std::string& name, const Json::Value& arguments,
                const Child::Environment& environment) {
  return Child::role("/proc/self/exe", name, arguments, environment);
}

Json::Value object(std::initializer_list<std::pair<const char*, Json::Value>> members) {
  Json::Value result(Json::objectValue);
  for (const auto& [key, value] : members) result[key] = value;
  return result;
}

void interleave(std::span<Contender> contenders, const Json::Value& command, std::uint32_t rounds) {
  for (Contender& contender : contenders) static_cast<void>(contender.child.ask(command));
  for (std::uint32_t round = 0; round < rounds; ++round) {
    for (std::size_t i = 0; i < contenders.size(); ++i) {
      Contender& contender = contenders[(round + i) % contenders.size()];
      append(contender.ns, contender.child.ask(command)["ns"], 1);
    }
  }
}

std::vector<double> scaled(const std::vector<double>& values, double scale) {
  std::vector<double> result(values);
  for (double& value : result) value *= scale;
  return result;
}

}  // namespace bench
