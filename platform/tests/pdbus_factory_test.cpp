#include <atomic>
#include <fstream>

#include "DDSContext.h"
#include "dds_support.h"
#include "pbase/CSemaphore.h"
#include "pbase/CTime.h"
#include "pbase/VirtualClock.h"
#include "pdbus/DomainMember.h"
#include "pdbus/IDDSSubcriber.h"
#include "pdbus/IEventBus.h"
#include "pdbus/RPC.h"
#include "peer_process.h"

using namespace platform_test;
using namespace Pexal::PDBus;
using Pexal::PBase::CSemaphore;
using Pexal::PBase::CTime;

namespace {

/// The host's document: one domain, two clients, one bus.
Json::Value fullDocument() {
  return json(R"({"domain": [{"name": "host", "domain": 42, "url": ""}],
    "client": [{"server": "cerebellumServer", "domain": "host"},
               {"server": "robotServer", "domain": "host"}],
    "eventBus": [{"topics": 16, "withService": true, "withClient": true,
                  "workers": {"count": 2, "task": 16}, "server": "robotServer", "domain": "host"}]})");
}

/// A profile that no domain can be made with.
const std::string kMissingInterface =
    "<CycloneDDS><Domain Id=\"any\"><General><Interfaces><NetworkInterface name=\"eth99\" "
    "presence_required=\"true\"/></Interfaces></General></Domain></CycloneDDS>";

DDSContext& contextOf(const std::shared_ptr<IDDSFactory>& factory) {
  return dynamic_cast<DDSContext&>(*factory);
}

bool domainExists(std::uint32_t id) {
  const dds_entity_t created = dds_create_domain(id, "");
  if (created > 0) dds_delete(created);
  return created == DDS_RETCODE_PRECONDITION_NOT_MET;
}

void expectNothingFound(const std::shared_ptr<IDDSFactory>& factory) {
  EXPECT_EQ(factory->rpcClient("robotServer"), nullptr);
  EXPECT_EQ(factory->eventBus("robotServer"), nullptr);
  EXPECT_EQ(factory->subscriber("host", "motion/observed"), nullptr);
  EXPECT_TRUE(factory->participant("host").is_nil());
  EXPECT_EQ(contextOf(factory).participantOf("host"), 0);
}

TEST(Factory, HandsOutWhatItsDocumentNamesWhileItIsStarted) {
  const auto factory = IDDSFactory::create();
  expectNothingFound(factory);
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

    const auto participant = factory->participant("host");
    factory->shutdown();
    factory->shutdown();
    expectNothingFound(factory);
    EXPECT_THROW(static_cast<void>(participant.domain_id()), dds::core::AlreadyClosedError);
    EXPECT_THROW(
        subscriber->createReader(dds::topic::typeSupport<Numbered>(), {}, [](const void*) {}, {}),
        dds::core::NotEnabledError);
    EXPECT_FALSE(domainExists(kDomain));
  }
}

TEST(Factory, DomainsAreSharedAndThoseOfOthersLeftAlone) {
  const auto first = IDDSFactory::create();
  const auto second = IDDSFactory::create();
  {
    const LogWatch log;
    ASSERT_TRUE(first->initial(domainDocument()));
    ASSERT_TRUE(second->initial(domainDocument("robot", "<CycloneDDS/>")));
    EXPECT_EQ(log.with("isn't applied").size(), 1U) << log.all();
  }
  first->shutdown();
  EXPECT_EQ(second->participant("robot").domain_id(), kDomain);
  ASSERT_TRUE(first->initial(domainDocument()));
  second->shutdown();
  EXPECT_TRUE(domainExists(kDomain));
  {
    const dds::domain::DomainParticipant others(kDomain);  // in a domain of ours
    const LogWatch log;
    first->shutdown();
    EXPECT_EQ(others.domain_id(), kDomain);
    EXPECT_EQ(log.with("still in use by others").size(), 1U) << log.all();
    ASSERT_TRUE(first->initial(domainDocument("host", kMissingInterface)));
    EXPECT_EQ(log.with("isn't applied").size(), 1U) << log.all();
    first->shutdown();
  }
  EXPECT_FALSE(first->initial(domainDocument("host", kMissingInterface))) << "others have gone";
  ASSERT_TRUE(first->initial(domainDocument()));
  first->shutdown();
  EXPECT_FALSE(domainExists(kDomain));

  const dds::domain::DomainParticipant others(kDomain);  // there before
  ASSERT_TRUE(first->initial(domainDocument()));
  first->shutdown();
  EXPECT_EQ(others.domain_id(), kDomain);
}

