#include <gmock/gmock.h>

#include "TakingBack.h"

namespace {

using namespace TestSupport;
using testing::ElementsAre;
using testing::HasSubstr;

/// What the log is told of a change; the directory is written DIR.
class ChangeLogTest : public ListOfWhatComesBackTest {
 protected:
  std::vector<std::string> log() {
    std::vector<std::string> lines = agent_.log();
    for (std::string& line : lines) {
      const std::string dir = agent_.dirPath();
      for (size_t at = line.find(dir); at != line.npos; at = line.find(dir))
        line.replace(at, dir.size(), "DIR");
    }
    return lines;
  }
  void look() {
    untilFilesAre([] { return true; });
    agent_.advance(1.1);
    untilFilesAre([] { return true; });
  }
};

TEST_F(ChangeLogTest, BeginsWithWhatTheAgentStartsWith) {
  Past past;
  past.files = Agent::FileDigests{{"gone", 1}};
  past.changes.push_back(std::make_shared<const Change>(changeOf("cli", otherText)));
  agent_.journalIs(journal_, past);
  const std::map<std::string, std::string> files = {{"x", list}};
  agent_.start(oneText, &files);
  EXPECT_THAT(
      log(), ElementsAre("gone changed by the directory, while the agent was down: other content than before",
                         "x changed by the directory, while the agent was down: +1 list",
                         "cli changed by velo run: 1 rule changed"));
}

TEST_F(ChangeLogTest, HasNothingOfAStartWithWhatWasInForce) {
  Past past;
  past.changes.push_back(std::make_shared<const Change>(changeOf("cli", oneText)));
  agent_.journalIs(journal_, past);
  agent_.start(oneText);
  EXPECT_THAT(log(), ElementsAre());
}

TEST_F(ChangeLogTest, HasWhoWhatAndTheResultOfEveryOperation) {
  agent_.start(oneText);
  EXPECT_THAT(log(), ElementsAre("cli changed by velo run: +1 list, +1 binding"));
  agent_.apply(oneText);
  EXPECT_THAT(log(), ElementsAre("cli left as it is by uid 0, pid 0: no change"));
  applyToBeConfirmed(otherText, 60);
  EXPECT_THAT(log(), ElementsAre("cli changed by uid 0, pid 0: 1 rule changed"));
  agent_.advance(61);
  settle();
  EXPECT_THAT(log(), ElementsAre("cli taken back by velo run, as nobody confirmed: 1 rule changed"));
  agent_.ask({{"do", "confirm"}});
  EXPECT_THAT(log(), ElementsAre("cli not confirmed by uid 0, pid 0: no change waits to be confirmed"));
  applyToBeConfirmed(otherText, 60);
  log();
  agent_.ask({{"do", "confirm"}});
  EXPECT_THAT(log(), ElementsAre("cli confirmed by uid 0, pid 0"));
  agent_.ask({{"do", "saved"}, {"file", "/tmp/\na"}});
  agent_.ask({{"do", "saved"}, {"file", "/a"}, {"wrong", "/a: Permission denied"}});
  agent_.ask({{"do", "saved"}, {"wrong", "no"}});
  EXPECT_THAT(log(), ElementsAre("cli saved in /tmp/?a by uid 0, pid 0",
                                 "cli not saved in /a by uid 0, pid 0: /a: Permission denied",
                                 "cli not saved by uid 0, pid 0: no"));
}

TEST_F(ChangeLogTest, NamesAFileThatIsRefusedOnceUntilItIsAnotherOneOrGood) {
  agent_.leaveIs({});
  const std::map<std::string, std::string> files = {{"x", list}};
  agent_.start(bound, &files);
  log();
  std::filesystem::remove(agent_.dirPath() + "/x");
  untilFilesAre([this] { return !bad().empty(); });
  const std::string gone =
      "x not changed by DIR/x: ip access-list X goes with its file x, but interface eth1 has it bound in: "
      "everything passes there (--allow-open carries it out); 1 list removed";
  EXPECT_THAT(log(), ElementsAre(gone));
  agent_.apply(bound + std::string("ip access-list OTHER\n"));
  look();
  EXPECT_THAT(log(), ElementsAre("cli changed by uid 0, pid 0: +1 list", testing::_))
      << "another change is no reason to tell it again";
  agent_.putFile("x", "ip access-list Y\n");
  untilFilesAre(
      [this] { return bad().size() == 1 && bad().dump().find("with its file") == std::string::npos; });
  EXPECT_THAT(log(), ElementsAre(HasSubstr("x not changed by DIR/x: ip access-list X goes, but")))
      << "another reason";
  agent_.apply(bound);
  look();
  EXPECT_EQ(log().size(), 1u);
  agent_.putFile("x", "ip access-list Z\n");
  look();
  EXPECT_THAT(log(), ElementsAre(HasSubstr("+1 list, 1 list removed"))) << "another content";
  agent_.putFile("x", "ip access-list\n");
  look();
  EXPECT_THAT(log(), ElementsAre(HasSubstr("DIR/x:1:15: found"), "DIR/x: not in force, 1 mistake"));
  agent_.putFile("x", list);
  untilFilesAre([this] { return bad().empty(); });
  EXPECT_THAT(log(), ElementsAre("DIR/x: good again, nothing changes"));
  agent_.putFile("x", "ip access-list X\n deny ip any any\n");
  untilFilesAre([this] { return agent_.show("access-lists", "X").dump().find("deny") != std::string::npos; });
  EXPECT_THAT(log(), ElementsAre("x changed by DIR/x: 1 rule changed"));
}

}  // namespace
