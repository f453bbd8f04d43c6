#include <agent/study/ListProof.h>
#include <gmock/gmock.h>

#include <future>

#include "../support/CaptureBytes.h"
#include "../support/ModelOf.h"
#include "../support/Run.h"
#include "../support/RunningAgent.h"
#include "../support/Sessions.h"

// What is proven of the lists that an agent has in force, and of those that it is given: the real program
// asks an agent in this process.

namespace {

using namespace TestSupport;
using testing::HasSubstr;
using testing::Not;

Ran ranBeside(RunningAgent& agent, std::vector<std::string> command) {
  command.insert(command.end(), {"--control", agent.socketPath()});
  auto ran = std::async(std::launch::async, [&command] { return runVelo(command); });
  while (ran.wait_for(std::chrono::milliseconds(1)) != std::future_status::ready) agent.turns(5);
  return ran.get();
}

class PacketsOfAnAgentTest : public testing::Test {
 protected:
  void SetUp() override {
    agent_.start(
        "ip access-list A\n 10 permit udp any any eq 1\n 20 permit udp any any lt 9\ninterface eth1\n ip access-group A in\n",
        nullptr, unhurriedLimits());
    agent_.patch("eth1", "eth2");
  }
  Ran run(const std::vector<std::string>& command) { return ranBeside(agent_, command); }

