#include "DomainRegistry.h"

#include <atomic>
#include <cstdio>
#include <functional>
#include <mutex>
#include <string_view>
#include <utility>

#include "DDSContextLog.h"
#include "EndpointEntity.h"
#include "pbase/CConfigLoader.h"

namespace Pexal::PDBus {
namespace {

constexpr const char* kUnit = "DomainRegistry";

/// Warnings and errors of libddsc that weren't passed on, and nobody told of yet.
std::atomic<std::uint32_t> leftOut{0};

void tellLeftOut() noexcept {
  if (const std::uint32_t count = leftOut.exchange(0); count > 0) {
    static_cast<void>(std::fprintf(stderr, "dds: %u warnings and errors were left out\n", count));
  }
}

/// What libddsc logs at other times goes where it would by itself, but its warnings at most once a
/// second, and so its errors: it has one for each sample of a peer that it can't decode, or for
/// each packet that it can't send. It doesn't go to our log, whose sinks may use DDS, since libddsc
/// holds locks here.
void logSparingly(void*, const dds_log_data_t* data) {
  static LogLimiter warnings;
  static LogLimiter errors;  // of its own, so that no warning takes an error's place
  const bool warning = (data->priority & DDS_LC_WARNING) != 0;
  const bool error = (data->priority & DDS_LC_ERROR) != 0;
  if ((warning && !warnings.permit()) || (error && !errors.permit())) {
    ++leftOut;
    return;
  }
  tellLeftOut();
  const auto size = static_cast<int>(data->hdrsize + data->size);  // without the line's end
  static_cast<void>(std::fprintf(stderr, "%.*s\n", size, data->message - data->hdrsize));
}

/// What libddsc logs while this lives. Its result codes say little ("Error"); the cause is only in
/// its log. One at a time; libddsc may log from any of its threads. `after` sets the next sink.
class LogCapture {
 public:
  explicit LogCapture(std::function<void()> after) : after_(std::move(after)) {
    dds_set_log_sink(
        [](void* self, const dds_log_data_t* data) {
          static_cast<LogCapture*>(self)->add({data->message, data->size});
        },
        this);
  }
  LogCapture(const LogCapture&) = delete;
  LogCapture& operator=(const LogCapture&) = delete;
  // libddsc changes a sink only once no call of the old one is running.
  ~LogCapture() { after_(); }

  [[nodiscard]] std::string text() const {
    const std::lock_guard lock(mutex_);
    return text_;
  }

 private:
  static constexpr std::size_t kMostBytes = 2000;

  void add(std::string_view line) {
    while (!line.empty() && (line.back() == '\n' || line.back() == '\0')) line.remove_suffix(1);
    const std::lock_guard lock(mutex_);
    if (line.empty() || text_.size() + line.size() > kMostBytes) return;
    if (!text_.empty()) text_ += "; ";
    text_ += line;
  }

  const std::function<void()> after_;
  mutable PBase::CMutex mutex_;  // guards text_
  std::string text_;
};

/// The profile in the form that libddsc takes.
std::string profileOf(const std::string& url) {
  constexpr std::string_view kScheme = "file://";
  const std::size_t begin = url.find_first_not_of(" \t\r\n");
  if (begin == std::string::npos) return {};
  if (url[begin] == '<') return url;
  const bool isUrl = url.compare(begin, kScheme.size(), kScheme) == 0;
  const std::string path = url.substr(isUrl ? begin + kScheme.size() : begin);
  std::string text;
  if (!Config::CConfigLoader::readFile(path, text)) {
    throw dds::core::InvalidArgumentError("can't read the dds profile " + path);
  }
  if (path.find(',') != std::string::npos) {  // libddsc takes a comma for the end of a path
    throw dds::core::InvalidArgumentError("a comma in the path of the dds profile " + path);
  }
  return std::string(kScheme) + path;
}

/// Hands the error on with libddsc's words behind it.
[[noreturn]] void failWith(const dds::core::Exception& error, const std::string& words) {
  std::string text = error.what();
  if (!words.empty()) text += ": " + words;
  if (words.find("free participant index") != std::string::npos) {
    text += ": no participant slot left on this machine";
    throw dds::core::OutOfResourcesError(text);
  }
  throw dds::core::Error(text);
}

}  // namespace

DomainRegistry& DomainRegistry::instance() {
  static auto* const registry = new DomainRegistry;
  return *registry;
}

dds::domain::DomainParticipant DomainRegistry::join(std::uint32_t id, const std::string& url) {
  const std::lock_guard lock(mutex_);
  dds::domain::DomainParticipant participant;
  std::string words;
  {
    const LogCapture log([this] { chooseLogSink(); });
    try {
      if (const auto found = domains_.find(id); found == domains_.end()) {
        domains_[id] = open(id, url);
      } else if (found->second.url != url) {
        PDBUS_LOG(5, kUnit,
                  "dds domain %u is in use with profile \"%.200s\"; \"%.200s\" isn't applied\n", id,
                  found->second.url.c_str(), url.c_str());
      }
      participant = dds::domain::DomainParticipant(id);
    } catch (const dds::core::Exception& error) {
      closeUnused(id);
      failWith(error, log.text());
    }
    words = log.text();
  }
  ++domains_[id].users;
  if (!words.empty()) PDBUS_LOG(1, kUnit, "dds domain %u: %s\n", id, words.c_str());
  return participant;
}

DomainRegistry::Domain DomainRegistry::open(std::uint32_t id, const std::string& url) {
  const dds_entity_t created = dds_create_domain(id, profileOf(url).c_str());
  if (created == DDS_RETCODE_PRECONDITION_NOT_MET) return {0, 0, url};
  if (created < 0) {
    dds::core::detail::fail(created, "dds_create_domain(" + std::to_string(id) + ")");
  }
  return {created, 0, url};
}

void DomainRegistry::leave(std::uint32_t id) noexcept {
  const std::lock_guard lock(mutex_);
  const auto found = domains_.find(id);
  if (found == domains_.end() || found->second.users == 0) return;
  --found->second.users;
  closeUnused(id);
  chooseLogSink();
}

void DomainRegistry::chooseLogSink() noexcept {
  dds_set_log_sink(domains_.empty() ? nullptr : logSparingly, nullptr);
  if (domains_.empty()) tellLeftOut();
}

void DomainRegistry::closeUnused(std::uint32_t id) noexcept {
  const auto found = domains_.find(id);
  if (found == domains_.end() || found->second.users > 0) return;
  const dds_entity_t created = found->second.created;
  if (created > 0) {
    // Deleting a domain takes everything in it along, what others have made there too.
    if (dds_get_children(created, nullptr, 0) > 0) {
      PDBUS_LOG(3, kUnit, "dds domain %u is still in use by others and stays\n", id);
      return;
    }
    static_cast<void>(dds_delete(created));
  }
  domains_.erase(found);
}

}  // namespace Pexal::PDBus
