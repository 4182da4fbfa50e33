#include "harness/Role.h"

#include <sys/resource.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <exception>
#include <iostream>
#include <stdexcept>

#include "harness/Clock.h"
#include "pbase/Utils.h"

namespace bench {
namespace {

constexpr std::int64_t kNsPerUs = 1000;
constexpr std::int64_t kNsPerSecond = 1'000'000'000;

Json::Value usage() {
  rusage used{};
  ::getrusage(RUSAGE_SELF, &used);
  const auto ns = [](const timeval& time) {
    return time.tv_sec * kNsPerSecond + time.tv_usec * kNsPerUs;
  };
  Json::Value answer(Json::objectValue);
  answer["cpuNs"] = static_cast<Json::Int64>(ns(used.ru_utime) + ns(used.ru_stime));
  answer["switches"] = static_cast<Json::Int64>(used.ru_nvcsw + used.ru_nivcsw);
  return answer;
}

Json::Value failure(const char* text) {
  Json::Value answer(Json::objectValue);
  answer["error"] = text;
  return answer;
}

Json::Value answerTo(Role& role, const std::string& line) {
  try {
    Json::Value request;
    if (!Pexal::Utils::stringToJson(line, request) || !request.isObject() ||
        !request["do"].isString()) {
      return failure("no command");
    }
    return request["do"] == "usage" ? usage() : role.handle(request);
  } catch (const std::exception& error) {
    return failure(error.what());
  }
}

/// The answers go out on a descriptor of their own: whatever else is printed, by a library too,
/// goes to standard error.
class Answers {
 public:
  Answers() : descriptor_(::dup(STDOUT_FILENO)) { ::dup2(STDERR_FILENO, STDOUT_FILENO); }
  void write(const Json::Value& answer) const {
    const std::string line = Pexal::Utils::jsonToString(answer) + '\n';
    std::size_t written = 0;
    while (written < line.size()) {
      const ssize_t count = ::write(descriptor_, line.data() + written, line.size() - written);
      if (count < 0 && errno != EINTR) return;
      if (count > 0) written += static_cast<std::size_t>(count);
    }
  }

 private:
  int descriptor_;
};

}  // namespace

int playRole(std::span<const RoleEntry> roles, const std::string& name,
             const std::string& arguments) {
  const Answers answers;
  try {
    const auto entry =
        std::ranges::find_if(roles, [&name](const RoleEntry& row) { return name == row.name; });
    Json::Value parsed;
    if (entry == roles.end() || !Pexal::Utils::stringToJson(arguments, parsed)) {
      throw std::runtime_error("no such role or bad arguments");
    }
    const auto role = entry->make(parsed);
    Json::Value ready(Json::objectValue);
    ready["ready"] = true;
    answers.write(ready);
    for (std::string line; std::getline(std::cin, line);) answers.write(answerTo(*role, line));
    return 0;
  } catch (const std::exception& error) {
    answers.write(failure(error.what()));
    return 1;
  }
}

Json::Value ServerRole::handle(const Json::Value&) {
  throw std::runtime_error("a server takes no commands");
}

Json::Value AskingRole::handle(const Json::Value& command) {
  if (command["do"] != "run") throw std::runtime_error("unknown command");
  const std::uint32_t count = command["count"].asUInt();
  const std::int64_t intervalNs = command.get("intervalUs", 0).asInt64() * kNsPerUs;
  const bool tolerant = command.get("tolerant", false).asBool();
  std::vector<std::int64_t> times;
  times.reserve(count);
  std::uint32_t failures = 0;
  std::int64_t due = nowNs();
  for (std::uint32_t i = 0; i < count; ++i) {
    if (intervalNs > 0) sleepUntilNs(due += intervalNs);
    const std::int64_t begin = nowNs();
    if (!ask()) ++failures;
    times.push_back(nowNs() - begin);
  }
  if (failures > 0 && !tolerant) {
    throw std::runtime_error(std::to_string(failures) + " of " + std::to_string(count) +
                             " requests failed");
  }
  Json::Value answer(Json::objectValue);
  answer["ns"] = toJson(times);
  answer["failures"] = failures;
  return answer;
}

Json::Value toJson(const std::vector<std::int64_t>& values) {
  Json::Value array(Json::arrayValue);
  for (const std::int64_t value : values) array.append(static_cast<Json::Int64>(value));
  return array;
}

Json::Value toJson(std::span<const double> values) {
  Json::Value array(Json::arrayValue);
  for (const double value : values) array.append(value);
  return array;
}

}  // namespace bench
