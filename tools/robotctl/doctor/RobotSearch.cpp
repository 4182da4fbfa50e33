#include "doctor/RobotSearch.h"

#include <algorithm>
#include <string_view>
#include <utility>

#include "core/Documents.h"
#include "core/Output.h"
#include "pbase/CTime.h"
#include "pbase/ILogger.h"
#include "pdbus/IEventBus.h"
#include "pdbus/RPC.h"

namespace robotctl::doctor {
namespace {

using Pexal::PBase::CTime;
using Pexal::PDBus::IDDSFactory;

constexpr char kHostServer[] = "robotServer";
constexpr char kRequestEvent[] = "robotServer.discoverDevice.request";
constexpr char kResponseEvent[] = "robotServer.discoverDevice.response";
constexpr char kBoardServer[] = "brainServer";
constexpr char kBoardService[] = "brainAppService";
constexpr std::uint32_t kPollMs = 20;
constexpr std::uint64_t kGraceMs = 400;  // for further robots, behind the first
constexpr std::uint32_t kQuestionMs = 500;
constexpr std::uint32_t kWarning = 3;
constexpr std::size_t kMostLines = 100;
constexpr std::size_t kMostRobots = 256;

}  // namespace

struct LogCapture::Lines {
  std::mutex mutex;  // guards lines
  std::vector<std::string> lines;
};

LogCapture::LogCapture(bool forward) : lines_(std::make_shared<Lines>()) {
  auto* const logger = Pexal::ILogger::instance();
  logger->enableConsole(false);
  sink_ =
      logger->addSink([lines = lines_, forward](std::uint32_t level, const char* text, int length) {
        std::string_view line(text, static_cast<std::size_t>(std::max(length, 0)));
        while (line.ends_with('\n')) line.remove_suffix(1);
        if (forward) Output::log(line);
        if (level < kWarning) return;
        const std::lock_guard lock(lines->mutex);
        if (lines->lines.size() < kMostLines) lines->lines.emplace_back(line);
      });
}

LogCapture::~LogCapture() {
  Pexal::ILogger::instance()->removeSink(sink_);
}

std::vector<std::string> LogCapture::take() {
  const std::lock_guard lock(lines_->mutex);
  return std::exchange(lines_->lines, {});
}

/// Hears the answers to a discovery.
class RobotSearch::Answers {
 public:
  void onAnswer(const std::string& /*topic*/, const Json::Value& payload) {
    if (!payload.isObject() || !payload["deviceNo"].isString()) return;
    RobotAnswer answer{payload["deviceNo"].asString(), payload["detail"]};
    if (!answer.detail.isObject()) answer.detail = Json::Value();
    const std::lock_guard lock(mutex_);
    const bool known = std::any_of(robots_.begin(), robots_.end(), [&](const RobotAnswer& robot) {
      return robot.deviceNo == answer.deviceNo;
    });
    if (!known && robots_.size() < kMostRobots) robots_.push_back(std::move(answer));
  }
  [[nodiscard]] std::vector<RobotAnswer> robots() const {
    const std::lock_guard lock(mutex_);
    return robots_;
  }

 private:
  mutable std::mutex mutex_;  // guards robots_
  std::vector<RobotAnswer> robots_;
};

RobotSearch::RobotSearch(const Machine& machine, const Interrupts& interrupts)
    : machine_(machine),
      interrupts_(interrupts),
      factory_(IDDSFactory::create()),
      answers_(std::make_shared<Answers>()) {}

RobotSearch::~RobotSearch() {
  factory_->shutdown();
}

Json::Value RobotSearch::document() const {
  Json::Value document;
  for (const Domain& domain : machine_.domains) {
    Json::Value entry;
    entry["name"] = domain.name;
    entry["domain"] = domain.id;
    entry["url"] = ddsSettings(domain, machine_.interface);
    document["domain"].append(std::move(entry));
  }
  Json::Value endpoint;
  endpoint["server"] = machine_.board ? kBoardServer : kHostServer;
  endpoint["domain"] = machine_.domains.front().name;
  document[machine_.board ? "client" : "eventBus"].append(std::move(endpoint));
  return document;
}

bool RobotSearch::start() {
  if (!factory_->initial(document())) return false;
  if (machine_.board) return true;
  const auto bus = factory_->eventBus(kHostServer);
  return bus != nullptr &&
         bus->subscribe(kResponseEvent, Pexal::PDBus::EventHandler::bind(
                                            std::weak_ptr<Answers>(answers_), &Answers::onAnswer));
}

std::vector<RobotAnswer> RobotSearch::robots(std::uint32_t windowMs, const std::string& wanted) {
  if (machine_.board) return askBoard(windowMs);
  const auto bus = factory_->eventBus(kHostServer);
  if (bus == nullptr || !bus->publish(kRequestEvent, Json::Value(), windowMs)) return {};
  std::uint64_t deadline = CTime::getCurrentMilliSecond() + windowMs;
  bool heard = false;
  while (CTime::getCurrentMilliSecond() < deadline) {
    interrupts_.sleep(kPollMs);
    const auto robots = answers_->robots();
    const bool enough =
        wanted.empty() ? !robots.empty()
                       : std::any_of(robots.begin(), robots.end(), [&](const RobotAnswer& robot) {
                           return robot.deviceNo == wanted;
                         });
    if (enough && !heard) {
      heard = true;
      deadline = std::min(deadline, CTime::getCurrentMilliSecond() + kGraceMs);
    }
  }
  return answers_->robots();
}

std::vector<RobotAnswer> RobotSearch::askBoard(std::uint32_t windowMs) {
  const auto client = factory_->rpcClient(kBoardServer);
  if (client == nullptr) return {};
  Json::Value request;
  request["call"]["clientId"] = "robotctl doctor";
  const std::uint64_t deadline = CTime::getCurrentMilliSecond() + windowMs;
  do {
    interrupts_.check();
    Json::Value answer;
    if (client->call(kBoardService, "getSystemStatus", request, answer, kQuestionMs, {}) != 0) {
      interrupts_.sleep(kPollMs);  // it may have failed at once
      continue;
    }
    RobotAnswer robot;
    if (answer.isObject() && answer["params"].isObject()) robot.detail = answer["params"];
    if (robot.detail.isObject() && robot.detail["deviceNo"].isString()) {
      robot.deviceNo = robot.detail["deviceNo"].asString();
    }
    Json::Value motion;  // a robot that doesn't tell its posture is one nevertheless
    if (client->call(kBoardService, "queryMotionState", request, motion, kQuestionMs, {}) == 0) {
      robot.detail["posture"] = textAt(motion, "params.posture");
    }
    return {robot};
  } while (CTime::getCurrentMilliSecond() < deadline);
  return {};
}

}  // namespace robotctl::doctor
