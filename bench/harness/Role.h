#pragma once

#include <json/value.h>

#include <cstdint>
#include <memory>
#include <span>
#include <string>
#include <vector>

namespace bench {

/// A part that a child process plays: told by JSON lines on its input what to do, it answers each
/// with one on its output. It ends with its input.
class Role {
 public:
  virtual ~Role() = default;
  /// `command["do"]` says what. What it throws becomes the answer {"error": text}.
  virtual Json::Value handle(const Json::Value& command) = 0;
};

using RoleMaker = std::unique_ptr<Role> (*)(const Json::Value& arguments);
struct RoleEntry {
  const char* name;
  RoleMaker make;
};
template <class T>
std::unique_ptr<Role> makeRole(const Json::Value& arguments) {
  return std::make_unique<T>(arguments);
}

/// The body of a child process: plays the role of that name until its input ends. Beside the role's
/// own commands it answers "usage": {"cpuNs", "switches"}, what the process has used up so far.
int playRole(std::span<const RoleEntry> roles, const std::string& name,
             const std::string& arguments);

/// A role that does nothing but serve.
class ServerRole : public Role {
 public:
  Json::Value handle(const Json::Value& command) override;
};

/// A role that asks something, again and again, and tells how long each answer took:
/// {"do": "run", "count", "intervalUs" (0: one after the other), "tolerant" (true: failed requests
/// are counted, not an error)} gives {"ns": [...], "failures"}.
class AskingRole : public Role {
 public:
  Json::Value handle(const Json::Value& command) override;

 protected:
  /// Asks once and waits for the answer. False: none came.
  virtual bool ask() = 0;
};

[[nodiscard]] Json::Value toJson(const std::vector<std::int64_t>& values);
[[nodiscard]] Json::Value toJson(std::span<const double> values);

}  // namespace bench
