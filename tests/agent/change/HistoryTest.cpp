#include <agent/change/History.h>
#include <agent/change/Restart.h>
#include <agent/config/Writer.h>

#include "../support/CaptureBytes.h"
#include "../support/ModelOf.h"
#include "../support/RunningAgent.h"

#include <thread>

namespace {

using namespace TestSupport;
using Agent::Change;
using Agent::ChangeJournal;
using Agent::History;
using Agent::Past;

Agent::SharedText shared(std::string text) { return std::make_shared<const std::string>(std::move(text)); }

Change changeOf(const std::string& source, const std::string& text) {
  Change change;
  change.source = source;
  change.text = shared(text);
  change.difference = shared("{}");
  return change;
}

TEST(History, HasTheLastFiftyChanges) {
  History history({}, nullptr);
  EXPECT_EQ(history.last(), nullptr);
  for (int i = 1; i <= 60; ++i) history.add(changeOf(i % 2 ? "cli" : "edge.acl", std::to_string(i)));
  ASSERT_EQ(history.changes().size(), History::mostChanges);
  EXPECT_EQ(history.changes().front()->number, 11u);
  EXPECT_EQ(history.find(10), nullptr);
  EXPECT_EQ(*history.find(60)->text, "60");
  EXPECT_EQ(history.last()->number, 59u);
  EXPECT_EQ(history.last(1)->number, 57u);
  EXPECT_EQ(history.last(25), nullptr);
}

TEST(History, ForgetsOldTextsThatAreTooMuchTogether) {
  History history({}, nullptr);
  const std::string large(History::mostOctets / 2, 'x');
  for (int i = 0; i < 4; ++i) history.add(changeOf("cli", large));
  EXPECT_FALSE(history.find(1)->text);
  EXPECT_FALSE(history.find(1)->difference);
  EXPECT_FALSE(history.find(2)->text);
  EXPECT_TRUE(history.find(3)->text) << "the last two stay, also when they are more than all may be";
  EXPECT_TRUE(history.find(4)->text);
  for (int i = 0; i < 3; ++i) history.add(changeOf("edge.acl", large));
  EXPECT_TRUE(history.find(3)->text) << "whatever the files of the directory say";
  EXPECT_FALSE(history.find(5)->text);
}

/// Keeps the past in memory, when it is told to.
class TestJournal final : public ChangeJournal {
 public:
  void keep(Past past) override { given = std::move(past), state_ = State::writing; }
  State state() const override { return now ? kept() : state_; }
  State kept() const {
    state_ = *now;
    return state_;
  }
  Past given;
  std::optional<State> now = State::kept;

 private:
  mutable State state_ = State::kept;
};

constexpr const char* oneText =
    "ip access-list A\n   10 permit udp any any\ninterface eth1\n   ip access-group A in\n";
constexpr const char* otherText =
    "ip access-list A\n   10 deny udp any any\ninterface eth1\n   ip access-group A in\n";
constexpr const char* thirdText =
    "ip access-list A\n   10 deny ip any any\ninterface eth1\n   ip access-group A in\n";

class TakingBackTest : public testing::Test {
 protected:
  std::string inForce() {
    return agent_.ask({{"do", "show"}, {"what", "configuration"}, {"source", "cli"}}).at("text");
  }
  Json applyToBeConfirmed(const std::string& text, uint32_t seconds) {
    agent_.ask({{"do", "text"}, {"name", "t"}, {"text", text}});
    return agent_.ask({{"do", "apply"}, {"confirm", seconds}});
  }
  /// Numbers with what was done.
  std::string history() {
    std::string text;
    const Json shown = agent_.show("history");
    for (const Json& change : shown.at("changes"))
      text += fmt::format("{}{} {}", text.empty() ? "" : ", ", change.at("number").get<uint64_t>(),
                          change.at("what").get<std::string>());
    return text;
  }
  std::string errorOf(const Json& answer) {
    if (!answer.contains("error")) return "none";
    const Json& error = answer.at("error");
    return error.contains("mistakes") ? error.at("mistakes").at(0) : error.at("text");
  }
  void settle() {
    agent_.turnsUntil([this] { return !agent_.plane().configuration().busy(); });
  }

