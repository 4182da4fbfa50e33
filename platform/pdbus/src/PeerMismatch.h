#pragma once

#include <dds/dds.h>

#include <atomic>
#include <cstdint>
#include <functional>
#include <string>

namespace Pexal::PDBus {

/// Says which peers on a topic DDS doesn't match with an endpoint of ours, because their type or
/// QoS doesn't fit: one log line per policy and direction, however many peers there are and however
/// often they come back.
///
/// libddsc tells of a policy only. A type that differs comes as one when both sides carry type
/// information. Without, a peer whose type has another name is passed over in silence, and one
/// whose type has the same name is matched: its samples then fail to decode one by one.
///
/// Threading: any thread. The listeners run on libddsc's receive threads and only note and wake, as
/// those neither log nor block; report is for a thread that may.
class PeerMismatch {
 public:
  /// `ours` names the endpoint in the log. `wake` has the thread that reports do so soon.
  explicit PeerMismatch(std::string ours, std::function<void()> wake = {});

  /// Has `listener` note what doesn't match. This object outlives the entity that it is set on.
  void listenWith(dds_listener_t* listener);
  void noteWriter(std::uint32_t policy) noexcept { note(writers_, policy); }
  void noteReader(std::uint32_t policy) noexcept { note(readers_, policy); }

  [[nodiscard]] bool pending() const noexcept {
    return (writers_.noted & ~writers_.reported) != 0 || (readers_.noted & ~readers_.reported) != 0;
  }
  void report();

 private:
  struct Policies {
    std::atomic<std::uint32_t> noted{0};  ///< a bit per policy
    std::atomic<std::uint32_t> reported{0};
  };
  void note(Policies& policies, std::uint32_t policy) noexcept;
  void report(Policies& policies, const char* peer, const char* consequence);

  const std::string ours_;
  const std::function<void()> wake_;
  Policies writers_;
  Policies readers_;
};

}  // namespace Pexal::PDBus
