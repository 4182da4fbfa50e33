#include "service/HostProfile.h"

#include <unistd.h>

#include <cstdio>

#include "log/Log.h"
#include "service/SafeFile.h"

namespace orvane::RobotSdk::service {
namespace {

constexpr char kUnit[] = "HostProfile";

constexpr char kConfigNamespace[] = "https://cdds.io/config";
constexpr char kInstanceNamespace[] = "http://www.w3.org/2001/XMLSchema-instance";
constexpr char kSchemaFile[] =
    "https://raw.githubusercontent.com/eclipse-cyclonedds/cyclonedds/master/etc/cyclonedds.xsd";

}  // namespace

std::string renderHostProfile(std::int32_t domain, const std::string& networkInterface) {
  std::string text = "<?xml version=\"1.0\" encoding=\"utf-8\"?>\n<CycloneDDS\n  xmlns=\"";
  text += kConfigNamespace;
  text += "\"\n  xmlns:xsi=\"";
  text += kInstanceNamespace;
  text += "\"\n  xsi:schemaLocation=\"";
  text += kConfigNamespace;
  text += ' ';
  text += kSchemaFile;
  text += "\"\n>\n  <Domain Id=\"" + std::to_string(domain) + "\">\n    <General>\n";
  if (!networkInterface.empty()) {
    text += "      <Interfaces>\n        <NetworkInterface name=\"" + networkInterface +
            "\" priority=\"3\" multicast=\"default\" presence_required=\"true\" />\n"
            "      </Interfaces>\n";
  }
  text +=
      "      <AllowMulticast>true</AllowMulticast>\n"
      "      <MaxMessageSize>65500B</MaxMessageSize>\n"
      "    </General>\n"
      "    <Tracing>\n"
      "      <Verbosity>none</Verbosity>\n"
      "    </Tracing>\n"
      "  </Domain>\n"
      "</CycloneDDS>\n";
  return text;
}

std::string writeHostProfile(std::int32_t domain, const std::string& networkInterface) {
  char path[128];
  std::snprintf(path, sizeof path, "/tmp/motion_sdk_host_%d.xml", static_cast<int>(::getpid()));
  const int error = replaceFileContent(path, renderHostProfile(domain, networkInterface));
  if (error == 0) return path;
  MOTION_LOG(kUnit, level::kError, "create host dds profile(%s) failed: %s", path,
             errorText(error).c_str());
  return {};
}

}  // namespace orvane::RobotSdk::service