  TempDir dir_;
  RunningAgent agent_;
};

TEST_F(PacketsOfAnAgentTest, ApplyTellsThemAndCarriesOutACleanUpOnly) {
  const std::string clean = dir_ / "clean.acl", open = dir_ / "open.acl";
  const std::string_view bound = "interface eth1\n ip access-group A in\n";
  writeFile(clean, fmt::format("ip access-list A\n 20 permit udp any any lt 9\n{}", bound));
  writeFile(open, fmt::format("ip access-list A\n 20 permit udp any any lt 10\n{}", bound));
  EXPECT_EQ(run({"compare", "running", clean}).status, 0);
  EXPECT_EQ(run({"compare", "running", open}).status, 1);
  EXPECT_EQ(run({"find", "permit", "A", "where", "udp any any eq 9"}).status, 1);
  EXPECT_EQ(run({"simplify", "A"}).out, "ip access-list A\n   20 permit udp any any lt 9\n");

  const Ran through = run({"find", "permit", "--port", "eth1", "--to", "eth2"});
  EXPECT_EQ(through.err, "") << "eth2 has no lists, but the agent has it";
  EXPECT_THAT(run({"find", "permit", "--port", "eth1", "--to", "eht2"}).err,
              HasSubstr("(did you mean eth2?)"));
  EXPECT_THAT(run({"find", "permit", "A", "--type", "ipv6"}).err, HasSubstr("there is no ipv6 list A\n"));

  const Ran told = run({"apply", "--dry-run", "--packets", open});
  EXPECT_EQ(told.status, 0) << told.err;
  EXPECT_THAT(told.out, HasSubstr("  passes, and was dropped:\n    udp any any eq 9\n"));
  EXPECT_THAT(told.out, HasSubstr("(nothing was applied)\n"));

  const Ran refused = run({"apply", "--only-if-same", open});
  EXPECT_EQ(refused.status, 2);
  EXPECT_THAT(refused.err, HasSubstr("udp any any eq 9\n"));
  EXPECT_THAT(refused.err, HasSubstr("nothing was applied: verdicts would change\n"));
  EXPECT_EQ(run({"compare", "running", clean}).status, 0) << "nothing was carried out";
  const Ran document = run({"apply", "--only-if-same", open, "--json"});
  const auto answer = nlohmann::ordered_json::parse(document.out);
  EXPECT_EQ(answer.at("applied"), false);
  EXPECT_EQ(answer.at("refused"), "nothing was applied: verdicts would change");
  EXPECT_EQ(answer.at("packets").at("lists").at(0).at("opened").at("boxes").at(0).at("packets"),
            "udp any any eq 9");
  const auto dry =
      nlohmann::ordered_json::parse(run({"apply", "--dry-run", "--packets", open, "--json"}).out);
  EXPECT_EQ(dry.at("packets"), answer.at("packets"));

  const Ran done = run({"apply", "--only-if-same", clean});
  EXPECT_EQ(done.status, 0) << done.err;
  EXPECT_THAT(done.out, HasSubstr("-   10 permit udp any any eq 1"));
  EXPECT_THAT(done.out, Not(HasSubstr("counted"))) << "nobody has asked for packets";
  const auto again = nlohmann::ordered_json::parse(run({"apply", "--only-if-same", clean, "--json"}).out);
  EXPECT_EQ(again.at("applied"), true);
  EXPECT_EQ(again.at("packets").at("same"), true);
  EXPECT_EQ(again.at("packets").at("lists"), nlohmann::ordered_json::array());
  EXPECT_EQ(run({"apply", "--packets", clean}).status, 2) << "of --dry-run";
}

TEST(PacketsOfThePage, AreToldByApply) {
  const std::string folder = VELO_SOURCE_DIR "/examples/", page = readFile(VELO_SOURCE_DIR "/docs/proof.md");
  const TempDir dir;
  const std::string simpler = dir / "simpler.acl";
  RunningAgent agent;
  agent.start(readFile(folder + "shadowed.acl"), nullptr, unhurriedLimits());
  EXPECT_EQ(
      without(ranBeside(agent, {"apply", "--dry-run", "--packets", folder + "repaired.acl"}).out, folder),
      sessionBehind(page, "$ velo apply --dry-run --packets repaired.acl"));
  const Ran refused = ranBeside(agent, {"apply", "--only-if-same", folder + "repaired.acl"});
  EXPECT_EQ(refused.status, 2);
  EXPECT_THAT(refused.err, HasSubstr("velo: nothing was applied: verdicts would change\n"));
  writeFile(simpler, ranBeside(agent, {"simplify", "EDGE-IN", "--whole"}).out);
  std::string done = ranBeside(agent, {"apply", "--only-if-same", simpler}).out;
  const size_t file = done.find("start.acl"), folderOfIt = done.rfind(' ', file) + 1;
  ASSERT_NE(file, std::string::npos) << done;
  done.replace(folderOfIt, file - folderOfIt + 5, "shadowed");
  EXPECT_EQ(done, sessionBehind(page, "$ velo apply --only-if-same simpler.acl"));
}

TEST_F(PacketsOfAnAgentTest, ShowTellsFindingsBesideTheRules) {
  const std::string grown = dir_ / "grown.acl";
  writeFile(grown,
            "ip access-list A\n 10 permit udp any any\n 20 deny udp any any eq 9\n 30 permit tcp any any\n"
            "ip access-list B\n 10 permit ip any any\ninterface eth1\n ip access-group A in\n");
  ASSERT_EQ(run({"apply", grown}).status, 0);
  const Ran text = run({"show", "access-lists", "--lint"});
  EXPECT_EQ(text.status, 0) << text.err;
  EXPECT_THAT(text.out, testing::ContainsRegex(
                            "20 deny udp any any eq 9 [^\n]*\n *! rule 20 denies, but rule 10 permits "
                            "all of it \\(for example udp 0.0.0.0:1024 > 0.0.0.0:9\\)\n"));
  EXPECT_THAT(text.out, HasSubstr("! passes everything (for example "));
  EXPECT_THAT(run({"show", "access-lists"}).out, Not(HasSubstr("!")));
  EXPECT_THAT(text.out, Not(HasSubstr("gets a part")));
  ASSERT_EQ(run({"show", "access-lists", "--partly"}).status, 2) << "of --lint";
  const auto lists =
      nlohmann::ordered_json::parse(run({"show", "access-lists", "--lint", "--json"}).out).at("lists");
  EXPECT_EQ(lists.at(0).at("rules").at(1).at("findings").at(0).at("code"), "rule-never-matches");
  EXPECT_EQ(lists.at(0).at("rules").at(0).at("findings"), nlohmann::ordered_json::array());
  EXPECT_EQ(lists.at(0).at("findings"), nlohmann::ordered_json::array());
  EXPECT_EQ(lists.at(1).at("findings").at(0).at("code"), "list-passes-all");
  EXPECT_THAT(run({"show", "access-lists", "B", "--lint"}).out, Not(HasSubstr("rule 20")));
  for (const auto& wrong : {std::vector<std::string>{"show", "access-lists", "--lint", "--watch"},
                            {"show", "access-lists", "--lint", "--source", "cli"},
                            {"show", "bindings", "--lint"},
                            {"show", "access-lists", "--proof-seconds", "1"}})
    EXPECT_EQ(run(wrong).status, 2) << wrong.back();
}

TEST_F(PacketsOfAnAgentTest, PartsAreToldOnRequest) {
  const std::string parted = dir_ / "parted.acl";
  writeFile(parted,
            "ip access-list A\n 10 deny udp any any eq 7\n 20 permit udp any any lt 9\n"
            "interface eth1\n ip access-group A in\n");
  const std::string said =
      "rule 20 gets a part of what it asks for: left is udp any any eq 0 1 2 3 4 5 6 8; rule 10 takes udp any "
      "any eq 7 (for example udp 0.0.0.0:1024 > 0.0.0.0:7)\n";
  EXPECT_THAT(run({"apply", "--dry-run", "--prove", parted}).err, Not(HasSubstr("gets a part")));
  EXPECT_THAT(run({"apply", "--dry-run", "--prove", "--partly", parted}).err,
              HasSubstr(parted + ":3:2: note: ip access-list A " + said));
  EXPECT_EQ(run({"apply", "--partly", parted}).status, 2) << "of --prove";
  ASSERT_EQ(run({"apply", parted}).status, 0);
  const Ran shown = run({"show", "access-lists", "--lint", "--partly"});
  EXPECT_THAT(shown.out, testing::ContainsRegex("20 permit udp any any lt 9 [^\n]*\n"));
  EXPECT_THAT(shown.out, HasSubstr("! " + said));
  const auto document =
      nlohmann::ordered_json::parse(run({"show", "access-lists", "--lint", "--partly", "--json"}).out);
  EXPECT_EQ(document.at("lists").at(0).at("rules").at(1).at("findings").at(0).at("code"),
            "rule-partly-taken");
}

TEST_F(PacketsOfAnAgentTest, FindingsAreOnlyOfTheRulesThatAreShown) {
  const auto model = modelOf("ip access-list A\n 10 permit udp any any\n 20 deny udp any any eq 9\n");
  auto document = nlohmann::ordered_json::parse(
      R"({"lists": [{"type": "ip", "name": "A", "rules": [{"sequence": 20, "text": "deny udp any any eq 10"}]}]})");
  Agent::addFindings(document, {{"cli", &model}}, {});
  EXPECT_EQ(document.at("lists").at(0).at("rules").at(0).at("findings"), nlohmann::ordered_json::array());
  document["lists"][0]["rules"][0]["text"] = "deny udp any any eq 9";
  Agent::addFindings(document, {{"cli", &model}}, {});
  EXPECT_EQ(document.at("lists").at(0).at("rules").at(0).at("findings").size(), 1u);
  Agent::addFindings(document, {{"cli", &model}}, {Kelp::Duration(0)});
  EXPECT_THAT(document.at("unchecked").at(0).get<std::string>(), HasSubstr("ip access-list A: 2 of 2 rules"));
}

TEST_F(PacketsOfAnAgentTest, ApplyWarnsOfWhatIsProven) {
  const std::string grown = dir_ / "grown.acl";
  writeFile(grown,
            "ip access-list A\n 10 permit udp any any lt 9\n 20 deny udp any any eq 5\ninterface eth1\n"
            " ip access-group A in\n");
  const std::string said = grown +
                           ":3:2: warning: ip access-list A rule 20 denies, but rule 10 permits all of it "
                           "(for example udp 0.0.0.0:1024 > 0.0.0.0:5)\n";
  const Ran dry = run({"apply", "--dry-run", "--prove", grown});
  EXPECT_EQ(dry.status, 0);
  EXPECT_THAT(dry.err, HasSubstr(said));
  const Ran refused = run({"apply", "--prove", "--strict", grown});
  EXPECT_EQ(refused.status, 2);
  EXPECT_THAT(refused.err, HasSubstr("nothing was applied: there are warnings (--strict)"));
  EXPECT_THAT(refused.err, HasSubstr(said));
  EXPECT_THAT(run({"show", "configuration"}).out, HasSubstr("10 permit udp any any eq 1"));
  const Ran done = run({"apply", "--prove", "--json", grown});
  EXPECT_EQ(done.status, 0);
  EXPECT_EQ(nlohmann::ordered_json::parse(done.out).at("warnings").back().at("code"), "rule-never-matches");
}

TEST_F(PacketsOfAnAgentTest, WhatWasComparedIsOnlyAppliedWhileItIsInForce) {
  const auto revision = agent_.show("configuration").at("revision");
  const auto apply = [&](const Json& of) {
    agent_.ask({{"do", "text"}, {"name", "t"}, {"text", "ip access-list B\n"}});
    return agent_.ask({{"do", "apply"}, {"revision", of}, {"allowOpen", true}});
  };
  EXPECT_EQ(apply(revision).value("applied", false), true);
  const auto late = apply(revision);
  EXPECT_EQ(late.at("error").at("text"), "the configuration has changed meanwhile; try again");
  EXPECT_EQ(apply(agent_.show("configuration").at("revision")).value("applied", false), true);
}

}  // namespace