TEST(Factory, ComparesTheSettingsThatAFileHasNow) {
  const std::string path = "/tmp/dds_profile_" + std::to_string(getpid());
  const auto first = IDDSFactory::create();
  const auto second = IDDSFactory::create();
  std::ofstream(path) << "<CycloneDDS/>";
  const LogWatch log;
  ASSERT_TRUE(first->initial(domainDocument("host", path)));
  ASSERT_TRUE(second->initial(domainDocument("host", "<CycloneDDS/>")));
  EXPECT_EQ(log.with("isn't applied").size(), 0U) << log.all();
  second->shutdown();
  std::ofstream(path) << kMissingInterface;
  ASSERT_TRUE(second->initial(domainDocument("host", path)));
  EXPECT_EQ(log.with("isn't applied").size(), 1U) << log.all();
  second->shutdown();
  first->shutdown();
  EXPECT_FALSE(first->initial(domainDocument("host", path)));
  unlink(path.c_str());
}

TEST(Factory, SharesItsDomainWithMembers) {
  Pexal::PBase::VirtualClock clock;
  const auto factory = IDDSFactory::create();
  const LogWatch log;
  {
    DomainMember member(kDomain, std::nullopt);
    std::uint64_t begun = CTime::getCurrentMilliSecond();
    ASSERT_TRUE(factory->initial(domainDocument("host", kMissingInterface)));
    EXPECT_EQ(CTime::getCurrentMilliSecond(), begun) << "it waits for one that stays";
    EXPECT_EQ(log.with("isn't applied").size(), 1U) << log.all();
    factory->shutdown();
    EXPECT_EQ(member.participant().domain_id(), kDomain) << "the factory has taken it along";
    EXPECT_EQ(log.with("in use by others").size(), 0U) << log.all();

    member.announceEnd();
    begun = CTime::getCurrentMilliSecond();
    ASSERT_TRUE(factory->initial(domainDocument("host", kMissingInterface)));
    EXPECT_EQ(CTime::getCurrentMilliSecond() - begun, 3000U) << "it doesn't wait for ever";
    EXPECT_EQ(log.with("isn't applied").size(), 2U) << log.all();
    const DomainMember asItIs(kDomain, std::nullopt);
    EXPECT_EQ(log.with("isn't applied").size(), 2U) << log.all();
    factory->shutdown();
  }
  EXPECT_FALSE(domainExists(kDomain));
}

TEST(Factory, MembersComeAndGoBesideItsStartsAndShutdowns) {
  std::atomic<bool> over{false};
  const auto starting = startThread([&] {
    const auto factory = IDDSFactory::create();
    while (!over) {
      EXPECT_TRUE(factory->initial(domainDocument()));
      factory->shutdown();
    }
  });
  for (int i = 0; i < 50; ++i) {
    const DomainMember member(kDomain, "");
    EXPECT_NO_THROW(dds::topic::Topic<Numbered>(member.participant(), "t")) << i;
  }
  over = true;
}

TEST(Factory, ReadsProfilesFromFilesAndText) {
  const std::string path = "/tmp/dds_profile_" + std::to_string(getpid());
  std::ofstream(path) << R"(<?xml version="1.0" encoding="utf-8"?>
<CycloneDDS><Domain Id="42"><General><MaxMessageSize>65500B</MaxMessageSize></General>
  <Tracing><Verbosity>none</Verbosity></Tracing></Domain></CycloneDDS>)";
  const auto factory = IDDSFactory::create();
  for (const std::string& url :
       {path, "file://" + path, std::string("  <CycloneDDS/>"), std::string()}) {
    EXPECT_TRUE(factory->initial(domainDocument("host", url))) << url;
    factory->shutdown();
  }
  unlink(path.c_str());
}

