#include <gmock/gmock.h>
#include <netinet/in.h>
#include <signal.h>
#include <spawn.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <fstream>

#include "DDSContext.h"
#include "dds_peer.h"
#include "pbase/CSemaphore.h"
#include "pbase/Utils.h"
#include "pdbus/IEventBus.h"
#include "pdbus/RPC.h"

using namespace dds_test;
using namespace Pexal::PDBus;
using Pexal::PBase::CSemaphore;
using Pexal::PBase::CThreadLite;
using Pexal::PBase::CTime;
using testing::AllOf;
using testing::HasSubstr;

namespace {

Json::Value json(const std::string& text) {
  Json::Value value;
  EXPECT_TRUE(Pexal::Utils::stringToJson(text, value)) << text;
  return value;
}

/// The host's document: one domain, two clients, one bus.
Json::Value fullDocument() {
  return json(R"({"domain": [{"name": "host", "domain": 42, "url": ""}],
    "client": [{"server": "cerebellumServer", "domain": "host"},
               {"server": "robotServer", "domain": "host"}],
    "eventBus": [{"topics": 16, "withService": true, "withClient": true,
                  "workers": {"count": 2, "task": 16}, "server": "robotServer", "domain": "host"}]})");
}

DDSContext& contextOf(const std::shared_ptr<IDDSFactory>& factory) {
  return dynamic_cast<DDSContext&>(*factory);
}

bool domainExists(std::uint32_t id) {
  const dds_entity_t created = dds_create_domain(id, "");
  if (created > 0) dds_delete(created);
  return created == DDS_RETCODE_PRECONDITION_NOT_MET;
}

TEST(Factory, HandsOutWhatItsDocumentNamesWhileItIsStarted) {
  const auto factory = IDDSFactory::create();
  EXPECT_EQ(factory->rpcClient("robotServer"), nullptr);
  EXPECT_TRUE(factory->participant("host").is_nil());

  for (int start = 0; start < 2; ++start) {  // a restart is like a start
    ASSERT_TRUE(factory->initial(fullDocument()));
    EXPECT_TRUE(factory->initial(Json::Value())) << "already started";
    EXPECT_NE(factory->rpcClient("robotServer"), nullptr);
    EXPECT_NE(factory->rpcClient("robotServer"), factory->rpcClient("cerebellumServer"));
    EXPECT_EQ(factory->rpcClient("brainServer"), nullptr);
    EXPECT_NE(factory->eventBus("robotServer"), nullptr);
    EXPECT_EQ(factory->eventBus("cerebellumServer"), nullptr);
    const auto subscriber = factory->subscriber("host", "motion/observed");
    ASSERT_NE(subscriber, nullptr);
    EXPECT_EQ(factory->subscriber("host", "motion/observed"), subscriber);
    EXPECT_EQ(factory->subscriber("brain", "motion/observed"), nullptr);
    EXPECT_EQ(factory->subscriber("host", ""), nullptr);
    EXPECT_EQ(factory->participant("host").domain_id(), 42U);
    EXPECT_EQ(contextOf(factory).participantOf("elsewhere"), 0);

    const auto participant = factory->participant("host");
    factory->shutdown();
    factory->shutdown();
    EXPECT_EQ(factory->rpcClient("robotServer"), nullptr);
    EXPECT_EQ(factory->eventBus("robotServer"), nullptr);
    EXPECT_EQ(factory->subscriber("host", "motion/observed"), nullptr);
    EXPECT_THROW(static_cast<void>(participant.domain_id()), dds::core::AlreadyClosedError);
    EXPECT_THROW(
        subscriber->createReader(dds::topic::typeSupport<Numbered>(), {}, [](const void*) {}, {}),
        dds::core::NotEnabledError);
    EXPECT_FALSE(domainExists(kDomain));
  }
}

TEST(Factory, TheStaticFunctionsLookIntoTheProcessesOwn) {
  EXPECT_EQ(RPCClient::instance("robotServer"), nullptr);
  ASSERT_TRUE(IDDSFactory::instance()->initial(fullDocument()));
  EXPECT_EQ(RPCClient::instance("robotServer"), IDDSFactory::instance()->rpcClient("robotServer"));
  EXPECT_NE(IEventBus::instance("robotServer"), nullptr);
  EXPECT_NE(IDDSSubcriber::instance("host", "x"), nullptr);
  IDDSFactory::instance()->shutdown();
  EXPECT_EQ(IEventBus::instance("robotServer"), nullptr);
}

