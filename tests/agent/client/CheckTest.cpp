#include <agent/study/OffLine.h>

#include <gmock/gmock.h>

#include "../support/CaptureBytes.h"
#include "../support/Run.h"
#include "../support/Sessions.h"

#include <nlohmann/json.hpp>

namespace {

using namespace TestSupport;
using testing::HasSubstr;

/// A text without the folder of the test, which has another name each time.
std::string withoutFolder(std::string text) {
  for (size_t at = 0; (at = text.find("/good.acl", at)) != std::string::npos;) {
    const size_t start = text.rfind('\n', at) + 1;
    text.erase(start, at + 1 - start);
    at = start + 1;
  }
  return text;
}

TEST(Check, TellsMistakesAndWhatIsProbablyNotMeant) {
  const TempDir dir;
  writeFile(dir / "good.acl",
            "ip access-list A\n permit tcp any any mirror session S\nip access-list FREE\n"
            "interface eth1\n ip access-group A in\n ip access-group MISSING out\n"
            "object-group network NOBODY\nip access-list A\n permit ip object-group NOBODY any\n"
            "interface eth2\n shutdown\ninterface eth3\n shutdown\n no shutdown\n description x\n");
  writeFile(dir / "near.acl",
            "ip access-list A\n permit ip any any mirror session PORBE\n"
            "interface eth1\n ip access-group A in\nmirror session PROBE destination eth2\n");
  writeFile(dir / "bad.acl", "ip access-list A\n permit\n 10 deny any\n");
  writeFile(dir / "channels.acl", "port-channel po1 members a\n");
  writeFile(dir / "d", "port-channel po2 members a\n");

  const auto good = Agent::checkDocument({.files = {dir / "good.acl"}});
  EXPECT_TRUE(good.at("mistakes").empty());
  EXPECT_EQ(
      withoutFolder(Agent::checkText(good)),
      "good.acl:6:18: opening: interface eth1: ip access-list MISSING is bound out but not defined: "
      "everything "
      "passes it\n"
      "good.acl:3:16: note: ip access-list FREE is bound nowhere\n"
      "good.acl:2:2: warning: ip access-list A rule 10: mirror session S is not defined: nothing is copied\n"
      "good.acl:9:2: warning: ip access-list A rule 20: an object-group in it is empty: it matches nothing\n"
      "good.acl:11:2: warning: interface eth2: shutdown is kept and has no effect: traffic goes on\n"
      "no mistake: 2 lists, 2 rules, 2 bindings\n"
      "not checked: whether interfaces are ports of the agent (--ports eth1,eth2 tells which it has)\n"
      "an agent would refuse to start: interface eth1: ip access-list MISSING is bound out but not defined: "
      "everything passes it (--allow-open carries it out)\n");

  EXPECT_THAT(Agent::checkText(Agent::checkDocument({.files = {dir / "near.acl"}})),
              HasSubstr("mirror session PORBE is not defined: nothing is copied (did you mean PROBE?)\n"));

  const Ran bad = runVelo({"check", dir / "bad.acl", dir / "none.acl"});
  EXPECT_EQ(bad.status, 2);
  EXPECT_EQ(bad.out, "");
  EXPECT_THAT(bad.err, HasSubstr("none.acl: No such file"));
  EXPECT_THAT(bad.err, HasSubstr("bad.acl:2:8: found the end of the line"));
  EXPECT_THAT(bad.err, HasSubstr("bad.acl:3:10: found \"any\""));

  const Ran json = runVelo({"check", dir / "good.acl", "--json"});
  EXPECT_EQ(json.status, 2) << "an agent would refuse to start";
  EXPECT_EQ(nlohmann::ordered_json::parse(json.out).at("rules"), 2);
  const Ran open = runVelo({"check", dir / "good.acl", "--allow-open"});
  EXPECT_EQ(open.status, 0) << open.err;
  EXPECT_THAT(open.out, testing::Not(HasSubstr("would refuse")));
  EXPECT_EQ(runVelo({"check"}).status, 2) << "nothing to check";
  EXPECT_EQ(runVelo({"check", dir / "good.acl", "--strict"}).status, 2) << "a warning is a failure";
}

TEST(Check, LooksAtInterfacesWhenItIsToldThePorts) {
  const TempDir dir;
  writeFile(dir / "a.acl",
            "ip access-list A\n permit tcp any any\ninterface eht1\n ip access-group A in\n"
            "mirror session S destination eth9\nport-channel po1 members eth2 eth3\n");
  const Ran known = runVelo({"check", dir / "a.acl", "--ports", "eth1,eth2", "--json"});
  std::string warnings;
  const auto document = nlohmann::ordered_json::parse(known.out);
  for (const auto& warning : document.at("warnings")) {
    warnings += warning.at("code").get<std::string>() + " " + std::to_string(warning.at("line").get<int>()) +
                ":" + std::to_string(warning.at("column").get<int>()) + " " +
                warning.at("text").get<std::string>() + "\n";
  }
  EXPECT_EQ(
      warnings,
      "interface-unknown 4:18 interface eht1 (did you mean eth1?): it is no port and no port-channel: "
      "ip access-list A filters nothing there\n"
      "session-without-port 5:16 mirror session S: eth9 is no port (did you mean eth1 or eth2?): "
      "copies "
      "to it are lost\n"
      "member-without-port 6:14 port-channel po1: its member eth3 is no port (did you mean eth1 or eth2?)\n");
  EXPECT_TRUE(document.at("unchecked").empty());
  const Ran right = runVelo({"check", dir / "a.acl", "--ports", "eht1,eth2,eth3,eth9", "--strict"});
  EXPECT_EQ(right.status, 0) << right.out;
  EXPECT_EQ(right.out, "no mistake: 1 list, 1 rule, 1 binding\n");
}

TEST(Check, SeesWhatIsWrongOnlyTogether) {
  const TempDir dir, sources;
  writeFile(dir / "channels.acl", "port-channel po1 members a\n");
  writeFile(sources / "other", "port-channel po2 members a\n");
  const auto document = Agent::checkDocument({.files = {dir / "channels.acl"}, .dir = sources.path()});
  ASSERT_EQ(document.at("mistakes").size(), 1u);
  EXPECT_EQ(document.at("mistakes").at(0), "port-channel po2: a is a member of po1 already");
}

TEST(Check, ExplainsByFilesAlone) {
  const TempDir dir;
  writeFile(dir / "a.acl",
            "ip access-list A\n 10 deny udp any any eq 53\n 20 permit ip any any\ninterface eth2\n ip "
            "access-group A out\n");
  const std::vector<std::string> explain = {"explain", "--config", dir / "a.acl", "--port",
                                            "eth1",    "--out",    "eth2",        "--in"};
  const auto with = [&explain](std::vector<std::string> more) {
    auto arguments = explain;
    arguments.insert(arguments.end(), more.begin(), more.end());
    return runVelo(arguments);
  };
  const Ran dropped = with({"udp 192.0.2.1:1 > 192.0.2.2:domain"});
  EXPECT_EQ(dropped.status, 0) << dropped.err << "an explanation of a drop is no failure";
  EXPECT_THAT(dropped.out, HasSubstr("rule 10 decides: deny   (deny udp any any eq 53)"));
  EXPECT_THAT(dropped.out, HasSubstr("drop out, on eth2: dropping pkt"));
  const Ran passed = with({"udp 192.0.2.1:1 > 192.0.2.2:54", "--json"});
  EXPECT_EQ(nlohmann::ordered_json::parse(passed.out).at("egress").at(0).at("verdict"), "pass");
  EXPECT_EQ(with({"upd 192.0.2.1:1 > 192.0.2.2:54"}).status, 2);
  EXPECT_THAT(dropped.out, HasSubstr("(eth1 is named nowhere in the configuration: taken for a port without "
                                     "lists (did you mean eth2?))\n"));
  EXPECT_EQ(dropped.out.find("(eth2 is named"), std::string::npos);
  const Ran far = runVelo({"explain", "--config", dir / "a.acl", "--port", "uplink", "--in",
                           "arp 192.0.2.1 > 192.0.2.2", "--json"});
  EXPECT_EQ(nlohmann::ordered_json::parse(far.out).at("assumed"),
            nlohmann::ordered_json(
                {"uplink is named nowhere in the configuration: taken for a port without lists"}));
  EXPECT_THAT(with({"udp 192.0.2.1:1 > 192.0.2.2:54", "--control", dir / "x", "--config", dir / "none"}).err,
              HasSubstr("none: No such file"));
  const Ran alone =
      runVelo({"explain", "--port", "eth1", "--in", "arp 192.0.2.1 > 192.0.2.2", "--control", dir / "none"});
  EXPECT_EQ(alone.status, 1);
  EXPECT_THAT(alone.err, HasSubstr("is the agent running?"));
}

TEST(Check, ProvesWhatThePageShows) {
  const std::string page = readFile(VELO_SOURCE_DIR "/docs/proof.md");
  const std::string folder = VELO_SOURCE_DIR "/examples/";
  const Ran text = runVelo({"check", "--ports", "eth1", folder + "shadowed.acl"});
  EXPECT_EQ(text.status, 0) << text.err;
  EXPECT_EQ(without(text.out, folder), sessionBehind(page, "$ velo check --ports eth1 shadowed.acl"));
  EXPECT_EQ(runVelo({"check", "--strict", folder + "shadowed.acl"}).status, 2);
  const std::string partly =
      without(runVelo({"check", "--partly", "--ports", "eth1", folder + "repaired.acl"}).out, folder);
  std::istringstream lines(partly);
  std::string first, second;
  std::getline(lines, first), std::getline(lines, second);
  EXPECT_THAT(page, testing::HasSubstr(first + "\n        " + second + "\n        ...\n"));
  for (const std::vector<std::string>& options : std::vector<std::vector<std::string>>{
           {"--partly"}, {"--proof-seconds", "1"}, {"--proof-memory", "9"}}) {
    std::vector<std::string> words = {"check", "--no-prove", folder + "repaired.acl"};
    words.insert(words.end(), options.begin(), options.end());
    EXPECT_EQ(runVelo(words).status, 2) << options.front() << " is of a proof";
  }
}

TEST(Check, WhatALimitLeftOutFailsOnlyStrictly) {
  const TempDir dir;
  const std::string path = dir / "many.acl";
  std::string rules = "ipv6 access-list A\n";
  for (int i = 1; i <= 2000; ++i)
    rules += fmt::format(" permit tcp host 2001:db8::{:x} host 2001:db8::{:x}\n", i, 7 * i);
  writeFile(path, rules);
  const std::vector<std::string> check = {"check", "--proof-memory", "1", path};
  const auto with = [&](const char* option) {
    auto command = check;
    command.push_back(option);
    return runVelo(command);
  };
  const Ran passed = runVelo(check);
  EXPECT_EQ(passed.status, 0) << passed.err;
  EXPECT_THAT(passed.out, HasSubstr("not checked: ipv6 access-list A: 2000 of 2000 rules"));
  EXPECT_EQ(with("--strict").status, 2);
  EXPECT_EQ(nlohmann::ordered_json::parse(with("--json").out).at("proven"), false);
}

TEST(Check, WhatItProvesHasAnExampleThatExplainTakes) {
  const std::string path = VELO_SOURCE_DIR "/examples/shadowed.acl";
  const Ran json = runVelo({"check", "--json", path});
  const auto document = nlohmann::ordered_json::parse(json.out);
  std::string met;
  for (const auto& warning : document.at("warnings")) {
    ASSERT_TRUE(warning.contains("example")) << warning;
    const Ran explained = runVelo(
        {"explain", "--config", path, "--port", "eth1", "--in", warning.at("example").get<std::string>()});
    ASSERT_EQ(explained.status, 0) << explained.err;
    const size_t at = explained.out.find(" decides: ");
    ASSERT_NE(at, std::string::npos) << explained.out;
    const size_t start = explained.out.rfind("rule ", at);
    met += fmt::format("{} {}: {}\n", warning.at("code").get<std::string>(), warning.at("line").get<int>(),
                       explained.out.substr(start, at - start));
  }
  EXPECT_EQ(met,
            "rule-never-matches 5: rule 10\n"
            "established-before-all-tcp 6: rule 10\n"
            "fragments-slip-by 7: rule 60\n"
            "rule-never-matches 9: rule 60\n");
}

TEST(Check, TellsAHundredOfAKindAndHowManyMoreThereAre) {
  const TempDir dir;
  std::string rules = "ip access-list A\n permit udp any any\n";
  for (int i = 1; i <= 130; ++i) rules += fmt::format(" deny udp any any eq {}\n", i);
  writeFile(dir / "a.acl", rules + "interface eth1\n ip access-group A in\n");
  EXPECT_THAT(runVelo({"check", dir / "a.acl"}).out, testing::HasSubstr("30 more of rule-never-matches\n"));
  const auto warnings =
      nlohmann::ordered_json::parse(runVelo({"check", "--json", dir / "a.acl"}).out).at("warnings");
  const auto isOne = [](const auto& each) { return each.at("code") == "rule-never-matches"; };
  EXPECT_EQ(std::count_if(warnings.begin(), warnings.end(), isOne), 100);
  EXPECT_EQ(warnings.back().at("code"), "more-warnings");
  EXPECT_EQ(warnings.back().at("text"), "30 more of rule-never-matches");
}

TEST(Check, TellsOfAListThatIsBoundNowhereWhetherItProvesOrNot) {
  const TempDir dir;
  writeFile(dir / "a.acl", "ip access-list A\n permit tcp any any\n permit tcp any any eq 22\n");
  const std::string unbound = (dir / "a.acl") + ":1:16: note: ip access-list A is bound nowhere\n";
  const std::string plain = runVelo({"check", "--no-prove", "--ports", "", dir / "a.acl"}).out;
  EXPECT_EQ(plain, unbound + "no mistake: 1 list, 2 rules, 0 bindings\n");
  const std::string proven = runVelo({"check", "--ports", "", dir / "a.acl"}).out;
  EXPECT_THAT(proven, testing::StartsWith(unbound));
  EXPECT_THAT(proven, testing::HasSubstr("rule 20 never matches"));
}

TEST(Check, SaysWhatItDidNotProve) {
  const TempDir dir;
  const auto list = [](const char* name, int count) {
    std::string text = fmt::format("ipv6 access-list {}\n", name);
    for (int i = 1; i <= count; ++i)
      text += fmt::format("{} permit tcp host 2001:db8::{:x} host 2001:db8::{:x}\n", i, i, 7 * i);
    return text;
  };
  writeFile(dir / "a.acl", list("A", 2000) + list("B", 1500) +
                               "ip access-list C\n permit tcp any any\n permit tcp any any eq 1\n");
  const Ran ran = runVelo({"check", "--proof-memory", "1", "--ports", "", dir / "a.acl"});
  EXPECT_THAT(ran.out, HasSubstr("rule 20 never matches"));
  EXPECT_THAT(
      ran.out,
      HasSubstr("not checked: ipv6 access-list B: 1500 of 1500 rules (it takes more than 1 MiB of memory)\n"
                "not checked: ipv6 access-list A: 2000 of 2000 rules (it takes more than 1 MiB of memory)\n"))
      << "smaller lists come first";
}

}  // namespace
