#include <agent/change/History.h>
#include <agent/change/Restart.h>
#include <agent/config/Writer.h>

#include "TakingBack.h"

namespace {

using namespace TestSupport;
using Agent::History;
using testing::ElementsAre;
using testing::HasSubstr;

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

TEST_F(ListOfWhatComesBackTest, IsNotContradictedByAFile) {
  const std::string channel = "port-channel po1 members eth5\n";
  const std::map<std::string, std::string> files = {{"x", list}};
  agent_.start(channel, &files);
  ASSERT_EQ(applyToBeConfirmed(otherText, 60).at("applied"), true);
  agent_.log();
  agent_.putFile("x", "port-channel po2 members eth5\n");
  untilFilesAre([this] { return !bad().empty(); });
  const std::string why =
      "if nobody confirms the change that waits for it: port-channel po2: eth5 is a member of po1 already";
  EXPECT_EQ(bad().at(0).at("mistakes").at(0), agent_.dirPath() + "/x: " + why);
  untilFilesAre([] { return true; });
  EXPECT_THAT(agent_.log(), ElementsAre("x not changed by " + agent_.dirPath() + "/x: " + why +
                                        "; 1 list removed, +1 port-channel"))
      << "once";
  agent_.advance(60);
  untilFilesAre([&] { return inForce() == channel; });
  EXPECT_TRUE(isDefined());
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

TEST_F(TakingBackTest, PlacesInATextThatIsInNoFileSayWhichItIs) {
  const std::string odd = std::string(oneText) + "ip access-list A\n   20 permit ip 192.0.2.1/24 any\n";
  agent_.start(odd);
  const auto places = [](const Json& answer) {
    std::vector<std::string> files;
    for (const Json& warning : answer.at("warnings")) files.push_back(warning.at("file"));
    return files;
  };
  agent_.apply(otherText);
  using testing::ElementsAre;
  EXPECT_THAT(places(agent_.ask({{"do", "rollback"}, {"number", 1}})),
              ElementsAre("the text of change 1 (velo show history 1)"));
  applyToBeConfirmed(otherText, 60);
  agent_.advance(61);
  settle();
  EXPECT_THAT(places(agent_.show("status").at("configuration")),
              ElementsAre("the text before the change that nobody confirmed"));
}

}  // namespace