TEST(Factory, TwoOnOneDomainDontDisturbEachOther) {
  const auto first = IDDSFactory::create();
  const auto second = IDDSFactory::create();
  LogWatch log;
  ASSERT_TRUE(first->initial(domainDocument("host", "")));
  ASSERT_TRUE(second->initial(domainDocument("robot", "<CycloneDDS/>")));
  EXPECT_EQ(log.with("isn't applied").size(), 1U) << log.all();

  first->shutdown();
  EXPECT_EQ(second->participant("robot").domain_id(), kDomain);
  EXPECT_TRUE(domainExists(kDomain));
  ASSERT_TRUE(first->initial(domainDocument()));
  second->shutdown();
  EXPECT_TRUE(domainExists(kDomain));
  first->shutdown();
  EXPECT_FALSE(domainExists(kDomain));
}

TEST(Factory, LeavesDomainsOfOthersAlone) {
  const auto factory = IDDSFactory::create();
  {
    const dds::domain::DomainParticipant others(kDomain);  // there before
    ASSERT_TRUE(factory->initial(domainDocument()));
    factory->shutdown();
    EXPECT_EQ(others.domain_id(), kDomain);
  }
  {
    ASSERT_TRUE(factory->initial(domainDocument()));
    const dds::domain::DomainParticipant others(kDomain);  // in a domain of ours
    LogWatch log;
    factory->shutdown();
    EXPECT_EQ(others.domain_id(), kDomain);
    EXPECT_EQ(log.with("still in use by others").size(), 1U) << log.all();
  }
  ASSERT_TRUE(factory->initial(domainDocument()));
  factory->shutdown();
  EXPECT_FALSE(domainExists(kDomain));
}

TEST(Factory, ReadsProfilesFromFilesAndText) {
  char path[] = "/tmp/dds_profile_XXXXXX";
  const int file = mkstemp(path);
  ASSERT_GE(file, 0);
  close(file);
  std::ofstream(path) << R"(<?xml version="1.0" encoding="utf-8"?>
<CycloneDDS>
  <Domain Id="42">
    <General><AllowMulticast>true</AllowMulticast><MaxMessageSize>65500B</MaxMessageSize></General>
    <Tracing><Verbosity>none</Verbosity></Tracing>
  </Domain>
</CycloneDDS>
)";
  const auto factory = IDDSFactory::create();
  for (const std::string& url : {std::string(path), "file://" + std::string(path),
                                 std::string("  <CycloneDDS/>"), std::string()}) {
    EXPECT_TRUE(factory->initial(domainDocument("host", url))) << url;
    factory->shutdown();
  }
  unlink(path);
}

TEST(Factory, SaysWhyADomainCannotBeJoinedAndUndoesTheRest) {
  const std::string noInterface =
      "<CycloneDDS><Domain Id=\"any\"><General><Interfaces><NetworkInterface name=\"eth99\" "
      "presence_required=\"true\"/></Interfaces></General></Domain></CycloneDDS>";
  const struct {
    std::string url;
    const char* reason;
  } kCases[] = {
      {"/nowhere/profile.xml", "can't read the dds profile /nowhere/profile.xml"},
      {"/tmp", "can't read the dds profile /tmp"},
      {"<CycloneDDS><Domain><Nonsense>1</Nonsense></Domain></CycloneDDS>",
       "Nonsense: unknown element"},
      {noInterface, "eth99: does not match an available interface"},
  };
  for (const auto& row : kCases) {
    auto document = domainDocument("good", "", 41);
    document["domain"].append(domainDocument("bad", row.url)["domain"][0]);
    const auto factory = IDDSFactory::create();
    LogWatch log;
    EXPECT_FALSE(factory->initial(document)) << row.url;
    EXPECT_EQ(log.with(row.reason).size(), 1U) << log.all();
    EXPECT_THAT(log.all(), HasSubstr("4 [IDDSFactory:")) << log.all();
    EXPECT_TRUE(factory->participant("good").is_nil());
    EXPECT_FALSE(domainExists(41));
    EXPECT_FALSE(domainExists(kDomain));
    EXPECT_TRUE(factory->initial(domainDocument())) << "a good one after a bad one";
  }
}