TEST(Factory, SaysWhyADomainCannotBeJoinedAndUndoesTheRest) {
  const struct {
    std::string url;
    const char* reason;
  } kCases[] = {{"/nowhere/profile.xml", "can't read the dds profile /nowhere/profile.xml"},
                {"/tmp", "can't read the dds profile /tmp"},
                {"<CycloneDDS><Domain><Nonsense>1</Nonsense></Domain></CycloneDDS>",
                 "Nonsense: unknown element"},
                {kMissingInterface, "eth99: does not match an available interface"}};
  for (const auto& row : kCases) {
    auto document = domainDocument("good", "", 41);
    document["domain"].append(domainDocument("bad", row.url)["domain"][0]);
    const auto factory = IDDSFactory::create();
    const LogWatch log;
    EXPECT_FALSE(factory->initial(document)) << row.url;
    EXPECT_EQ(log.with(row.reason).size(), 1U) << log.all();
    EXPECT_EQ(log.with("4 [IDDSFactory:").size(), 1U) << log.all();
    EXPECT_TRUE(factory->participant("good").is_nil());
    EXPECT_FALSE(domainExists(41) || domainExists(kDomain));
    EXPECT_TRUE(factory->initial(domainDocument())) << "a good one after a bad one";
  }
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

  const LogWatch log;
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
  CSemaphore entered(0);
  CSemaphore go(0);
  const auto endpoint = std::make_shared<ProbeEndpoint>([&] {
    entered.post();
    EXPECT_TRUE(go.wait(kDeadlineMs));
  });
  ASSERT_TRUE(contextOf(factory).attach(endpoint));
  const auto stopper = startThread([&] { factory->shutdown(); });
  ASSERT_TRUE(entered.wait(kDeadlineMs));
  expectNothingFound(factory);
  EXPECT_FALSE(contextOf(factory).attach(endpoint));
  EXPECT_FALSE(endpoint->finished);
  go.post();
}

TEST(Factory, ShutdownStopsEveryIntakeBeforeItFinishesSideBySide) {
  const auto factory = IDDSFactory::create();
  ASSERT_TRUE(factory->initial(domainDocument()));
  std::vector<std::shared_ptr<ProbeEndpoint>> endpoints;
  std::atomic<int> arrived{0};
  const auto participant = factory->participant("host");
  const auto finish = [&] {
    for (const auto& endpoint : endpoints) EXPECT_TRUE(endpoint->begun);
    EXPECT_EQ(participant.domain_id(), kDomain) << "the participant goes last";
    ++arrived;
    EXPECT_TRUE(waitUntil([&] { return arrived == 3; })) << "they finish one after the other";
  };
  for (int i = 0; i < 3; ++i) endpoints.push_back(std::make_shared<ProbeEndpoint>(finish));
  for (const auto& endpoint : endpoints) ASSERT_TRUE(contextOf(factory).attach(endpoint));
  auto gone = std::make_shared<ProbeEndpoint>([] { ADD_FAILURE(); });
  ASSERT_TRUE(contextOf(factory).attach(gone));
  gone.reset();
  factory->shutdown();
  for (const auto& endpoint : endpoints) EXPECT_TRUE(endpoint->finished);
}

TEST(Factory, ShutdownIsBoundedWithADeadPeer) {
  const auto factory = IDDSFactory::create();
  ASSERT_TRUE(factory->initial(domainDocument()));
  const auto participant = factory->participant("host");
  const PeerProcess peer({"read", "t0", "t1", "t2", "t3"});
  std::vector<dds::pub::DataWriter<Numbered>> writers;
  for (const char* const topic : {"t0", "t1", "t2", "t3"}) {
    writers.emplace_back(dds::pub::Publisher(participant),
                         dds::topic::Topic<Numbered>(participant, topic));
    ASSERT_TRUE(waitUntil([&] { return writers.back().matched_subscriptions() == 1; }));
  }
  peer.signal(SIGSTOP);
  ASSERT_TRUE(peer.stopped());
  for (auto& writer : writers) writer.write(numbered(1));

  const std::uint64_t before = CTime::getCurrentMilliSecond();
  factory->shutdown();
  // libddsc lingers a second over each writer: one after the other that would be four.
  EXPECT_LT(CTime::getCurrentMilliSecond() - before, 3000U);
}

}  // namespace
