#include <filesystem>

#include "../support/CaptureBytes.h"
#include "../support/RunningAgent.h"

namespace {

using namespace TestSupport;

class ConfigurationTest : public testing::Test {
 protected:
  std::string idOf(const char* list, uint32_t sequence) {
    const Json shown = agent_.show("access-lists", list);
    for (const Json& one : shown.at("lists")) {
      for (const Json& rule : one.at("rules")) {
        if (rule.at("sequence") == sequence) return rule.at("id").get<std::string>();
      }
    }
    return "none";
  }
  bool defined(const char* list) { return !agent_.show("access-lists", list).contains("error"); }
  Json configuration() { return agent_.show("status").at("configuration"); }
  /// Lets a burst of file changes come to its end.
  void untilFilesAre(const std::function<bool()>& so) {
    agent_.turns();
    agent_.advance(0.2);
    const auto& files = agent_.plane().configuration();
    // A look may meet what the test does next.
    agent_.turnsUntil([&] { return !files.directory().looking() && !files.busy() && so(); });
  }
  RunningAgent agent_;
};

TEST_F(ConfigurationTest, AnApplyIsADifference) {
  agent_.start(
      "ip access-list A\n 10 permit udp any any\n 20 permit tcp any any\ninterface eth1\n ip access-group A "
      "in\n");
  agent_.receive("eth1", udpTo(53));
  const std::string ten = idOf("A", 10), twenty = idOf("A", 20);
  const std::string text =
      "ip access-list A\n 10 permit udp any any\n 20 permit tcp any any syn\ninterface eth1\n ip "
      "access-group A in\n";

  const Json dry = agent_.apply(text, true);
  EXPECT_EQ(dry.at("applied"), false);
  EXPECT_EQ(
      dry.at("difference").at("lists").at("changed").at(0).at("rules").at("changed").at(0).at("sequence"),
      20);
  EXPECT_EQ(idOf("A", 20), twenty) << "a dry run changes nothing";

  EXPECT_EQ(agent_.apply(text).at("applied"), true);
  EXPECT_EQ(idOf("A", 10), ten) << "a rule that did not change keeps its id";
  EXPECT_NE(idOf("A", 20), twenty) << "another rule took the number";
  EXPECT_EQ(agent_.show("access-lists", "A").at("lists").at(0).at("rules").at(0).at("matches").at("in"), 1)
      << "and its counter";
  const Json again = agent_.apply(text);
  EXPECT_TRUE(again.at("difference").at("lists").at("changed").empty())
      << "the next one is compared with this one";
}

TEST_F(ConfigurationTest, PacketsPassByTheOldConfigurationUntilTheNewOneIsThere) {
  agent_.start("ip access-list A\n permit ip any any\ninterface eth1\n ip access-group A in\n");
  agent_.ask({{"do", "text"},
              {"name", "t"},
              {"text", "ip access-list A\n deny ip any any\ninterface eth1\n ip access-group A in\n"}});
  std::optional<bool> passedWhenTold;
  std::string wrong;
  const auto request = Agent::Request::read(R"({"do":"apply"})", &wrong);
  agent_.plane().operations().handle(*request, agent_.session(), true, [&](Agent::Answer) {
    passedWhenTold = agent_.receive("eth1", udpTo(53)).passed();
  });
  EXPECT_TRUE(agent_.receive("eth1", udpTo(53)).passed()) << "nothing has changed before the loop turned";
  EXPECT_EQ(agent_.apply("").at("error").at("code"), "busy") << "one change at a time";
  agent_.turnsUntil([&] { return passedWhenTold.has_value(); });
  EXPECT_EQ(passedWhenTold, false) << "in force when it is told";
}

TEST_F(ConfigurationTest, MistakesAndConflictsLeaveEverythingAsItWas) {
  const std::map<std::string, std::string> files = {{"b.acl", "port-channel po2 members eth5\n"}};
  agent_.start("ip access-list A\n permit ip any any\n", &files);
  EXPECT_EQ(agent_.apply("ip access-list B\n permit any\n").at("error").at("code"), "mistakes");
  for (const bool dry : {true, false}) {
    const Json conflict = agent_.apply("ip access-list B\nport-channel po1 members eth5\n", dry);
    EXPECT_EQ(conflict.at("error").at("mistakes").at(0), "port-channel po2: eth5 is a member of po1 already")
        << conflict;
  }
  EXPECT_TRUE(defined("A"));
  EXPECT_FALSE(defined("B"));
  std::string all;
  for (int i = 0; i < 500; ++i) all += "nonsense\n";
  EXPECT_EQ(agent_.apply(all).at("error").at("mistakes").size(), 100u) << "the first hundred are told";
}

TEST_F(ConfigurationTest, FilesOfTheDirectoryComeChangeAndGo) {
  const std::map<std::string, std::string> files;
  agent_.start("", &files);
  agent_.turns();
  agent_.putFile("one.acl", "ip access-list ONE\n permit ip any any\n");
  writeFile(agent_.dirPath() + "/two.acl", "ip access-list TWO\n permit ip any any\n");
  writeFile(agent_.dirPath() + "/.hidden", "ip access-list HIDDEN\n permit ip any any\n");
  writeFile(agent_.dirPath() + "/one.acl~", "ip access-list BACKUP\n permit ip any any\n");
  untilFilesAre([&] { return defined("ONE") && defined("TWO"); });
  EXPECT_FALSE(defined("HIDDEN"));
  EXPECT_FALSE(defined("BACKUP"));
  const std::string id = idOf("ONE", 10);

  agent_.putFile("one.acl", "ip access-list ONE\n permit ip any any\n 20 deny udp any any\n");
  untilFilesAre([&] { return idOf("ONE", 20) != "none"; });
  EXPECT_EQ(idOf("ONE", 10), id) << "as a difference";
  EXPECT_EQ(configuration().at("sources").size(), 3u);

  std::filesystem::remove(agent_.dirPath() + "/two.acl");
  untilFilesAre([&] { return !defined("TWO"); });
  EXPECT_EQ(configuration().at("sources").size(), 2u);
}

TEST_F(ConfigurationTest, ABadFileIsReportedAndItsLastGoodContentStays) {
  const std::map<std::string, std::string> files = {{"one.acl", "ip access-list ONE\n permit ip any any\n"}};
  agent_.start("", &files);
  agent_.putFile("one.acl", "ip access-list ONE\n permit nothing\n");
  agent_.putFile("two.acl", "ip access-list TWO\n permit nothing\n");
  untilFilesAre([&] { return configuration().at("bad").size() == 2; });
  EXPECT_TRUE(defined("ONE"));
  EXPECT_FALSE(defined("TWO"));
  const Json bad = configuration().at("bad");
  EXPECT_EQ(bad.at(0).at("name"), "one.acl");
  EXPECT_EQ(bad.at(0).at("kept"), true);
  EXPECT_EQ(bad.at(1).at("kept"), false);
  EXPECT_NE(bad.at(0).at("mistakes").at(0).get<std::string>().find("one.acl:2:9:"), std::string::npos) << bad;

  agent_.putFile("one.acl", "ip access-list ONE\n permit ip any any\n");
  std::filesystem::remove(agent_.dirPath() + "/two.acl");
  untilFilesAre([&] { return configuration().at("bad").empty(); });
}

TEST_F(ConfigurationTest, AFileThatDoesNotGoWithTheOthersComesInForceWhenItDoes) {
  const std::map<std::string, std::string> files = {{"a.acl", "port-channel po1 members eth5\n"}};
  agent_.start("", &files);
  agent_.putFile("b.acl", "ip access-list B\n permit ip any any\nport-channel po2 members eth5\n");
  untilFilesAre([&] { return configuration().at("bad").size() == 1; });
  EXPECT_FALSE(defined("B")) << "whole or not at all";
  std::filesystem::remove(agent_.dirPath() + "/a.acl");
  untilFilesAre([&] { return configuration().at("bad").empty() && defined("B"); });
}

TEST_F(ConfigurationTest, ADirectoryThatGoesLeavesWhatWasInIt) {
  const std::map<std::string, std::string> files = {{"one.acl", "ip access-list ONE\n permit ip any any\n"}};
  agent_.start("", &files);
  untilFilesAre([] { return true; });
  std::filesystem::rename(agent_.dirPath(), agent_.dirPath() + "-aside");
  untilFilesAre([&] { return configuration().at("bad").size() == 1; });
  EXPECT_TRUE(defined("ONE"));
  std::filesystem::create_directory(agent_.dirPath());
  agent_.putFile("two.acl", "ip access-list TWO\n permit ip any any\n");
  agent_.advance(1.1);
  untilFilesAre([&] { return defined("TWO") && !defined("ONE"); });
  EXPECT_TRUE(configuration().at("bad").empty());
}

}  // namespace
