// Scripted faults: what can be asked for, and what a client then meets.

#include "faults/FaultService.h"
#include "pbase/CThread.h"
#include "robot_support.h"

namespace orvane::robot {
namespace {

using Strings = std::vector<std::string>;

class RobotFaults : public RobotBench {
 protected:
  std::string listed() { return faults_.apply("list").answers.at(0); }
};

TEST_F(RobotFaults, whatIsToldIsListedInTheSameWordsUntilItIsCleared) {
  ASSERT_TRUE(faults_.start());
  const std::pair<const char*, const char*> kRows[] = {
      {"refuse startMotionAction", "refuse startMotionAction errno 11"},
      {"refuse startMotionAction errno 5", "refuse startMotionAction errno 5"},
      {"refuse  startMotionAction 3\terrno 29 ", "refuse startMotionAction 3 errno 29"},
      {"delay any 1500", "delay any 1500"},
      {"delay queryMotionState 20 2", "delay queryMotionState 20 2"},
      {"drop any 1000000", "drop any 1000000"},
      {"withhold renewMotionControl", "withhold renewMotionControl"},
      {"silent", "silent"},
      {"silent 86400000", "silent 86400000"},
      {"nonsense 7", "nonsense 7"},
      {"after 2000 preempt rival 5000", "after 2000 preempt rival 5000"},
      {"after 1 revoke", "after 1 revoke"}};
  for (const auto& [text, line] : kRows) {
    SCOPED_TRACE(text);
    const auto outcome = faults_.apply(text);
    EXPECT_TRUE(outcome.done) << outcome.error;
    EXPECT_EQ(listed(), line);
    EXPECT_TRUE(faults_.apply("clear").done);
    EXPECT_EQ(listed(), "no faults");
  }
}

TEST_F(RobotFaults, badTextIsNamedWithTheFormAndNothingIsApplied) {
  const Strings kRows[] = {
      {"", "empty", "refuse, delay"},
      {"refuze any", "\"refuze\"", "refuse, delay"},
      {"refuse", "method is missing", "refuse METHOD [TIMES] [errno NUMBER]"},
      {"refuse makeCoffee", "\"makeCoffee\"", "refuse METHOD"},
      {"refuse any 0", "\"0\"", "1 to 1000000"},
      {"refuse any errno", "error number is missing", "refuse METHOD"},
      {"refuse any 3 errno 65536", "\"65536\"", "1 to 65535"},
      {"refuse any errno 5 3", "\"3\" is too much", "refuse METHOD"},
      {"delay any", "milliseconds is missing", "delay METHOD MS"},
      {"delay any 10ms", "\"10ms\"", "1 to 86400000"},
      {"drop any -1", "\"-1\"", "drop METHOD"},
      {"silent 99999999999", "\"99999999999\"", "silent [MS]"},
      {"revoke now", "\"now\"", "revoke"},
      {"after", "milliseconds is missing", "after MS FAULT"},
      {"after 5", "fault is missing", "after MS FAULT"},
      {"after 5 after 5 die", "after can't be repeated", "after MS FAULT"},
      {"bell\x07" + std::string(60, 'x'), "\"bell?xxx", "refuse, delay"},
      {std::string(300, 'x'), "longer than 200", ""},
  };
  for (const Strings& row : kRows) {
    SCOPED_TRACE(row[0]);
    const auto outcome = faults_.applyAll(Strings{"drop any", row[0]});
    EXPECT_FALSE(outcome.done);
    EXPECT_NE(outcome.error.find(row[1]), std::string::npos) << outcome.error;
    EXPECT_NE(outcome.error.find(row[2]), std::string::npos) << outcome.error;
    EXPECT_EQ(listed(), "no faults");
  }
}

TEST_F(RobotFaults, eachSpoilsWhatItNamesForAsLongAsItSays) {
  struct Row {
    const char* fault;
    const char* answer;
    bool carriedOut;
    std::uint64_t tookMs;
  };
  const Row kRows[] = {{"refuse takeMotionControl 1 errno 16", "refused 16", false, 0},
                       {"refuse any 1", "refused 11", false, 0},
                       {"drop takeMotionControl 1", "withheld", false, 0},
                       {"withhold takeMotionControl 1", "withheld", true, 0},
                       {"delay takeMotionControl 300 1", "ok", true, 300},
                       {"silent 100", "withheld", false, 0},
                       {"nonsense 100", "nonsense", true, 0},
                       {"drop renewMotionControl", "ok", true, 0}};
  for (const Row& row : kRows) {
    SCOPED_TRACE(row.fault);
    ASSERT_TRUE(faults_.apply(row.fault).done);
    const std::uint64_t askedMs = nowMs();
    EXPECT_EQ(told(ask("takeMotionControl", "app")), row.answer);
    EXPECT_EQ(nowMs(), askedMs + row.tookMs);
    EXPECT_EQ(core_->access().arbiter().current().has_value(), row.carriedOut);
    clock_.advance(100);
    EXPECT_EQ(told(ask("queryMotionState", "app")), "ok");
    faults_.applyAll(Strings{"clear", "revoke"});
  }
  faults_.apply("refuse startMotionAction 1 errno 5");
  EXPECT_EQ(told(act("app", "standing")), "refused 5");
  EXPECT_EQ(state()["lastRefusal"]["errno"].asUInt(), 5U) << "shown like any other";
  EXPECT_EQ(told(act("app", "standing")), "refused 1");
}

TEST_F(RobotFaults, controlChangesHandsTheWalkStopsAndEverybodyIsTold) {
  struct Row {
    Strings faults;
    std::uint32_t passMs;
    const char* renewal;
    Strings told;  // H: who held control before, R: the rival
  };
  const Row kRows[] = {
      {{"preempt"}, 0, "refused 29", {"controlled R", "stopping"}},
      {{"preempt rival 1000"}, 998, "refused 29", {"controlled R", "stopping", "standing"}},
      {{"preempt rival 1000"},
       1000,
       "ok",
       {"controlled R", "stopping", "standing", "controlled H"}},
      {{"preempt", "restore"}, 0, "ok", {"controlled R", "stopping", "controlled H"}},
      {{"preempt", "expire"}, 0, "ok", {"controlled R", "stopping", "controlled H"}},
      {{"revoke"}, 0, "refused 29", {"free ", "stopping"}},
      {{"expire"}, 0, "refused 62", {"free ", "stopping"}}};
  standUp();
  for (const Row& row : kRows) {
    SCOPED_TRACE(row.faults.back());
    faults_.apply("revoke");
    pass(1500);
    const std::string holder = take();
    ASSERT_EQ(told(act(holder, "walking", kWalkAhead)), "ok");
    events();
    EXPECT_TRUE(faults_.applyAll(row.faults).done);
    pass(row.passMs);
    EXPECT_EQ(told(ask("renewMotionControl", holder)), row.renewal);
    Strings heard = events();
    for (std::string& event : heard) {
      if (event == "controlled " + holder)
        event = "controlled H";
      else if (event.find("controlled ") == 0)
        event = "controlled R";
    }
    EXPECT_EQ(heard, row.told);
  }
  for (const char* fault : {"restore", "revoke", "expire"}) {
    const auto outcome = faults_.applyAll(Strings{"preempt", "revoke", fault, "silent"});
    EXPECT_FALSE(outcome.done);
    EXPECT_EQ(outcome.answers.size(), 2U) << "what went before was carried out";
    EXPECT_EQ(outcome.error.find(fault), 0U) << outcome.error;
    EXPECT_EQ(listed(), "no faults") << "what comes behind was left out";
  }
}

TEST_F(RobotFaults, timetableIsKeptInOrder) {
  ASSERT_TRUE(faults_.start());
  const std::string holder = take();
  ASSERT_TRUE(faults_
                  .applyAll(Strings{"after 300 silent", "after 200 revoke", "after 250 restore",
                                    "after 301 speak"})
                  .done);
  clock_.advance(199);
  EXPECT_EQ(told(ask("renewMotionControl", holder)), "ok");
  clock_.advance(1);
  EXPECT_EQ(told(ask("renewMotionControl", holder)), "refused 29");
  clock_.advance(100);
  EXPECT_EQ(told(ask("queryMotionState", "app")), "withheld");
  clock_.advance(1);
  EXPECT_EQ(told(ask("queryMotionState", "app")), "ok");
}

TEST_F(RobotFaults, delayHoldsUpNeitherTheRobotNorItsEnd) {
  for (const bool stop : {false, true}) {
    ASSERT_TRUE(faults_.apply("delay queryMotionState 60000").done);
    Pexal::PBase::CThreadLite rescuer("rescuer", 0, 0, 0, [&] {
      Pexal::PBase::CThread::sleep(50);
      EXPECT_EQ(told(ask("getMotorLayout", "app")), "ok");
      stop ? faults_.stop() : static_cast<void>(faults_.apply("clear"));
    });
    ASSERT_TRUE(rescuer.createThread());
    const std::uint64_t askedMs = nowMs();
    EXPECT_EQ(told(ask("queryMotionState", "app")), "ok");
    EXPECT_EQ(nowMs(), askedMs + 50);
  }
}

TEST_F(RobotFaults, diesOnlyInAProcessThatAllowsIt) {
  EXPECT_FALSE(faults_.apply("die").done);
  EXPECT_FALSE(faults_.apply("after 5 die").done);
  int deaths = 0;
  faults_.onDie([&] { ++deaths; });
  ASSERT_TRUE(faults_.start());
  EXPECT_TRUE(faults_.apply("die").done);
  EXPECT_EQ(deaths, 0) << "the answer goes first";
  clock_.advance(400);
  EXPECT_EQ(deaths, 1);
  faults_.stop();
  EXPECT_EQ(faults_.apply("die").error, "die: the robot ends");
  EXPECT_EQ(faults_.apply("drop any").error, "drop any: the robot ends");
}

TEST_F(RobotFaults, serviceReadsDocumentsAndAnswersWhileTheRobotIsSilent) {
  const FaultService service(std::shared_ptr<Faults>(std::shared_ptr<void>(), &faults_));
  const auto tell = [&](const std::string& document, const char* method = FaultService::kApply) {
    return service.handle({FaultService::kService, method, json(document), false});
  };
  const auto reply = tell(R"({"params":{"commands":["silent","list"]}})");
  EXPECT_EQ(told(reply), "ok");
  EXPECT_EQ(reply.document["params"]["answers"], json(R"(["silent","silent"])"));
  EXPECT_EQ(told(tell(R"({"params":{"commands":["clear"]}})", "obey")), "status 9");
  for (const char* params : {"{}", "7", "[]", R"({"commands":"clear"})", R"({"commands":[]})",
                             R"({"commands":["clear",7]})", R"({"commands":{"a":"clear"}})"}) {
    EXPECT_EQ(told(tell(std::string(R"({"params":)") + params + "}")), "refused 22") << params;
  }
  EXPECT_EQ(listed(), "silent");
}

}  // namespace
}  // namespace orvane::robot
