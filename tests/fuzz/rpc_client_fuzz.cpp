// Answers of a server that speaks the wire types itself, to a request of an RPC client. One answer
// per line, all of them sent at once:
//
//   reply|stray <offset> <status> <reason> <document>
//
// "stray" names another client; `offset` is added to the number of the request. The first answer
// that fits is the one that counts.

#include <algorithm>
#include <cstring>

#include "Partition.h"
#include "WireSupport.h"
#include "pbase/System.h"
#include "pdbus/RPC.h"

namespace {

using namespace Pexal::PDBus;
using Pexal::Utils::stringToJson;

constexpr std::size_t kMostAnswers = 32;
constexpr const char* kDevice = "dog:7";

struct Answer {
  bool stray;
  std::uint64_t offset;
  std::uint32_t status;
  std::uint32_t reason;
  std::string document;
};

Answer parse(std::string_view line) {
  Answer answer{};
  answer.stray = fuzz::takeUntil(line, ' ') == "stray";
  answer.offset = fuzz::numberOf(fuzz::takeUntil(line, ' '));
  answer.status = static_cast<std::uint32_t>(fuzz::numberOf(fuzz::takeUntil(line, ' ')));
  answer.reason = static_cast<std::uint32_t>(fuzz::numberOf(fuzz::takeUntil(line, ' ')));
  answer.document = line;
  return answer;
}

/// The client under test and its scripted server, kept for all inputs. The server answers inside
/// the client's own write, so that no call ever has to wait.
class World {
 public:
  static World& get() {
    static auto& world = *new World;
    return world;
  }

  std::uint32_t call(std::vector<Answer> answers, Json::Value& response, std::uint32_t timeoutMs) {
    answers_ = std::move(answers);
    const std::uint64_t before = requests_;
    const std::uint32_t status = client_->call("service", "method", Json::Value(Json::objectValue),
                                               response, timeoutMs, kDevice);
    fuzz::require(requests_ == before + 1, "a call is one request");
    return status;
  }

 private:
  World()
      : context_(R"("client": [{"server": "robotServer", "domain": "host"}])"),
        participant_(context_.participant()),
        requestTopic_(
            fuzz::rawTopic(participant_, Pexal_PDBus_Request_desc, "robotServer/rpc/request")),
        replyTopic_(fuzz::rawTopic(participant_, Pexal_PDBus_Reply_desc, "robotServer/rpc/reply")),
        // A partition wildcard: the one writer reaches the reply reader of every client.
        writer_(fuzz::rawWriter(participant_, replyTopic_, {"client/*", {}})),
        reader_(fuzz::rawReader(participant_, requestTopic_,
                                {*devicePartition(kDevice), {}, &World::onRequest, this})),
        client_(context_.factory->rpcClient(fuzz::kServer)) {
    Json::Value response;
    fuzz::require(
        client_ != nullptr && call({{false, 0, 0, 0, "{}"}}, response, fuzz::kPatienceMs) == 0,
        "client and server find each other");
  }

  static void onRequest(dds_entity_t reader, void* argument) {
    auto& self = *static_cast<World*>(argument);
    fuzz::takeRaw<Pexal_PDBus_Request>(reader, [&self](const Pexal_PDBus_Request& request) {
      ++self.requests_;
      fuzz::require(request.number > self.lastNumber_, "numbers rise");
      self.lastNumber_ = request.number;
      for (const Answer& answer : self.answers_) {
        Pexal_PDBus_Reply reply{};
        std::memcpy(reply.client, request.client, sizeof reply.client);
        if (answer.stray) ++reply.client[15];
        reply.number = request.number + answer.offset;
        reply.status = answer.status;
        reply.reason = answer.reason;
        reply.document = fuzz::octets(answer.document);
        fuzz::write(self.writer_, &reply);
      }
    });
  }

  std::vector<Answer> answers_;
  std::uint64_t requests_ = 0;
  std::uint64_t lastNumber_ = 0;
  const fuzz::Context context_;
  const dds_entity_t participant_;
  const fuzz::RawEntity requestTopic_;
  const fuzz::RawEntity replyTopic_;
  const fuzz::RawEntity writer_;
  const fuzz::RawEntity reader_;
  const std::shared_ptr<RPCClient> client_;
};

/// What the client is to make of an answer, from the rules alone.
RpcStatus outcomeOf(const Answer* answer, Json::Value& document) {
  if (answer == nullptr) return RpcStatus::kTimeout;
  if (answer->status >= 8 && answer->status <= 11) return static_cast<RpcStatus>(answer->status);
  const bool readable = answer->status == 0 && stringToJson(answer->document, document);
  return readable ? RpcStatus::kOk : RpcStatus::kMalformedReply;
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
  fuzz::silenceLog();
  World::get();
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  std::vector<Answer> answers;
  for (const auto line : fuzz::linesOf(fuzz::textOf(data, size), kMostAnswers)) {
    answers.push_back(parse(line));
  }
  const auto fits = [](const Answer& answer) { return !answer.stray && answer.offset == 0; };
  const auto first = std::find_if(answers.begin(), answers.end(), fits);
  Json::Value expected = "untouched";
  const RpcStatus outcome = outcomeOf(first == answers.end() ? nullptr : &*first, expected);
  const std::uint32_t reason = first == answers.end() ? 0 : first->reason;

  Json::Value response = "untouched";
  const std::uint32_t status = World::get().call(std::move(answers), response, 0);
  const std::uint32_t error = Pexal::PBase::getLastErrno();
  fuzz::require(status == static_cast<std::uint32_t>(outcome), "the call ends as the answer says",
                std::to_string(status));
  fuzz::require(response == expected, "the response is the answer's, or untouched");
  fuzz::require(status == 0 ? error == reason : error != 0, "the reason is the answer's");
  return 0;
}
