#pragma once

#include <cstdlib>
#include <map>
#include <string>
#include <utility>

namespace orvane_test {

using Variables = std::map<std::string, std::string>;

/// Environment variables, for this process and its children; unset again at its end.
class Environment {
 public:
  explicit Environment(Variables variables) : variables_(std::move(variables)) {
    for (const auto& [name, value] : variables_) ::setenv(name.c_str(), value.c_str(), 1);
  }
  Environment(const Environment&) = delete;
  Environment& operator=(const Environment&) = delete;
  ~Environment() {
    for (const auto& [name, value] : variables_) ::unsetenv(name.c_str());
  }

 private:
  const Variables variables_;
};

}  // namespace orvane_test