  TestJournal journal_;
  RunningAgent agent_;
};

TEST_F(TakingBackTest, GoesBackToAnyChange) {
  agent_.start(oneText);
  agent_.apply(otherText);
  agent_.apply(thirdText);
  EXPECT_EQ(history(), "1 start, 2 apply, 3 apply");
  const Json back = agent_.ask({{"do", "rollback"}});
  EXPECT_EQ(back.at("applied"), true);
  EXPECT_EQ(back.at("difference").at("summary"), "1 rule changed");
  EXPECT_EQ(inForce(), otherText) << "without a number to what was before the last change";
  agent_.ask({{"do", "rollback"}, {"number", 1}});
  EXPECT_EQ(inForce(), oneText);
  agent_.ask({{"do", "rollback"}, {"number", 3}});
  EXPECT_EQ(inForce(), thirdText);
  EXPECT_EQ(history(), "1 start, 2 apply, 3 apply, 4 rollback, 5 rollback, 6 rollback");
  const Json dry = agent_.ask({{"do", "rollback"}, {"number", 1}, {"dryRun", true}});
  EXPECT_EQ(dry.at("applied"), false);
  EXPECT_EQ(inForce(), thirdText);
  EXPECT_EQ(errorOf(agent_.ask({{"do", "rollback"}, {"number", 7}})), "there is no change 7");
}

TEST_F(TakingBackTest, ShowsOneChange) {
  agent_.start(oneText);
  agent_.apply(otherText);
  const Json shown = agent_.show("history", "2");
  EXPECT_EQ(shown.at("text"), otherText);
  EXPECT_EQ(shown.at("difference").at("summary"), "1 rule changed");
  EXPECT_EQ(shown.at("change").at("what"), "apply");
  EXPECT_EQ(agent_.show("history", "1").at("difference").at("summary"), "+1 list, +1 binding");
  EXPECT_EQ(errorOf(agent_.show("history", "3")), "there is no change 3");
  EXPECT_EQ(errorOf(agent_.show("history", "two")), "there is no change two");
}

TEST_F(TakingBackTest, ARuleThatComesBackOnlyUnderAnotherNumberIsTheSame) {
  agent_.start("ip access-list A\n 10 permit udp any any\n 20 permit tcp any any\n");
  const auto idOf = [this](size_t rule) {
    return agent_.show("access-lists", "A").at("lists").at(0).at("rules").at(rule).at("id");
  };
  const Json udp = idOf(0), tcp = idOf(1);
  agent_.ask({{"do", "text"}, {"name", "edit"}, {"text", "move 20 before 10\nresequence 100"}});
  EXPECT_EQ(agent_.ask({{"do", "edit"}, {"list", "A"}}).at("difference").at("summary"), "2 rules renumbered");
  EXPECT_EQ(idOf(0), tcp);
  EXPECT_EQ(idOf(1), udp);
  agent_.ask({{"do", "rollback"}});
  EXPECT_EQ(idOf(0), udp);
  EXPECT_EQ(idOf(1), tcp);
}

TEST_F(TakingBackTest, WhatNobodyConfirmsIsTakenBack) {
  agent_.start(oneText);
  const Json done = applyToBeConfirmed(otherText, 60);
  EXPECT_EQ(done.at("applied"), true);
  EXPECT_EQ(done.at("confirmWithin"), 60);
  EXPECT_EQ(inForce(), otherText);
  agent_.advance(59.9);
  settle();
  EXPECT_EQ(inForce(), otherText);
  EXPECT_NEAR(agent_.show("status").at("configuration").at("confirmWithin").get<double>(), 0.1, 0.01);
  agent_.advance(0.2);
  settle();
  EXPECT_EQ(inForce(), oneText);
  EXPECT_EQ(history(), "1 start, 2 apply, 3 return");
  EXPECT_EQ(errorOf(agent_.ask({{"do", "confirm"}})), "no change waits to be confirmed");
}

TEST_F(TakingBackTest, WhatIsConfirmedStays) {
  agent_.start(oneText);
  applyToBeConfirmed(otherText, 60);
  EXPECT_EQ(agent_.ask({{"do", "confirm"}}).at("confirmed"), true);
  agent_.advance(100);
  settle();
  EXPECT_EQ(inForce(), otherText);
  EXPECT_EQ(history(), "1 start, 2 apply");
}

TEST_F(TakingBackTest, MeanwhileOnlyWhatIsToBeConfirmedTooOrTakesBackIsCarriedOut) {
  agent_.start(oneText);
  applyToBeConfirmed(otherText, 60);
  EXPECT_EQ(errorOf(agent_.apply(thirdText)),
            "a change waits to be confirmed, and is taken back in 60 s: velo confirm, or velo rollback");
  EXPECT_EQ(inForce(), otherText);
  EXPECT_EQ(agent_.apply(thirdText, true).at("applied"), false) << "to look is not to change";
  agent_.advance(50);
  applyToBeConfirmed(thirdText, 60);
  agent_.advance(50);
  settle();
  EXPECT_EQ(inForce(), thirdText) << "with the time of the last one";
  agent_.advance(11);
  settle();
  EXPECT_EQ(inForce(), oneText) << "to what was there before both";
  applyToBeConfirmed(otherText, 60);
  EXPECT_EQ(agent_.ask({{"do", "rollback"}}).at("applied"), true);
  agent_.advance(100);
  settle();
  EXPECT_EQ(inForce(), oneText);
  EXPECT_EQ(history(), "1 start, 2 apply, 3 apply, 4 return, 5 apply, 6 rollback");
}

TEST_F(TakingBackTest, WhatChangesNothingIsNotToBeConfirmed) {
  agent_.start(oneText);
  const Json done = applyToBeConfirmed(oneText, 60);
  EXPECT_EQ(done.at("applied"), true);
  EXPECT_TRUE(done.at("confirmWithin").is_null());
  EXPECT_EQ(history(), "1 start");
}

TEST_F(TakingBackTest, WhatChangesNothingConfirmsNothing) {
  agent_.start(oneText);
  applyToBeConfirmed(otherText, 60);
  agent_.advance(50);
  applyToBeConfirmed(otherText, 60);
  agent_.advance(11);
  settle();
  EXPECT_EQ(inForce(), oneText);
}

/// A list in the directory that only the text has bound that waits to come back.
class ListOfWhatComesBackTest : public TakingBackTest {
 protected:
  static constexpr const char* bound = "interface eth1\n ip access-group X in\n";
  static constexpr const char* list = "ip access-list X\n permit ip any any\n";

