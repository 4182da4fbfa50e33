#pragma once

#include <array>
#include <cstddef>
#include <string_view>

namespace robotctl {

/// The channels of a recording, in the order of their ids in the file.
enum class ChannelNumber : unsigned {
  kMotion,      ///< delivered motion records
  kSensor,      ///< delivered sensor records
  kEvent,       ///< delivered events
  kConnection,  ///< delivered changes of the connection's state
  kState,       ///< the robot's motion state, asked for twice a second
  kError,       ///< changes of what the last question came to
  kRecorder,    ///< what the recorder has to say: begin, silence, overflow, end
};
inline constexpr std::size_t kChannels = 7;

struct ChannelKind {
  std::string_view topic;
  std::string_view encoding;    ///< of its messages
  std::string_view schemaName;  ///< also tells a reader what it looks at
  std::string_view schemaEncoding;
  std::string_view schema;  ///< empty: the definition of a record (RecordCodec.h)
};

extern const std::array<ChannelKind, kChannels> kChannelKinds;

[[nodiscard]] inline const ChannelKind& kindOf(ChannelNumber number) {
  return kChannelKinds[static_cast<std::size_t>(number)];
}

}  // namespace robotctl
