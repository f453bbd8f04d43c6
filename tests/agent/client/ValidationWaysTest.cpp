#include <agent/models/Yang.h>
#include <gmock/gmock.h>

#include "../support/CaptureBytes.h"
#include "../support/RunningAgent.h"
#include "../support/TestModules.h"

// Whichever way a document comes in, it is validated by the modules that the user has.

namespace {

using namespace TestSupport;
using testing::HasSubstr;

/// A document of one list; the modules of the test have no protocol 99.
std::string listDocument(int protocol) {
  return fmt::format(
      R"({{"ietf-access-control-list:acls": {{"acl": [{{"name": "A", "type": "ipv4-acl-type", "aces": {{"ace": [
{{"name": "1", "matches": {{"ipv4": {{"protocol": {}}}}}, "actions": {{"forwarding": "accept"}}}}]}}}}]}}}})",
      protocol);
}
constexpr const char* outOfRange = ":2:36: found 99 at /ietf-access-control-list:acls/acl[name='A']";

class ValidationWays : public testing::Test {
 protected:
  void SetUp() override {
    if (const auto why = Models::whyNoModules(modules_.dir()); !why.empty()) GTEST_SKIP() << why;
  }
  std::string file(const std::string& name, const std::string& content) const {
    writeFile(temp_ / name, content);
    return temp_ / name;
  }

  const TestModules modules_;
  const TempDir temp_;
};

TEST_F(ValidationWays, CommandsRefuseWhatTheModulesDoNotAllow) {
  const std::string bad = file("bad.json", listDocument(99)), good = file("good.json", listDocument(6)),
                    expected = file("a.expect", "expect all deny on eth1 in: tcp any any\n"),
                    capture = temp_ / "in.pcap";
  writeFile(capture, pcapBytes({}));
  const std::vector<std::string> commands[] = {
      {"check", bad},
      {"convert", "--to", "text", bad},
      {"compare", good, bad},
      {"find", "permit", "A", "--config", bad},
      {"simplify", "A", bad},
      {"test", expected, "--config", bad},
      {"explain", "--config", bad, "--port", "eth1", "--in", "udp 192.0.2.1:1 > 198.51.100.7:2"},
      {"replay", "--config", bad, "--port", "eth1=" + capture},
      {"apply", bad, "--control", temp_ / "none"},
      {"run", "--config", bad, "--port", "eth1=none", "--patch", "eth1,eth1"},
  };
  for (auto words : commands) {
    const std::string mistake = bad + outOfRange;
    EXPECT_THAT(runVelo(words).err, testing::Not(HasSubstr(mistake))) << words.front();
    words.insert(words.end(), {"--yang-dir", modules_.dir()});
    const Ran ran = runVelo(words);
    EXPECT_EQ(ran.status, 2) << words.front();
    EXPECT_THAT(ran.err, HasSubstr(mistake)) << words.front();
  }
}

TEST_F(ValidationWays, AFolderOfModulesIsToBeThere) {
  const Ran ran = runVelo({"check", file("a.json", listDocument(6)), "--yang-dir", temp_ / "none"});
  EXPECT_EQ(ran.status, 2);
  EXPECT_THAT(ran.err, HasSubstr("--yang-dir: " + (temp_ / "none") + " is no folder"));
}

TEST_F(ValidationWays, AnAgentValidatesWhatItReadsLater) {
  RunningAgent agent;
  agent.textLimitsAre({.yangDirs = {modules_.dir()}});
  const std::map<std::string, std::string> none;
  agent.furtherConfigs = {file("start.json", listDocument(6))};
  agent.start("", &none);
  EXPECT_FALSE(agent.apply(listDocument(6)).contains("error"));
  EXPECT_THAT(agent.apply(listDocument(99)).dump(), HasSubstr(outOfRange));

  const auto configuration = [&] { return agent.show("status").at("configuration"); };
  agent.putFile("more.json", listDocument(99));
  agent.advance(1.1);
  agent.turnsUntil([&] {
    agent.pass(0.1);
    return !configuration().at("bad").empty();
  });
  EXPECT_THAT(configuration().at("bad").dump(), HasSubstr(outOfRange));

  const auto refused = [&] { return configuration().at("restart").at("refused").dump(); };
  EXPECT_THAT(refused(), testing::Not(HasSubstr("start.json"))) << refused();
  file("start.json", listDocument(99));
  EXPECT_THAT(refused(), HasSubstr(std::string("start.json") + outOfRange));
}

}  // namespace