TEST(Factory, SaysWhenNoParticipantSlotIsLeft) {
  // Occupies the ports of all slots; with the index "auto" each process takes the first free one.
  std::vector<int> sockets;
  for (std::uint16_t slot = 0; slot <= 10; ++slot) {
    const int one = socket(AF_INET, SOCK_DGRAM, 0);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(static_cast<std::uint16_t>(7400 + 250 * kDomain + 10 + 2 * slot));
    ASSERT_EQ(bind(one, reinterpret_cast<const sockaddr*>(&address), sizeof(address)), 0);
    sockets.push_back(one);
  }
  const auto document =
      domainDocument("host",
                     "<CycloneDDS><Domain "
                     "Id=\"any\"><Discovery><ParticipantIndex>auto</ParticipantIndex></Discovery>"
                     "</Domain></CycloneDDS>");
  const auto factory = IDDSFactory::create();
  {
    LogWatch log;
    EXPECT_FALSE(factory->initial(document));
    EXPECT_THAT(log.all(), AllOf(HasSubstr("Failed to find a free participant index for domain 42"),
                                 HasSubstr("no participant slot left")));
  }
  for (const int one : sockets) close(one);
  EXPECT_TRUE(factory->initial(document));
}

TEST(Factory, MalformedDocumentsLoseOnlyTheirBadParts) {
  const auto factory = IDDSFactory::create();
  for (const char* text : {"null", "[]", "\"text\"", "3", "true"}) {
    EXPECT_FALSE(factory->initial(json(text))) << text;
  }
  for (const char* text :
       {"{}", R"({"domain": 1, "client": {}, "eventBus": "x"})",
        R"({"domain": [1, null, [], {}, {"name": 3, "domain": 1}, {"name": "a", "domain": -1},
                       {"name": "a", "domain": "1"}, {"name": "a", "domain": 5000000000},
                       {"name": "a", "domain": 1.5}, {"name": "", "domain": 1}]})"}) {
    EXPECT_TRUE(factory->initial(json(text))) << text;
    EXPECT_TRUE(factory->participant("a").is_nil());
    factory->shutdown();
  }

  LogWatch log;
  ASSERT_TRUE(factory->initial(json(
      R"({"domain": [{"name": "host", "domain": 42, "url": 7}, {"name": "host", "domain": 43}],
          "client": [{"server": "a", "domain": "host"}, {"server": "a", "domain": "host"},
                     {"server": "b", "domain": "nowhere"}, {"server": {}, "domain": "host"}, 5],
          "eventBus": [{"server": "a", "domain": "host", "topics": -3, "withService": 1,
                        "withClient": "yes", "workers": {"count": 1e9, "task": "many"}, "role": 9},
                       {"server": "c", "domain": "host", "workers": 4}, {"domain": "host"}]})")));
  EXPECT_NE(factory->rpcClient("a"), nullptr);
  EXPECT_EQ(factory->rpcClient("b"), nullptr);
  EXPECT_NE(factory->eventBus("a"), nullptr);
  EXPECT_NE(factory->eventBus("c"), nullptr);
  EXPECT_EQ(factory->participant("host").domain_id(), 42U);
  EXPECT_EQ(log.with("left out").size(), 6U) << log.all();
  EXPECT_EQ(log.with("isn't a number").size(), 3U) << log.all();
}

/// An endpoint whose stop the test can watch and hold up.
struct ProbeEndpoint final : Stoppable {
  explicit ProbeEndpoint(std::function<void()> onFinish_) : onFinish(std::move(onFinish_)) {}
  void beginStop() override { begun = true; }
  void finishStop() override {
    onFinish();
    finished = true;
  }
  const std::function<void()> onFinish;
  std::atomic<bool> begun{false};
  std::atomic<bool> finished{false};
};

