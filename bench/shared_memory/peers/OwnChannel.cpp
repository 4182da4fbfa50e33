#include "shared_memory/peers/OwnChannel.h"

#include <stdexcept>

#include "shm/ShareMotionDomain.h"

namespace bench {
namespace {

using namespace Robot::Motion;

constexpr int kChunks = 32;  // as many as the library's client has
constexpr int kRetries = 5;

/// Joins the domain. The configuration of the end.
Json::Value join(const Json::Value& arguments) {
  Json::Value domain(Json::objectValue);
  domain["domain"] = "bench";
  domain["node"] = "bench";
  domain["poolSize"] = kChunks;
  if (!ShareMotionDomain::instance(MotionChannel::kControl).init(domain)) {
    throw std::runtime_error("no shared-memory domain");
  }
  Json::Value end(Json::objectValue);
  end["name"] = arguments["channel"];
  return end;
}

}  // namespace

OwnWriter::OwnWriter(const Json::Value& arguments) {
  if (!writer_.init(join(arguments)) || !writer_.open()) throw std::runtime_error("no writer");
}

bool OwnWriter::write(const Message& message) noexcept {
  record_.kind = message.kind;
  record_.timestampUs = static_cast<std::uint64_t>(message.sentNs);
  return writer_.write(record_, kRetries);
}

OwnReader::OwnReader(const Json::Value& arguments)
    : reader_(std::make_shared<ShareMotionCtrlReader>()) {
  const bool opened = reader_->init(join(arguments)) &&
                      reader_->initial([this](const ShareLowLevelMotionCtrlData* record) {
                        receive(record->kind, static_cast<std::int64_t>(record->timestampUs));
                      });
  if (!opened) throw std::runtime_error("no reader");
}

}  // namespace bench
