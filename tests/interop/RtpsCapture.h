#pragma once

#include <cstddef>
#include <vector>

/// Listens to what crosses the loopback interface and picks the user data out of it. Needs a
/// network namespace where this process may open packet sockets.
class RtpsCapture {
 public:
  /// Throws std::system_error.
  RtpsCapture();
  ~RtpsCapture();
  RtpsCapture(const RtpsCapture&) = delete;
  RtpsCapture& operator=(const RtpsCapture&) = delete;

  /// The payloads (encapsulation header and body) of all DATA messages of keyless user writers
  /// since the last call.
  [[nodiscard]] std::vector<std::vector<std::byte>> take();

 private:
  int socket_;
};
