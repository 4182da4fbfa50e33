#include "core/Failure.h"

#include <utility>

namespace robotctl {

Failure::Failure(ExitCode code, const std::string& text, std::string hint)
    : std::runtime_error(text), code_(code), hint_(std::move(hint)) {}

Failure&& Failure::with(Json::Value details) && {
  details_ = std::move(details);
  return std::move(*this);
}

}  // namespace robotctl
