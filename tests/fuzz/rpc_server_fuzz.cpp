// Requests of a peer that speaks the wire types itself, to an RPC server. One step per line:
//
//   announce <text>    (first line) what its writer announces; without it the right thing
//   call|oneway|foreign <number> <service> <method> <document>
//                      "foreign" names another client than the one that sends it
//
// A model says which of them are answered and how. Another client is served all the while.

#include <algorithm>
#include <mutex>
#include <set>
#include <stdexcept>

#include "Partition.h"
#include "WireSupport.h"
#include "pbase/CMutex.h"
#include "pbase/CTime.h"
#include "pdbus/RPC.h"

namespace {

using namespace Pexal::PDBus;
using Pexal::PBase::CTime;
using Pexal::Utils::jsonToString;
using Pexal::Utils::stringToJson;

constexpr std::size_t kMostSteps = 32;
constexpr std::uint64_t kWindow = 512;
constexpr std::size_t kMaxName = 255;
constexpr std::uint32_t kInputsPerWorld = 50'000;
constexpr const char* kDevice = "dog:7";

/// The handler: a member of the document says what it does.
RpcReply decide(const RpcRequest& request) {
  RpcReply reply;
  if (request.document.isMember("throw")) throw std::runtime_error("as asked");
  if (request.document.isMember("throw int")) throw 7;
  reply.withheld = request.document.isMember("withhold");
  if (const Json::Value& status = request.document["status"]; status.isUInt()) {
    reply.status = static_cast<RpcStatus>(status.asUInt());
  }
  if (const Json::Value& reason = request.document["reason"]; reason.isUInt()) {
    reply.reason = reason.asUInt();
  }
  reply.document["service"] = request.service;
  reply.document["method"] = request.method;
  reply.document["got"] = request.document;
  return reply;
}

struct Answer {
  std::uint64_t number;
  std::uint32_t status;
  std::uint32_t reason;
  std::string document;

  friend bool operator==(const Answer& a, const Answer& b) {
    return a.number == b.number && a.status == b.status && a.reason == b.reason &&
           a.document == b.document;
  }
};

/// A client that is no RPCClient.
class Peer {
 public:
  Peer(dds_entity_t participant, dds_entity_t requests, dds_entity_t replies,
       const std::string* announcement)
      : partition_(clientPartition(id_)),
        reader_(fuzz::rawReader(participant, replies, {partition_, {}, &Peer::onReply, this})),
        writer_(fuzz::rawWriter(
            participant, requests,
            {*devicePartition(kDevice), announcement != nullptr ? *announcement : partition_})) {}

  void send(const RpcRequest& request, std::uint64_t number, const std::string& document,
            bool foreign = false) {
    Pexal_PDBus_Request sample{};
    std::copy(id_.begin(), id_.end(), sample.client);
    if (foreign) ++sample.client[0];
    sample.number = number;
    sample.oneWay = request.oneWay;
    sample.service = const_cast<char*>(request.service.c_str());
    sample.method = const_cast<char*>(request.method.c_str());
    sample.document = fuzz::octets(document);
    fuzz::write(writer_, &sample);
  }

  /// The first `count` answers, once they are there.
  std::vector<Answer> await(std::size_t count) {
    std::unique_lock lock(mutex_);
    changed_.waitUntil(lock, CTime::getCurrentMicroSecond() + 1000ULL * fuzz::kPatienceMs,
                       [&] { return answers_.size() >= count; });
    return answers_;
  }
  void forget() {
    const std::lock_guard lock(mutex_);
    answers_.clear();
  }
  [[nodiscard]] const std::string& partition() const { return partition_; }

 private:
  static void onReply(dds_entity_t reader, void* argument) {
    auto& self = *static_cast<Peer*>(argument);
    fuzz::takeRaw<Pexal_PDBus_Reply>(reader, [&self](const Pexal_PDBus_Reply& reply) {
      fuzz::require(std::equal(self.id_.begin(), self.id_.end(), reply.client),
                    "an answer goes to the client that asked");
      const auto* const text = reinterpret_cast<const char*>(reply.document._buffer);
      const std::lock_guard lock(self.mutex_);
      self.answers_.push_back(
          {reply.number, reply.status, reply.reason, std::string(text, reply.document._length)});
      self.changed_.notifyAll();
    });
  }