TEST(Factory, LookupsDontWaitForARunningShutdown) {
  const auto factory = IDDSFactory::create();
  ASSERT_TRUE(factory->initial(fullDocument()));
  auto& context = contextOf(factory);
  CSemaphore entered(0);
  CSemaphore go(0);
  const auto endpoint = std::make_shared<ProbeEndpoint>([&] {
    entered.post();
    EXPECT_TRUE(go.wait(kDeadlineMs));
  });
  ASSERT_TRUE(context.attach(endpoint));
  CThreadLite stopper("stopper", 0, 0, 0, [&] { factory->shutdown(); });
  ASSERT_TRUE(stopper.createThread());
  ASSERT_TRUE(entered.wait(kDeadlineMs));

  EXPECT_EQ(factory->rpcClient("robotServer"), nullptr);
  EXPECT_EQ(factory->eventBus("robotServer"), nullptr);
  EXPECT_EQ(factory->subscriber("host", "x"), nullptr);
  EXPECT_EQ(context.participantOf("host"), 0);
  EXPECT_FALSE(context.attach(endpoint));
  EXPECT_FALSE(endpoint->finished);
  go.post();
  EXPECT_TRUE(eventually([&] { return stopper.isThreadOver(); }));
}

TEST(Factory, ShutdownStopsEveryIntakeBeforeItFinishesSideBySide) {
  const auto factory = IDDSFactory::create();
  ASSERT_TRUE(factory->initial(domainDocument()));
  auto& context = contextOf(factory);
  std::vector<std::shared_ptr<ProbeEndpoint>> endpoints;
  std::atomic<int> arrived{0};
  const dds_entity_t participant = context.participantOf("host");
  const auto finish = [&] {
    dds_domainid_t id = 0;
    for (const auto& endpoint : endpoints) EXPECT_TRUE(endpoint->begun);
    EXPECT_EQ(dds_get_domainid(participant, &id), DDS_RETCODE_OK) << "the participant goes last";
    ++arrived;
    EXPECT_TRUE(eventually([&] { return arrived == 3; }))
        << "they are finished one after the other";
  };
  for (int i = 0; i < 3; ++i) endpoints.push_back(std::make_shared<ProbeEndpoint>(finish));
  for (const auto& endpoint : endpoints) ASSERT_TRUE(context.attach(endpoint));
  auto gone = std::make_shared<ProbeEndpoint>([] { ADD_FAILURE(); });
  ASSERT_TRUE(context.attach(gone));
  gone.reset();

  factory->shutdown();
  for (const auto& endpoint : endpoints) EXPECT_TRUE(endpoint->finished);
  dds_domainid_t id = 0;
  EXPECT_LT(dds_get_domainid(participant, &id), 0) << "the participant is gone";
}

/// Another process that reads from topics and can be frozen.
class FrozenPeer {
 public:
  explicit FrozenPeer(std::vector<std::string> topics) {
    std::vector<std::string> words{DDS_FROZEN_PEER, std::to_string(kDomain)};
    words.insert(words.end(), topics.begin(), topics.end());
    std::vector<char*> arguments;
    for (std::string& word : words) arguments.push_back(word.data());
    arguments.push_back(nullptr);
    EXPECT_EQ(posix_spawn(&process_, DDS_FROZEN_PEER, nullptr, nullptr, arguments.data(), environ),
              0);
  }
  ~FrozenPeer() {
    kill(process_, SIGKILL);
    waitpid(process_, nullptr, 0);
  }
  FrozenPeer(const FrozenPeer&) = delete;
  FrozenPeer& operator=(const FrozenPeer&) = delete;
  void freeze() const { kill(process_, SIGSTOP); }

 private:
  pid_t process_ = 0;
};

TEST(Factory, ShutdownIsBoundedWithADeadPeer) {
  const std::vector<std::string> topics{"t0", "t1", "t2", "t3"};
  const auto factory = IDDSFactory::create();
  ASSERT_TRUE(factory->initial(domainDocument()));
  const auto participant = factory->participant("host");
  std::vector<dds::pub::DataWriter<Numbered>> writers;
  for (const std::string& topic : topics) {
    writers.emplace_back(dds::pub::Publisher(participant),
                         dds::topic::Topic<Numbered>(participant, topic));
  }
  const FrozenPeer peer(topics);
  for (auto& writer : writers) {
    ASSERT_TRUE(eventually([&] { return writer.matched_subscriptions() == 1; }));
  }
  peer.freeze();
  for (auto& writer : writers) writer.write(numbered(1));

  const std::uint64_t before = CTime::getCurrentMilliSecond();
  factory->shutdown();
  // libddsc lingers a second over each writer: one after the other that would be four.
  EXPECT_LT(CTime::getCurrentMilliSecond() - before, 3000U);
}

}  // namespace
