#include <agent/config/Writer.h>
#include <agent/core/Words.h>
#include <gmock/gmock.h>

#include "TakingBack.h"

#include <thread>

namespace {

using namespace TestSupport;
using testing::ElementsAre;
using testing::HasSubstr;

class RestartTest : public ListOfWhatComesBackTest {
 protected:
  Json restart() { return agent_.show("status").at("configuration").at("restart"); }
  std::string refused() {
    const Json why = restart().at("refused");
    return why.is_null() ? "" : why.get<std::string>();
  }
};

TEST_F(RestartTest, IsRefusedWhenItWouldOpenSomething) {
  agent_.leaveIs({});
  agent_.portsAre({"eth1"});
  const std::map<std::string, std::string> files = {{"x", list}};
  agent_.start(bound, &files);
  const std::string path = restart().at("files").at(0);
  EXPECT_EQ(refused(), "");
  for (const auto& [text, why] : {
           std::pair("interface eth1\n ip access-group NONE in\n",
                     "interface eth1: ip access-list NONE is bound in but not defined: everything passes it "
                     "(--allow-open carries it out)"),
           {"interface eth9\n ip access-group X in\n",
            "interface eth9 (did you mean eth1?): it is no port and no port-channel: ip access-list X "
            "filters "
            "nothing there (--allow-open carries it out)"},
           {"port-channel eth1 members eth2\n",
            "eth1 is a port-channel: frames come in and leave by its members"},
           {bound, ""},
       }) {
    writeFile(path, std::string(text));
    EXPECT_EQ(refused(), why);
  }
  writeFile(path, std::string("permit\ndeny\n"));
  EXPECT_THAT(refused(), testing::StartsWith(path + ":1:1: found \"permit\""));
  writeFile(path, std::string(bound));
  EXPECT_EQ(refused(), "");
  std::filesystem::remove(agent_.dirPath() + "/x");
  untilFilesAre([this] { return !bad().empty(); });
  EXPECT_EQ(restart().at("why"), Json({agent_.dirPath() + "/x has gone, and what it said is kept"}));
  EXPECT_THAT(refused(), HasSubstr("ip access-list X is bound in but not defined"));
  agent_.putFile("x", "ip access-list Y\n");
  untilFilesAre(
      [this] { return restart().at("why").dump().find("is refused as it is now") != std::string::npos; });
  agent_.putFile("x", "ip access-list\n");
  untilFilesAre([this] { return restart().at("why").dump().find("/x has mistakes") != std::string::npos; });
  EXPECT_THAT(refused(), HasSubstr("/x:1:15: found"));
}

/// What is filtered, of the past that is kept for the next start.
std::string filteredIn(const Past& past) {
  std::string text;
  for (const auto& [port, filters] : *past.filtered)
    text += port.interface + " " + filters.front().list + "\n";
  return text;
}

TEST(RestartLook, SaysWhatWouldNotBeFilteredAnyMore) {
  TestJournal journal;
  const std::string lost = "interface eth1 loses its last ip list in (A): everything passes there";
  for (const bool isKept : {false, true}) {
    for (const bool mayOpen : {false, true}) {
      RunningAgent agent;
      agent.leaveIs({.openings = mayOpen});
      agent.portsAre({"eth1"});
      if (isKept) agent.journalIs(journal);
      agent.start(oneText);
      const auto restart = [&] { return agent.show("status").at("configuration").at("restart"); };
      EXPECT_EQ(restart().at("opens"), Json::array());
      writeFile(restart().at("files").at(0), std::string("ip access-list A\n permit ip any any\n"));
      EXPECT_EQ(restart().at("opens"), Json({lost}));
      const bool isRefused = isKept && !mayOpen;
      EXPECT_EQ(restart().at("refused"),
                isRefused ? Json(lost + " (--allow-open carries it out)") : Json(nullptr));
      EXPECT_EQ(Agent::restartSentences(restart()).back(),
                isRefused ? "a restart would be refused: " + lost + " (--allow-open carries it out)"
                          : "a restart would open something: " + lost);
      writeFile(restart().at("files").at(0), std::string(oneText));
      EXPECT_EQ(restart().at("opens"), Json::array());
    }
  }
}

TEST_F(RestartTest, ComparesWithWhatWouldComeBack) {
  agent_.leaveIs({.openings = true});
  agent_.portsAre({"eth1", "eth2"});
  agent_.journalIs(journal_);
  const std::map<std::string, std::string> files = {{"x", "ip access-list X\n deny ip any any\n"}};
  agent_.start(oneText, &files);
  EXPECT_EQ(filteredIn(journal_.given), "eth1 A\n");
  const std::string more = std::string(oneText) + "interface eth2\n ip access-group A in\n";
  EXPECT_EQ(applyToBeConfirmed(more, 60).at("applied"), true);
  EXPECT_EQ(filteredIn(journal_.given), "eth1 A\n") << "nobody has confirmed the other one";
  agent_.putFile("x", "ip access-list X\n deny ip any any\ninterface eth2\n ip access-group X in\n");
  untilFilesAre([&] { return filteredIn(journal_.given) == "eth1 A\neth2 X\n"; });
  agent_.ask({{"do", "confirm"}});
  EXPECT_EQ(filteredIn(journal_.given), "eth1 A\neth2 A\n");
  EXPECT_EQ(agent_.apply(oneText).at("applied"), true);
  EXPECT_EQ(filteredIn(journal_.given), "eth1 A\neth2 X\n");
}

TEST_F(RestartTest, OfWhatNobodyConfirmedIsJudgedByWhatWasBefore) {
  agent_.leaveIs({});
  agent_.journalIs(journal_);
  agent_.start(oneText);
  const std::string path = restart().at("files").at(0);
  writeFile(path, std::string(otherText));
  EXPECT_EQ(restart().at("same"), false);
  EXPECT_EQ(restart().at("save"), true);
  EXPECT_EQ(applyToBeConfirmed(otherText, 60).at("restart").at("same"), false) << "it comes back";
  EXPECT_EQ(restart().at("save"), false) << "not as long as it waits";
  agent_.ask({{"do", "confirm"}});
  EXPECT_EQ(restart().at("same"), true);
  EXPECT_EQ(restart().at("save"), false);
}

TEST_F(TakingBackTest, RemembersWhatChangedInTheDirectoryWhileNobodyWasThere) {
  const auto digest = [](const char* text) { return Agent::digestOf(Config::textOf(modelOf(text))); };
  constexpr const char *kept = "ip access-list KEPT\n", *old = "ip access-list OLD\n",
                       *now = "ip access-list NOW\n";
  Past past;
  past.files = Agent::FileDigests{
      {"gone", digest(old)}, {"kept", digest(kept)}, {"lost", digest(old)}, {"other", digest(old)}};
  for (const char* name : {"gone", "other"})
    past.changes.push_back(std::make_shared<const Change>(changeOf(name, Config::textOf(modelOf(old)))));
  agent_.journalIs(journal_, past);
  const std::map<std::string, std::string> files = {
      {"kept", std::string("! in other words\n") + kept}, {"lost", now}, {"new", now}, {"other", now}};
  agent_.start("", &files);
  std::vector<std::string> told;
  const Json shown = agent_.show("history");
  for (const Json& change : shown.at("changes")) {
    if (change.at("who") != "the directory, while the agent was down") continue;
    told.push_back(fmt::format("{} {}: {}", change.at("what").get<std::string>(),
                               change.at("source").get<std::string>(),
                               change.at("summary").get<std::string>()));
  }
  EXPECT_THAT(told, ElementsAre("gone gone: 1 list removed", "file lost: other content than before",
                                "file new: +1 list", "file other: +1 list, 1 list removed"));
  ASSERT_TRUE(journal_.given.files);
  EXPECT_EQ(
      *journal_.given.files,
      (Agent::FileDigests{
          {"kept", digest(kept)}, {"lost", digest(now)}, {"new", digest(now)}, {"other", digest(now)}}));
}

TEST_F(TakingBackTest, TellsOfManyFilesTogether) {
  Past past;
  past.files.emplace();
  agent_.journalIs(journal_, past);
  std::map<std::string, std::string> files;
  for (int i = 0; i < 30; ++i) files[fmt::format("f{:02}", i)] = fmt::format("ip access-list L{}\n", i);
  agent_.start("", &files);
  const Json shown = agent_.show("history"), &changes = shown.at("changes");
  ASSERT_EQ(changes.size(), 22u) << "twenty, the others, and the start";
  EXPECT_EQ(changes.at(20).at("summary"), "10 more files changed");
  EXPECT_EQ(journal_.given.files->size(), 30u);
}

TEST_F(TakingBackTest, KnowsTheFilesByEveryChange) {
  agent_.journalIs(journal_);
  const std::map<std::string, std::string> files = {{"x", "ip access-list X\n"}, {"y", "ip access-list Y\n"}};
  agent_.start("", &files);
  EXPECT_EQ(history(), "1 start") << "of files that an agent is given first nothing has changed";
  ASSERT_TRUE(journal_.given.files);
  const auto before = *journal_.given.files;
  EXPECT_EQ(before.size(), 2u);
  agent_.putFile("x", "ip access-list OTHER\n");
  std::filesystem::remove(agent_.dirPath() + "/y");
  agent_.turns();
  agent_.advance(1.1);
  agent_.turnsUntil([this] { return journal_.given.files->size() == 1; });
  EXPECT_NE(journal_.given.files->at("x"), before.at("x"));
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