  /// Begins with the list bound, and has a text without it wait to be confirmed for a minute.
  void begin(bool mayOpen) {
    agent_.leaveIs({.openings = mayOpen});
    const std::map<std::string, std::string> files = {{"x", list}};
    agent_.start(bound, &files);
    ASSERT_EQ(applyToBeConfirmed(otherText, 60).at("applied"), true);
  }
  void untilFilesAre(const std::function<bool()>& done) {
    agent_.turns();
    agent_.advance(1.1);  // a look comes once a second
    const auto& files = agent_.plane().configuration();
    agent_.turnsUntil([&] { return !files.looking() && !files.busy() && done(); });
  }
  Json bad() { return agent_.show("status").at("configuration").at("bad"); }
  bool isDefined(const char* name = "X") { return !agent_.show("access-lists", name).contains("error"); }
};

TEST_F(ListOfWhatComesBackTest, StaysInForceThoughItsFileHasGone) {
  begin(false);
  std::filesystem::remove(agent_.dirPath() + "/x");
  untilFilesAre([this] { return !bad().empty(); });
  EXPECT_EQ(bad().at(0).at("mistakes").at(0),
            agent_.dirPath() +
                "/x: if nobody confirms the change that waits for it: ip access-list X goes with its file x, "
                "but interface eth1 has it bound in: everything passes there (--allow-open carries it out)");
  EXPECT_TRUE(isDefined());
  agent_.advance(60);
  untilFilesAre([this] { return inForce() == "interface eth1\n   ip access-group X in\n"; });
  EXPECT_EQ(bad().size(), 1u) << "now it is an opening in what is in force";
  EXPECT_TRUE(isDefined());
}

TEST_F(ListOfWhatComesBackTest, GoesWithItsFileWhenTheChangeIsConfirmed) {
  begin(false);
  std::filesystem::remove(agent_.dirPath() + "/x");
  untilFilesAre([this] { return !bad().empty(); });
  EXPECT_EQ(agent_.ask({{"do", "confirm"}}).at("confirmed"), true);
  untilFilesAre([this] { return bad().empty() && !isDefined(); });
}

TEST_F(ListOfWhatComesBackTest, GoesWithItsFileIfTheAgentMayOpen) {
  begin(true);
  std::filesystem::remove(agent_.dirPath() + "/x");
  untilFilesAre([this] { return bad().empty() && !isDefined(); });
}

TEST_F(ListOfWhatComesBackTest, MayChangeAsLongAsItIsThere) {
  begin(false);
  agent_.putFile("x", "ip access-list X\n deny ip any any\n");
  agent_.putFile("y", "ip access-list Y\n deny ip any any\n");
  untilFilesAre([this] { return isDefined("Y"); });
  EXPECT_TRUE(bad().empty()) << bad();
}

TEST_F(TakingBackTest, TheJournalHasWhatWasBeforeWhenTheChangeBegins) {
  agent_.journalIs(journal_);
  agent_.start(oneText);
  ASSERT_FALSE(journal_.given.unconfirmed);
  journal_.now = ChangeJournal::State::writing;
  agent_.ask({{"do", "text"}, {"name", "t"}, {"text", otherText}});
  std::optional<bool> done;
  std::string wrong;
  agent_.plane().operations().handle(*Agent::Request::read(R"({"do":"apply","confirm":60})", &wrong),
                                     agent_.session(), true,
                                     [&](Agent::Answer answer) { done = answer.error.is_null(); });
  agent_.turnsUntil([this] { return journal_.given.unconfirmed.has_value(); });
  for (int i = 0; i < 20; ++i) agent_.advance(0.01);
  EXPECT_EQ(inForce(), oneText) << "not before the journal has kept it";
  EXPECT_EQ(*journal_.given.unconfirmed->before, oneText);
  EXPECT_EQ(*journal_.given.unconfirmed->refused, otherText);
  EXPECT_FALSE(done);
  journal_.now = ChangeJournal::State::kept;
  agent_.turnsUntil([&] {
    agent_.pass(0.001);
    return done.has_value();
  });
  EXPECT_EQ(inForce(), otherText);
  agent_.ask({{"do", "confirm"}});
  EXPECT_FALSE(journal_.given.unconfirmed);
  journal_.now = ChangeJournal::State::failed;
  EXPECT_EQ(errorOf(applyToBeConfirmed(thirdText, 60)), "the state file cannot be written");
  EXPECT_EQ(inForce(), otherText);
}

TEST_F(TakingBackTest, AStartDoesNotBringBackWhatWasTakenBack) {
  agent_.journalIs(journal_);
  agent_.start(oneText);
  applyToBeConfirmed(otherText, 60);
  agent_.advance(61);
  settle();
  ASSERT_TRUE(journal_.given.unconfirmed);
  EXPECT_EQ(*journal_.given.unconfirmed->refused, otherText);
  agent_.apply(thirdText);
  EXPECT_FALSE(journal_.given.unconfirmed) << "until somebody changes it";
}

TEST(TakingBack, EveryStartTakesBackWhatNobodyConfirmed) {
  Past past;
  past.unconfirmed = Agent::Unconfirmed{shared(otherText), shared(oneText)};
  const auto start = [&past](const char* text) {
    Agent::ConfigFiles files;
    files.commandLineIs(modelOf(text));
    const bool isTold = Agent::takeBackUnconfirmed(files, past).has_value();
    const std::string inForce = Config::textOf(files.sources().commandLine);
    EXPECT_EQ(isTold, inForce != text);
    return inForce;
  };
  EXPECT_EQ(start(otherText), oneText);
  EXPECT_EQ(start(otherText), oneText) << "the file still says it";
  EXPECT_EQ(start(thirdText), thirdText);
  EXPECT_EQ(start(otherText), otherText) << "somebody has written another file since";
}

TEST_F(TakingBackTest, TellsWhatARestartWouldRead) {
  agent_.start(oneText);
  const auto restart = [this] { return agent_.show("status").at("configuration").at("restart"); };
  EXPECT_EQ(restart().at("same"), true);
  const Json done = agent_.apply(otherText);
  EXPECT_EQ(done.at("restart").at("same"), false);
  EXPECT_EQ(restart().at("same"), false);
  const std::string path = restart().at("files").at(0);
  EXPECT_EQ(restart().at("why").at(0), fmt::format("what is in force is not what {} says", path));
  writeFile(path, std::string("! in other words\n") + otherText);
  EXPECT_EQ(restart().at("same"), true);
  // A file is not read for every question once the file system's clock, which nobody can drive, tells a later
  // change from the last one: only when it is another one.
  while (!Agent::isSettled(*Agent::identityOf(path), Agent::fileTime())) std::this_thread::yield();
  EXPECT_EQ(restart().at("same"), true);
  writeFile(path, "ip access-list A\n permit\n");
  EXPECT_EQ(restart().at("why").at(0).get<std::string>().find(path + ":2:"), 0u);
  std::filesystem::remove(path);
  EXPECT_EQ(restart().at("same"), false);
  writeFile(path, oneText);
  EXPECT_EQ(restart().at("same"), false);
  EXPECT_EQ(agent_.apply(oneText).at("restart").at("same"), true);
}

}  // namespace
