#pragma once

#include <memory>

#include "shared_memory/peers/Channel.h"
#include "shm/ShareMotionReader.h"
#include "shm/ShareMotionWriter.h"

namespace bench {

/// The library's control channel, the client's end. {"channel"}.
class OwnWriter final : public WriterRole {
 public:
  explicit OwnWriter(const Json::Value& arguments);

 private:
  bool write(const Message& message) noexcept override;

  Robot::Motion::ShareMotionCtrlWriter writer_;
  Robot::Motion::ShareLowLevelMotionCtrlData record_{};
};

/// The motion process's end. {"channel"}.
class OwnReader final : public ReaderRole {
 public:
  explicit OwnReader(const Json::Value& arguments);
  ~OwnReader() override { reader_->close(); }

 private:
  std::shared_ptr<Robot::Motion::ShareMotionCtrlReader> reader_;
};

}  // namespace bench
