#include "gamepad/PadSource.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstring>
#include <fstream>
#include <iterator>
#include <optional>
#include <utility>

#include "gamepad/JoystickDecoder.h"
#include "gamepad/PadScript.h"
#include "pbase/ILogger.h"

namespace orvane::robot {
namespace {

constexpr std::uint64_t kLookAgainMs = 200;

class ScriptSource final : public PadSource {
 public:
  explicit ScriptSource(PadScript script) : script_(std::move(script)) {}

  bool poll(std::uint64_t nowMs, PadState& state) override {
    if (!begunMs_) begunMs_ = nowMs;
    return script_.at(nowMs - *begunMs_, state);
  }

 private:
  PadScript script_;
  std::optional<std::uint64_t> begunMs_;
};

/// A joystick device, or a FIFO in its place, for which a pad is there while somebody has it open
/// for writing.
class DeviceSource final : public PadSource {
 public:
  explicit DeviceSource(std::string path) : path_(std::move(path)) {}
  ~DeviceSource() override { close(); }

  bool poll(std::uint64_t nowMs, PadState& state) override {
    if (!there_ && nowMs >= lookMs_) {
      lookMs_ = nowMs + kLookAgainMs;
      look();
    }
    if (fd_ < 0) return false;
    const bool there = read();
    if (there != std::exchange(there_, there)) tell();
    if (!there) decoder_.reset();
    state = decoder_.state();
    return there;
  }

 private:
  static constexpr std::size_t kMostBytes = 256 * sizeof(js_event);  // at one poll

  /// Opens what is at the path, unless that is open already: a FIFO stays open between its writers,
  /// or what one writes meanwhile would be lost.
  void look() {
    struct stat at {};
    if (::stat(path_.c_str(), &at) != 0) return close();
    if (fd_ >= 0 && at.st_dev == device_ && at.st_ino == inode_) return;
    close();
    fd_ = ::open(path_.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC | O_NOCTTY);
    if (fd_ < 0 || ::fstat(fd_, &at) != 0 || !(S_ISCHR(at.st_mode) || S_ISFIFO(at.st_mode))) {
      return close();
    }
    device_ = at.st_dev;
    inode_ = at.st_ino;
  }

  /// Reads what has come. False: nobody is there to write more.
  [[nodiscard]] bool read() {
    std::array<std::byte, kMostBytes> bytes;
    const ssize_t count = ::read(fd_, bytes.data(), bytes.size());
    if (count > 0) decoder_.feed({bytes.data(), static_cast<std::size_t>(count)});
    if (count >= 0) return count > 0;
    if (errno == EAGAIN || errno == EINTR) return true;
    close();
    return false;
  }

  void close() {
    if (fd_ >= 0) ::close(std::exchange(fd_, -1));
  }

  void tell() const {
    Pexal::ILogger::instance()->log(there_ ? 1 : 3, "VirtualRobot", "game pad at %s is %s\n",
                                    path_.c_str(), there_ ? "there" : "gone");
  }

  const std::string path_;
  JoystickDecoder decoder_;
  int fd_ = -1;
  dev_t device_ = 0;
  ino_t inode_ = 0;
  bool there_ = false;
  std::uint64_t lookMs_ = 0;
};

std::unique_ptr<PadSource> readScript(const std::string& path, std::string& error) {
  std::ifstream file(path, std::ios::binary);
  std::string text(PadScript::kLongestText + 1, '\0');
  file.read(text.data(), static_cast<std::streamsize>(text.size()));
  if (!file.is_open() || file.bad()) {
    error = "can't read " + path;
    return nullptr;
  }
  text.resize(static_cast<std::size_t>(file.gcount()));
  auto script = PadScript::parse(text);
  if (auto* wrong = std::get_if<std::string>(&script)) {
    error = "game pad script " + path + ", " + *wrong;
    return nullptr;
  }
  return std::make_unique<ScriptSource>(std::get<PadScript>(std::move(script)));
}

}  // namespace

std::unique_ptr<PadSource> openPadSource(const std::string& path, std::string& error) {
  struct stat at {};
  const int failure = ::stat(path.c_str(), &at) == 0 ? 0 : errno;
  if (failure == 0 && S_ISREG(at.st_mode)) return readScript(path, error);
  if (failure == 0 && !S_ISCHR(at.st_mode) && !S_ISFIFO(at.st_mode)) {
    error = "game pad " + path + " is neither a script nor a joystick device nor a FIFO";
    return nullptr;
  }
  if (failure == ENOENT) {
    Pexal::ILogger::instance()->log(3, "VirtualRobot", "no game pad at %s yet\n", path.c_str());
  } else if (failure != 0) {
    error = "game pad " + path + ": " + std::strerror(failure);
    return nullptr;
  }
  return std::make_unique<DeviceSource>(path);
}

}  // namespace orvane::robot
