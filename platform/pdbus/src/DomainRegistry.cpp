#include "DomainRegistry.h"

#include <atomic>
#include <cstdio>
#include <functional>
#include <string_view>
#include <utility>

#include "DDSContextLog.h"
#include "EndpointEntity.h"
#include "pbase/CConfigLoader.h"
#include "pbase/CTime.h"
#include "pbase/System.h"

namespace Pexal::PDBus {
namespace {

constexpr const char* kUnit = "DomainRegistry";
/// How long a join waits for those on their way out: libddsc lingers for a second.
constexpr std::uint64_t kLeaveUs = 3'000'000;

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

struct DomainRegistry::Profile {
  std::string form;  ///< as libddsc takes it
  std::string text;
};

DomainRegistry::Profile DomainRegistry::profileOf(const std::optional<std::string>& url) {
  if (!url) {  // what libddsc itself takes for a domain that nobody has made
    const std::string own = PBase::getEnvVariable("CYCLONEDDS_URI");
    return {own, own};
  }
  constexpr std::string_view kScheme = "file://";
  const std::size_t begin = url->find_first_not_of(" \t\r\n");
  if (begin == std::string::npos) return {};
  if ((*url)[begin] == '<') return {*url, *url};
  const bool isUrl = url->compare(begin, kScheme.size(), kScheme) == 0;
  const std::string path = url->substr(isUrl ? begin + kScheme.size() : begin);
  std::string text;
  if (!Config::CConfigLoader::readFile(path, text)) {
    throw dds::core::InvalidArgumentError("can't read the dds profile " + path);
  }
  if (path.find(',') != std::string::npos) {  // libddsc takes a comma for the end of a path
    throw dds::core::InvalidArgumentError("a comma in the path of the dds profile " + path);
  }
  return {std::string(kScheme) + path, std::move(text)};
}

dds::domain::DomainParticipant DomainRegistry::join(std::uint32_t id,
                                                    const std::optional<std::string>& url) {
  const Profile profile = profileOf(url);
  std::unique_lock lock(mutex_);
  if (url) awaitLeaving(lock, id, profile.text);
  dds::domain::DomainParticipant participant;
  std::string words;
  {
    const LogCapture log([this] { chooseLogSink(); });
    try {
      static_cast<void>(closeUnused(id));  // those who kept it may have gone meanwhile
      if (domains_.count(id) == 0) domains_[id] = open(id, profile);
      if (url && domains_[id].settings != profile.text) {
        PDBUS_LOG(5, kUnit,
                  "dds domain %u is in use with other settings; \"%.200s\" isn't applied\n", id,
                  url->c_str());
      }
      participant = dds::domain::DomainParticipant(id);
    } catch (const dds::core::Exception& error) {
      static_cast<void>(closeUnused(id));
      failWith(error, log.text());
    }
    words = log.text();
  }
  ++domains_[id].users;
  if (!words.empty()) PDBUS_LOG(1, kUnit, "dds domain %u: %s\n", id, words.c_str());
  return participant;
}

/// Those who are as good as gone don't decide over the settings of who comes.
void DomainRegistry::awaitLeaving(std::unique_lock<PBase::CMutex>& lock, std::uint32_t id,
                                  const std::string& settings) {
  const auto mayJoin = [&] {
    const auto found = domains_.find(id);
    return found == domains_.end() || found->second.settings == settings ||
           found->second.users == 0 || found->second.users > found->second.leaving;
  };
  static_cast<void>(
      left_.waitUntil(lock, PBase::CTime::getCurrentMicroSecond() + kLeaveUs, mayJoin));
}

DomainRegistry::Domain DomainRegistry::open(std::uint32_t id, const Profile& profile) {
  const dds_entity_t created = dds_create_domain(id, profile.form.c_str());
  if (created == DDS_RETCODE_PRECONDITION_NOT_MET) return {};
  if (created < 0) {
    dds::core::detail::fail(created, "dds_create_domain(" + std::to_string(id) + ")");
  }
  return {created, 0, 0, profile.text};
}

void DomainRegistry::announceLeave(std::uint32_t id) noexcept {
  const std::lock_guard lock(mutex_);
  if (const auto found = domains_.find(id); found != domains_.end()) ++found->second.leaving;
  left_.notifyAll();
}

void DomainRegistry::leave(std::uint32_t id, bool wasAnnounced) noexcept {
  const std::lock_guard lock(mutex_);
  const auto found = domains_.find(id);
  if (found == domains_.end() || found->second.users == 0) return;
  --found->second.users;
  if (wasAnnounced) --found->second.leaving;
  if (!closeUnused(id)) {
    PDBUS_LOG(3, kUnit, "dds domain %u is still in use by others and stays\n", id);
  }
  chooseLogSink();
  left_.notifyAll();
}

void DomainRegistry::chooseLogSink() noexcept {
  dds_set_log_sink(domains_.empty() ? nullptr : logSparingly, nullptr);
  if (domains_.empty()) tellLeftOut();
}

bool DomainRegistry::closeUnused(std::uint32_t id) noexcept {
  const auto found = domains_.find(id);
  if (found == domains_.end() || found->second.users > 0) return true;
  const dds_entity_t created = found->second.created;
  if (created > 0) {
    // Deleting a domain takes everything in it along, what others have made there too.
    if (dds_get_children(created, nullptr, 0) > 0) return false;
    static_cast<void>(dds_delete(created));
  }
  domains_.erase(found);
  return true;
}

}  // namespace Pexal::PDBus