  const PeerId id_ = Pexal::Utils::createRandomUUIDBytes();
  const std::string partition_;
  Pexal::PBase::CMutex mutex_;  // guards answers_
  Pexal::PBase::CCondition changed_;
  std::vector<Answer> answers_;
  fuzz::RawEntity reader_;  // after what its listener uses
  fuzz::RawEntity writer_;
};

/// The server under test with a client that always behaves, kept for many inputs.
class World {
 public:
  /// libddsc keeps half a kilobyte of every endpoint that there ever was until its domain is
  /// closed, and each input makes three: a long run needs a new world from time to time.
  static World& renewed() {
    static std::unique_ptr<World> world;
    static std::uint32_t inputs = 0;
    if (inputs++ % kInputsPerWorld == 0) {
      world.reset();
      world.reset(new World);
    }
    return *world;
  }
  [[nodiscard]] Peer peer(const std::string* announcement) const {
    return Peer(participant_, requests_, replies_, announcement);
  }
  /// The server has dealt with everything that was sent before this.
  void checkAlive() {
    const RpcRequest ping{"ping", "", Json::Value(Json::objectValue), false};
    good_.send(ping, ++pings_, "{}");
    const auto answers = good_.await(1);
    fuzz::require(answers.size() == 1 && answers[0].number == pings_ && answers[0].status == 0,
                  "the server goes on answering");
    good_.forget();
  }

 private:
  World()
      : context_(""),
        participant_(context_.participant()),
        requests_(
            fuzz::rawTopic(participant_, Pexal_PDBus_Request_desc, "robotServer/rpc/request")),
        replies_(fuzz::rawTopic(participant_, Pexal_PDBus_Reply_desc, "robotServer/rpc/reply")),
        server_(RPCServer::create(context_.factory, fuzz::kDomain, fuzz::kServer, kDevice, decide)),
        good_(participant_, requests_, replies_, nullptr) {
    fuzz::require(server_ != nullptr, "the server starts");
  }

  const fuzz::Context context_;
  const dds_entity_t participant_;
  const fuzz::RawEntity requests_;
  const fuzz::RawEntity replies_;
  const std::shared_ptr<RPCServer> server_;
  Peer good_;
  std::uint64_t pings_ = 0;
};

/// What the server is to answer, from the rules alone.
class Model {
 public:
  void add(const RpcRequest& request, std::uint64_t number, const std::string& text) {
    if (number == 0 || !seen_.insert(number).second) return;
    if (highest_ >= number && highest_ - number >= kWindow) return;
    highest_ = std::max(highest_, number);
    RpcRequest read = request;
    Answer answer{number, static_cast<std::uint32_t>(RpcStatus::kMalformedRequest), 0, "null"};
    if (request.service.size() <= kMaxName && request.method.size() <= kMaxName &&
        stringToJson(text, read.document) && read.document.isObject() && !carryOut(read, answer)) {
      return;
    }
    if (!request.oneWay) answers.push_back(answer);
  }

  std::vector<Answer> answers;

 private:
  /// False: nothing is sent.
  static bool carryOut(const RpcRequest& request, Answer& answer) {
    constexpr auto kFailed = static_cast<std::uint32_t>(RpcStatus::kHandlerFailed);
    try {
      const RpcReply reply = decide(request);
      const auto status = static_cast<std::uint32_t>(reply.status);
      answer = {answer.number, status == 0 || (status >= 8 && status <= 11) ? status : kFailed,
                reply.reason, jsonToString(reply.document)};
      return !reply.withheld;
    } catch (...) {
      answer.status = kFailed;
      return true;
    }
  }

  std::set<std::uint64_t> seen_;
  std::uint64_t highest_ = 0;
};

void play(Peer& peer, Model* model, std::string_view line) {
  const std::string_view verb = fuzz::takeUntil(line, ' ');
  const bool foreign = verb == "foreign";
  if (verb != "call" && verb != "oneway" && !foreign) return;
  const std::uint64_t number = fuzz::numberOf(fuzz::takeUntil(line, ' '));
  const RpcRequest request{std::string(fuzz::takeUntil(line, ' ')),
                           std::string(fuzz::takeUntil(line, ' ')),
                           {},
                           verb == "oneway"};
  // On the wire a name ends at its first zero byte.
  const RpcRequest seen{request.service.c_str(), request.method.c_str(), {}, request.oneWay};
  peer.send(request, number, std::string(line), foreign);
  if (model != nullptr && !foreign) model->add(seen, number, std::string(line));
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
  fuzz::silenceLog();
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  std::string_view text = fuzz::textOf(data, size);
  constexpr std::string_view kAnnounce = "announce ";
  std::string announcement;
  const bool announces = text.starts_with(kAnnounce);
  if (announces) announcement = fuzz::takeUntil(text, '\n').substr(kAnnounce.size());

  World& world = World::renewed();
  Peer peer = world.peer(announces ? &announcement : nullptr);
  Model model;
  for (const std::string_view line : fuzz::linesOf(text, kMostSteps)) {
    play(peer, announces ? nullptr : &model, line);
  }
  world.checkAlive();
  fuzz::require(peer.await(model.answers.size()) == model.answers,
                "each request that counts is answered once, in order");
  return 0;
}
