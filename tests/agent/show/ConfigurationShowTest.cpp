#include <agent/config/Writer.h>

#include "../../support/Dice.h"
#include "../../support/Sanitizers.h"
#include "../config/RandomText.h"
#include "../support/CaptureBytes.h"
#include "../support/ModelOf.h"
#include "../support/RunningAgent.h"

namespace {

using namespace TestSupport;

class ConfigurationShowTest : public testing::Test {
 protected:
  std::string shown(RunningAgent& agent, const std::string& source = {}) {
    Json request = {{"do", "show"}, {"what", "configuration"}};
    if (!source.empty()) request["source"] = source;
    const Json document = agent.ask(request);
    EXPECT_EQ(document.value("whole", false), true) << document.dump();
    return document.value("text", "");
  }

  /// A text says what is in force of some sources, group names aside.
  static void expectInForce(const std::string& text, const Agent::Sources& sources) {
    const Config::Model is = modelOf(text);
    Config::Model wanted = sources.interfaces();
    EXPECT_EQ(is.portChannels, wanted.portChannels) << text;
    EXPECT_EQ(is.mirrorSessions, wanted.mirrorSessions) << text;
    sources.forEach([&wanted](const std::string&, const Config::Model& model) {
      wanted.lists.insert(model.lists.begin(), model.lists.end());
      wanted.bindings.insert(model.bindings.begin(), model.bindings.end());
      wanted.interfaceNotes.insert(model.interfaceNotes.begin(), model.interfaceNotes.end());
    });
    EXPECT_EQ(is.bindings, wanted.bindings) << text;
    EXPECT_EQ(is.interfaceNotes, wanted.interfaceNotes) << text;
    ASSERT_EQ(is.lists.size(), wanted.lists.size()) << text;
    for (const auto& [key, list] : wanted.lists) {
      const Config::List& shown = is.lists.at(key);
      EXPECT_EQ(shown.pendingRemarks, list.pendingRemarks) << text;
      ASSERT_EQ(shown.rules.size(), list.rules.size()) << text;
      for (const auto& [number, rule] : list.rules) {
        EXPECT_TRUE(Config::isSameRule(shown.rules.at(number), rule)) << number << " in\n" << text;
        EXPECT_EQ(Config::common(shown.rules.at(number)).remark, Config::common(rule).remark) << text;
      }
    }
  }
};

constexpr const char* shownCommandLine =
    "object-group network HOSTS\n   host 192.0.2.1\n"
    "ip access-list A\n   remark first\n   10 permit ip object-group HOSTS any\n"
    "interface eth1\n   description to the left\n   ip access-group A in\n";
constexpr const char* shownFile =
    "object-group network ALL\n   group-object HOSTS\n"
    "object-group network HOSTS\n   host 192.0.2.9\n"
    "ip access-list A\n   10 deny ip any any\n"
    "ip access-list B\n   10 permit ip object-group ALL object-group HOSTS\n"
    "interface eth1\n   description overridden\n   shutdown\n   ip access-group B in\n   ip access-group B "
    "out\n";

TEST_F(ConfigurationShowTest, ShowsOneSourceAsItIs) {
  const std::map<std::string, std::string> dir = {{"edge.acl", shownFile}};
  RunningAgent agent;
  agent.start(shownCommandLine, &dir);
  EXPECT_EQ(shown(agent, "cli"), shownCommandLine);
  EXPECT_EQ(shown(agent, "edge.acl"), shownFile);
}

TEST_F(ConfigurationShowTest, ShowsWhatIsInForceOfAllSources) {
  const std::map<std::string, std::string> dir = {{"edge.acl", shownFile}};
  RunningAgent agent;
  agent.start(shownCommandLine, &dir);
  const std::string text = shown(agent);
  EXPECT_EQ(text,
            "! cli\n"
            "object-group network HOSTS\n   host 192.0.2.1\n"
            "ip access-list A\n   remark first\n   10 permit ip object-group HOSTS any\n"
            "interface eth1\n   description to the left\n   ip access-group A in\n"
            "! edge.acl\n"
            "object-group network ALL\n   group-object HOSTS.edge.acl\n"
            "object-group network HOSTS.edge.acl\n   host 192.0.2.9\n"
            "ip access-list B\n   10 permit ip object-group ALL object-group HOSTS.edge.acl\n"
            "interface eth1\n   ip access-group B out\n");
  expectInForce(text, agent.plane().configuration().sources());
}

TEST_F(ConfigurationShowTest, SaysWhenThereIsNoSuchSource) {
  RunningAgent agent;
  agent.start(shownCommandLine);
  const Json none = agent.ask({{"do", "show"}, {"what", "configuration"}, {"source", "no.acl"}});
  EXPECT_EQ(none.at("error").at("text").get<std::string>().rfind("there is no source no.acl", 0), 0u);
  const Json other = agent.ask({{"do", "show"}, {"what", "ports"}, {"source", "cli"}});
  EXPECT_EQ(other.at("error").at("text"), "ports takes no source");
}

TEST_F(ConfigurationShowTest, SaysWhenItChangedMeanwhile) {
  RunningAgent agent;
  std::string text = "ip access-list A\n";
  for (int i = 0; i < 2000; ++i) text += fmt::format(" permit tcp any any eq {}\n", 1 + i);
  agent.start(text);
  const auto document = Agent::showOf("configuration")->document(agent.plane().operations().world(), {});
  std::string line;
  ASSERT_TRUE(document->next(line));
  agent.apply("ip access-list B\n");
  while (document->next(line)) {
  }
  EXPECT_EQ(Json::parse(line).at("whole"), false);
}

TEST_F(ConfigurationShowTest, OfRandomSourcesIsWhatIsInForce) {
  Dice dice(5);
  size_t rules = 0;
  for (int round = 0; round < casesOf(60); ++round) {
    const auto some = [&dice] {
      for (;;) {
        const std::string text = Config::randomText(dice, false);
        if (Config::read({{"t", text}}).model) return text;
      }
    };
    const std::string text = some();
    const std::map<std::string, std::string> dir = {{"a", some()}, {"b", some()}};
    const Agent::Sources sources{modelOf(text), {{"a", modelOf(dir.at("a"))}, {"b", modelOf(dir.at("b"))}}};
    if (sources.whyNot()) continue;
    RunningAgent agent;
    agent.start(text, &dir);
    ASSERT_NO_FATAL_FAILURE(expectInForce(shown(agent), sources));
    if (HasFailure()) return;
    for (const auto& [key, list] : sources.commandLine.lists) rules += list.rules.size();
  }
  EXPECT_GT(rules, sanitizers ? 20u : 100u);
  // Mirror sessions are the process's: those of the last agent would be there for other tests.
  RunningAgent().start("");
}

}  // namespace
