#pragma once

#include <atomic>
#include <cstdint>
#include <memory>

#include "harness/Role.h"
#include "peers/SdkSession.h"

namespace bench {

/// A client of the library that leads a robot and observes it, both streams on. {"device"}; the
/// robot has stood up when it is ready. Commands:
///  - "stand" or "walk", with "ms": so long it stands, or is asked to walk ten times a second.
///    Gives {"samples"}: of motion, that came meanwhile.
class Walker final : public Role {
 public:
  explicit Walker(const Json::Value& arguments);
  ~Walker() override;
  Json::Value handle(const Json::Value& command) override;

 private:
  void takeControl();
  void standUp();

  std::atomic<std::uint32_t> samples_{0};
  SdkSession session_;
  std::shared_ptr<SdkSession::Client> client_;
};

}  // namespace bench
