#include "terminal/LiveScreen.h"

#include <poll.h>

#include <algorithm>
#include <array>
#include <csignal>
#include <sstream>

#include "core/Failure.h"
#include "core/Text.h"
#include "terminal/Clock.h"

namespace robotctl {

LiveScreen::LiveScreen(const Interrupts& interrupts)
    : interrupts_(interrupts), screen_(Abilities::ofEnvironment()) {}

std::vector<Key> LiveScreen::wait(std::uint64_t deadlineMs, int otherFd) {
  if (const std::uint64_t escape = decoder_.deadlineMs(); escape != 0) {
    deadlineMs = std::min(deadlineMs, escape);
  }
  interrupts_.check();
  pollOnce(deadlineMs, otherFd);
  interrupts_.check();
  const std::string typed = terminal_.read();
  if (terminal_.gone()) throw Interrupted{SIGHUP};
  if (terminal_.takeChange()) screen_.forget();
  const std::uint64_t now = monotonicMs();
  std::vector<Key> keys = typed.empty() ? decoder_.expire(now) : decoder_.feed(typed, now);
  if (std::find(keys.begin(), keys.end(), kKeyRedraw) != keys.end()) screen_.forget();
  return keys;
}

void LiveScreen::pollOnce(std::uint64_t deadlineMs, int otherFd) const {
  const std::uint64_t now = monotonicMs();
  const int limit =
      deadlineMs > now ? static_cast<int>(std::min<std::uint64_t>(deadlineMs - now, 60000)) : 0;
  std::array<pollfd, 5> watched{
      pollfd{interrupts_.fd(), POLLIN, 0}, pollfd{terminal_.inputFd(), POLLIN, 0},
      pollfd{terminal_.changeFd(), POLLIN, 0}, pollfd{terminal_.messagesFd(), POLLIN, 0},
      pollfd{otherFd, POLLIN, 0}};
  ::poll(watched.data(), watched.size(), limit);
}

void LiveScreen::show(const std::function<Canvas(Size)>& draw) {
  if (!terminal_.ready()) return;
  terminal_.write(screen_.update(draw(terminal_.size())));
}

std::vector<std::string> LiveScreen::takeMessages() {
  std::vector<std::string> lines;
  std::istringstream stream(terminal_.takeMessages());
  for (std::string line; std::getline(stream, line);) lines.push_back(printable(line));
  return lines;
}

}  // namespace robotctl
