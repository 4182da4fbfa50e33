#include "service/LogSink.h"

#include "service/CallbackScope.h"

namespace orvane::RobotSdk::service {
namespace {

thread_local bool forwarding = false;

class ForwardingScope {
 public:
  ForwardingScope() { forwarding = true; }
  ~ForwardingScope() { forwarding = false; }
  ForwardingScope(const ForwardingScope&) = delete;
  ForwardingScope& operator=(const ForwardingScope&) = delete;

 private:
  CallbackScope callback;
};

}  // namespace

void LogSink::attach(const LoggerCallback& callback) {
  detach();
  if (!callback) return;
  sink = Pexal::ILogger::instance()->addSink(
      [callback](std::uint32_t level, const char* text, int length) {
        // A callback that makes the SDK log from within would otherwise call itself without end.
        if (text == nullptr || length < 1 || forwarding) return;
        const ForwardingScope scope;
        try {
          callback(level, text, length);
        } catch (...) {  // NOLINT(bugprone-empty-catch): there is nowhere left to report it to
        }
      });
  registered = true;
}

void LogSink::detach() {
  if (!registered) return;
  registered = false;
  Pexal::ILogger::instance()->removeSink(sink);
}

}  // namespace orvane::RobotSdk::service
