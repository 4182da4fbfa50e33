// The configuration file of an application: whatever stands in it, the service starts with it or
// refuses it, and what it says can be looked at.

#include <fcntl.h>
#include <unistd.h>

#include "FuzzSupport.h"
#include "orvane/RobotSdk/IMotionSdkService.h"
#include "scripted/ScriptedBus.h"
#include "service/ServiceAccess.h"

namespace {

using namespace orvane::RobotSdk;

/// A file that holds the input.
class ConfigFile {
 public:
  explicit ConfigFile(std::string_view text) {
    const int file = ::open(path_.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600);
    fuzz::require(
        file >= 0 && ::write(file, text.data(), text.size()) == static_cast<ssize_t>(text.size()),
        "the input can be written");
    ::close(file);
  }
  ~ConfigFile() { ::unlink(path_.c_str()); }
  ConfigFile(const ConfigFile&) = delete;
  ConfigFile& operator=(const ConfigFile&) = delete;
  [[nodiscard]] const char* path() const { return path_.c_str(); }

 private:
  const std::string path_ = "/tmp/sdk_config_fuzz." + std::to_string(::getpid());
};

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
  fuzz::silenceLog();
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string_view text = fuzz::textOf(data, size);
  Json::Value parsed;
  const bool valid = Pexal::Utils::stringToJson(text, parsed);
  const Json::Value& document = parsed;
  const ConfigFile file(text);
  const scripted::Bus bus;
  auto* const service = IMotionSdkService::instance();
  service->attachLoggerCallback([](std::uint32_t, const char*, int) {});
  fuzz::require(service->initial(file.path(), "fuzzer", 0) == valid,
                "a file is taken exactly when it is JSON");
  if (valid) {
    fuzz::require(service::section("") == document, "the configuration is the file's");
    const Json::Value part = service::section("motion");
    fuzz::require(!document.isObject() || part == document["motion"], "a section is its member");
    for (const char* const path : {"motion.dds", "motion.dds.domain", "a.b.c.d", "motion[0]"}) {
      fuzz::require(fuzz::isJson(Pexal::Utils::jsonToString(service::section(path))),
                    "any path leads to a value");
    }
  }
  service->shutdown();
  return 0;
}
