#pragma once

#include <memory>
#include <string>

#include "harness/Role.h"
#include "peers/SdkSession.h"

namespace bench {

/// A connected client of the library that asks for the motion state. {"device"}. Beside "run" it
/// knows "state": {"text"}, the motion state as it is.
class SdkClient final : public AskingRole {
 public:
  explicit SdkClient(const Json::Value& arguments);
  ~SdkClient() override;
  Json::Value handle(const Json::Value& command) override;

 private:
  bool ask() override;

  SdkSession session_;
  std::shared_ptr<SdkSession::Client> client_;
  std::string state_;
};

/// The library's start. {}; {"do": "start"} gives {"ns": [...]}: from before `initial` to the first
/// robot's entry into the discover callback. Once.
class SdkStarter final : public Role {
 public:
  explicit SdkStarter(const Json::Value&) {}
  Json::Value handle(const Json::Value& command) override;
};

}  // namespace bench
