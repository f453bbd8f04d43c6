#include <agent/client/Command.h>
#include <agent/study/ListProof.h>
#include <agent/study/ListSimplification.h>
#include <agent/study/PacketComparison.h>
#include <gmock/gmock.h>

#include <CLI/CLI.hpp>
#include <future>

#include "../support/CaptureBytes.h"
#include "../support/ModelOf.h"
#include "../support/RunningAgent.h"
#include "../support/Sessions.h"

// velo compare, find and test, and what apply says of packets: the real program.

namespace {

using namespace TestSupport;
using testing::HasSubstr;
using testing::Not;

const std::string exampleFolder = VELO_SOURCE_DIR "/examples/";
const std::string shadowedAcl = exampleFolder + "shadowed.acl", repairedAcl = exampleFolder + "repaired.acl";

std::string proofPage() { return readFile(VELO_SOURCE_DIR "/docs/proof.md"); }

/// What a command prints in the folder of the exampleFolder, where it stands in the manual.
std::string pageSession(const std::vector<std::string>& arguments) {
  const Ran ran = runVelo(arguments);
  EXPECT_EQ(ran.err, "");
  return without(ran.out, exampleFolder);
}

TEST(PacketCommands, DoWhatThePageShows) {
  EXPECT_EQ(pageSession({"compare", shadowedAcl, repairedAcl}),
            sessionBehind(proofPage(), "$ velo compare shadowed.acl repaired.acl"));
  EXPECT_EQ(pageSession({"find", "permit", "EDGE-IN", "--config", repairedAcl, "where", "tcp", "10.0.0.0/8",
                         "any", "not", "established"}),
            sessionBehind(proofPage(),
                          "$ velo find permit EDGE-IN --config repaired.acl where tcp 10.0.0.0/8 any not "
                          "established"));
  EXPECT_EQ(
      pageSession({"find", "permit", "EDGE-IN", "--config", repairedAcl, "where", "tcp any any eq telnet"}),
      sessionBehind(proofPage(),
                    "$ velo find permit EDGE-IN --config repaired.acl where tcp any any eq telnet"));
  EXPECT_EQ(pageSession({"find", "match", "EDGE-IN:60", "--config", repairedAcl, "--all"}),
            sessionBehind(proofPage(), "$ velo find match EDGE-IN:60 --config repaired.acl --all"));
  EXPECT_EQ(pageSession({"test", "--config", repairedAcl, exampleFolder + "edge.expect"}),
            sessionBehind(proofPage(), "$ velo test --config repaired.acl edge.expect"));
  EXPECT_EQ(pageSession({"test", "--config", shadowedAcl, exampleFolder + "edge.expect"}),
            sessionBehind(proofPage(), "$ velo test --config shadowed.acl edge.expect"));
  const TempDir dir;
  pageSession({"test", "--config", shadowedAcl, "--junit", dir / "edge.xml", exampleFolder + "edge.expect"});
  EXPECT_EQ(without(readFile(dir / "edge.xml"), exampleFolder),
            sessionBehind(proofPage(),
                          "$ velo test --config shadowed.acl --junit edge.xml edge.expect > "
                          "/dev/null; cat edge.xml"));
}

TEST(PacketCommands, SimplifyDoesWhatThePageShows) {
  const Ran ran = runVelo({"simplify", "EDGE-IN", shadowedAcl});
  EXPECT_EQ(ran.status, 0);
  EXPECT_EQ(ran.out, sessionBehind(proofPage(), "$ velo simplify EDGE-IN shadowed.acl"));
  std::istringstream told(ran.err);
  for (std::string line; std::getline(told, line);) EXPECT_THAT(proofPage(), HasSubstr("    " + line + "\n"));
}

TEST(PacketCommands, WhatSimplifyPrintsDoesTheSame) {
  const TempDir dir;
  const std::string config = dir / "a.acl", simpler = dir / "b.acl";
  writeFile(
      config,
      "object-group network H\n host 10.0.0.1\nobject-group network G\n group-object H\n"
      "object-group network UNUSED\n host 10.0.0.9\nip access-list A\n 10 permit ip object-group G any\n"
      " 20 permit tcp any any eq 22\n 30 permit tcp any any\n 40 permit udp any any log\n"
      "mac access-list A\n 10 permit any any\ninterface eth1\n ip access-group A in\n");
  EXPECT_EQ(runVelo({"simplify", "A", config, "--type", "ip"}).out,
            "object-group network G\n   group-object H\nobject-group network H\n   host 10.0.0.1\n"
            "ip access-list A\n   10 permit ip object-group G any\n   30 permit tcp any any\n"
            "   40 permit udp any any log\n");
  const Ran whole = runVelo({"simplify", "A", config, "--type", "ip", "--whole", "--json"});
  const auto document = nlohmann::ordered_json::parse(whole.out);
  EXPECT_EQ(document.at("rulesLeft"), 3);
  EXPECT_EQ(document.at("leftOut").at(0).at("why"), "redundant");
  EXPECT_EQ(
      document.at("leftOut").at(0).at("sentence"),
      "rule 20 is left out: without it its packets are permitted, too, and are not counted by it any more");
  writeFile(simpler, document.at("text").get<std::string>());
  EXPECT_EQ(runVelo({"compare", config, simpler}).status, 0);
  EXPECT_THAT(readFile(simpler), HasSubstr("mac access-list A"));
  EXPECT_THAT(readFile(simpler), HasSubstr("ip access-group A in"));
  struct Row {
    std::vector<std::string> words;
    const char* wrong;
  };
  for (const Row& row : {
           Row{{"A", config}, "simplify: there are several lists A: --type says which"},
           Row{{"B", config}, "simplify: there is no list B"},
           Row{{"A", config, "--type", "ipv6"}, "simplify: there is no ipv6 list A"},
           Row{{"A", dir / "none.acl"}, "none.acl"},
       }) {
    std::vector<std::string> words = row.words;
    words.insert(words.begin(), "simplify");
    const Ran ran = runVelo(words);
    EXPECT_EQ(ran.status, 2) << row.wrong;
    EXPECT_THAT(ran.err, HasSubstr(row.wrong));
    EXPECT_EQ(ran.out, "");
  }
  // Nothing is printed that is not proven.
  const auto model = modelOf("ip access-list A\n 10 permit ip any any\n");
  std::string wrong;
  EXPECT_FALSE(
      Agent::listSimplification({.list = "A", .limits = {Kelp::Duration(0)}}, {{"cli", &model}}, &wrong));
  EXPECT_EQ(wrong, "ip access-list A: it takes more than 0 seconds");
}

// Their status 1 is an answer, which nobody may take from a program that ran out of memory.
TEST(PacketCommands, GiveNoAnswerWhenMemoryRunsOut) {
  CLI::App app;
  for (const auto make : {Agent::compareCommand, Agent::findCommand, Agent::checkCommand,
                          Agent::simplifyCommand, Agent::testCommand})
    EXPECT_EQ(make(app)->whenItRunsOut(), Agent::exitUsage);
}

TEST(PacketCommands, TellByTheirStatusWhetherVerdictsDiffer) {
  const TempDir dir;
  const std::string one = dir / "one.acl", two = dir / "two.acl", other = dir / "other.acl";
  writeFile(
      one,
      "ip access-list A\n 10 permit tcp any any\n 20 permit tcp any any eq 22\ninterface eth1\n ip access-group A in\n");
  writeFile(two, "ip access-list A\n 10 permit tcp any any\ninterface eth1\n ip access-group A in\n");
  writeFile(other, "ip access-list A\n 10 permit tcp any any log\ninterface eth1\n ip access-group A out\n");
  const Ran same = runVelo({"compare", one, two});
  EXPECT_EQ(same.status, 0) << same.err;
  EXPECT_EQ(same.out, "nothing changes\n");
  const Ran moved = runVelo({"compare", two, other, "--json"});
  EXPECT_EQ(moved.status, 1) << moved.err;
  const auto document = nlohmann::ordered_json::parse(moved.out);
  EXPECT_EQ(document.at("same"), false);
  EXPECT_EQ(document.at("lists").at(0).at("sameVerdicts"), true);
  EXPECT_EQ(document.at("lists").at(0).at("logged").at("boxes").at(0).at("packets"), "tcp any any");
  ASSERT_EQ(document.at("bindings").size(), 2u);
  EXPECT_EQ(document.at("bindings").at(0).at("opened").at("boxes").at(0).at("packets"), "ip any any not tcp");
  EXPECT_EQ(document.at("bindings").at(0).at("opened").at("boxes").at(0).at("after").at(0), "no list");
  EXPECT_EQ(document.at("bindings").at(1).at("closed").at("boxes").at(0).at("before").at(0), "no list");
  EXPECT_EQ(runVelo({"compare", one, dir / "none.acl"}).status, 2);
  const std::string channel = dir / "channel.acl";
  writeFile(
      channel,
      "port-channel eth1 members a b\nip access-list A\n 10 permit tcp any any\ninterface eth1\n ip access-group A in\n");
  const Ran members = runVelo({"compare", two, channel});
  EXPECT_EQ(members.status, 1);
  EXPECT_EQ(members.out, "port-channel eth1 has other members: its lists filter other ports\n");
  // Whatever else is not looked at, that is a difference.
  const auto grown = [&](const std::string& path, int count) {
    std::string text = readFile(path) + "ipv6 access-list LONG\n";
    for (int i = 1; i <= count; ++i)
      text += fmt::format(" {} permit tcp host 2001:db8::{:x} host 2001:db8::{:x}\n", i, i, 7 * i);
    writeFile(path, text);
  };
  grown(two, 2000), grown(channel, 1000);
  const Ran cutOff = runVelo({"compare", "--proof-memory", "1", two, channel});
  EXPECT_THAT(cutOff.out, HasSubstr("not checked: ipv6 access-list LONG: it takes more than 1 MiB"));
  EXPECT_THAT(cutOff.out, HasSubstr("port-channel eth1 has other members"));
  EXPECT_EQ(cutOff.status, 1);
}

TEST(PacketCommands, WhatWasNotLookedAtIsNotCalledTheSame) {
  const auto old = modelOf("ip access-list A\n 10 permit ip any any\n");
  const auto now = modelOf("ip access-list A\n 10 permit ip any any\n 20 permit ip any any\n");
  const auto compared = [&](double seconds) {
    return Agent::packetComparison({{"", &old}}, {{"", &now}}, {.proof = {Kelp::Duration(seconds)}});
  };
  EXPECT_EQ(compared(3600).at("same"), true);
  const auto late = compared(0);
  EXPECT_EQ(late.at("same"), false);
  EXPECT_THAT(late.at("unchecked").at(0).get<std::string>(), HasSubstr("A: it takes more than"));
}

TEST(PacketCommands, ExamplesAreFramesThatAreJudgedSo) {
  const auto document =
      nlohmann::ordered_json::parse(runVelo({"compare", shadowedAcl, repairedAcl, "--json"}).out);
  size_t examined = 0;
  for (const char* part : {"opened", "closed", "counted"}) {
    for (const auto& box : document.at("lists").at(0).at(part).at("boxes")) {
      const auto explained = [&](const std::string& config) {
        const Ran ran = runVelo({"explain", "--config", config, "--port", "eth1", "--in",
                                 box.at("example").get<std::string>(), "--json"});
        EXPECT_EQ(ran.status, 0) << ran.err;
        return nlohmann::ordered_json::parse(ran.out).at("asked").at(0);
      };
      const auto was = explained(shadowedAcl), is = explained(repairedAcl);
      const std::string name = part;
      EXPECT_EQ(was.at("action") != is.at("action"), name != "counted") << box;
      EXPECT_TRUE(name != "opened" || is.at("action") == "permit") << box;
      EXPECT_TRUE(name != "closed" || is.at("action") == "deny") << box;
      bool told = false;
      for (const auto& rule : box.at("after"))
        told = told || (rule.is_object() && rule.at("sequence") == is.at("rule"));
      EXPECT_TRUE(told) << box;
      ++examined;
    }
  }
  EXPECT_GE(examined, 2u);
  for (const std::string what : {"permit", "deny"}) {
    const std::string found = runVelo({"find", what, "EDGE-IN", "--config", shadowedAcl}).out;
    const Ran ran = runVelo({"explain", "--config", shadowedAcl, "--port", "eth1", "--in",
                             found.substr(0, found.find('\n')), "--json"});
    ASSERT_EQ(ran.status, 0) << found << ran.err;
    EXPECT_EQ(nlohmann::json::parse(ran.out).at("verdict"), what == "permit" ? "pass" : "drop") << found;
  }
}

TEST(PacketCommands, FindLooksThroughBothPipelines) {
  const TempDir dir;
  const std::string config = dir / "a.acl";
  writeFile(
      config,
      "ip access-list IN\n 10 permit udp any any range 50 100\nip access-list CHANNEL\n 10 deny udp any any eq 60\n"
      " 20 permit ip any any\nip access-list OUT\n 10 permit ip any host 10.0.0.7 ttl gt 1\n"
      "mac access-list M\n 10 permit any any\nport-channel po1 members eth1 eth3\ninterface eth1\n ip access-group IN in\n"
      "interface po1\n ip access-group CHANNEL in\ninterface eth2\n ip access-group OUT out\n mac access-group M out\n");
  const auto find = [&](std::vector<std::string> words) {
    words.insert(words.begin(), "find");
    words.insert(words.end(), {"--config", config});
    return runVelo(words);
  };
  const Ran all = find({"permit", "--port", "eth1", "--to", "eth2", "--type", "ip", "--all"});
  EXPECT_EQ(all.status, 0) << all.err;
  EXPECT_EQ(all.out,
            "udp any host 10.0.0.7 range 50 100 ttl gt 1 not any any eq 60\n"
            "  for example: udp 0.0.0.0:1024 > 10.0.0.7:80\n");
  EXPECT_EQ(find({"permit", "--port", "eth1", "--to", "eth2", "where", "udp any any eq 60"}).status, 0)
      << "of IPv6 nothing is dropped";
  EXPECT_EQ(
      find({"permit", "--port", "eth1", "--to", "eth2", "--type", "ip", "where", "udp any any eq 60"}).status,
      1);
  EXPECT_EQ(find({"permit", "--port", "eth1", "--to", "eth2", "--type", "ip", "where",
                  "udp any host 10.0.0.7 eq 70 ttl eq 1"})
                .status,
            1)
      << "OUT drops it, which is shorter than CHANNEL";
  const Ran dropped =
      find({"deny", "--port", "eth1", "--to", "eth2", "where", "udp any host 10.0.0.7 eq 70 ttl gt 1"});
  EXPECT_EQ(dropped.status, 1) << "the MAC list drops nothing: " << dropped.out;
  const Ran slip = find({"deny", "--port", "eth8", "--to", "eth9"});
  EXPECT_EQ(slip.status, 1);
  EXPECT_THAT(slip.err,
              HasSubstr("eth8 is named nowhere in the configuration: taken for a port without lists"));
  EXPECT_THAT(slip.err, HasSubstr("eth9 is named nowhere"));
  EXPECT_EQ(find({"deny", "OUT", "where", "ip any host 10.0.0.7 ttl gt 1"}).status, 1);
  EXPECT_EQ(find({"match", "CHANNEL:20", "where", "udp any any eq 60"}).status, 1);
  const Ran odd = find({"permit", "CHANNEL", "--all", "where", "tcp any 0.0.0.1 255.255.255.254"});
  EXPECT_EQ(odd.out.substr(0, odd.out.find('\n')), "tcp any 0.0.0.1 255.255.255.254") << odd.out;
  const auto onWay = [&](const char* rule, const char* condition) {
    return find({"match", rule, "--port", "eth1", "--to", "eth2", "where", condition}).status;
  };
  EXPECT_EQ(onWay("IN:10", "udp any any eq 70"), 0);
  EXPECT_EQ(onWay("IN:10", "udp any any eq 60"), 1) << "CHANNEL drops them before";
  EXPECT_EQ(find({"match", "IN:10", "where", "udp any any eq 60"}).status, 0);
  EXPECT_EQ(onWay("OUT:10", "udp any host 10.0.0.7 eq 101 ttl gt 1"), 1) << "IN drops them before";
  EXPECT_EQ(onWay("OUT:10", "udp any host 10.0.0.7 eq 100 ttl gt 1"), 0);
  EXPECT_THAT(find({"match", "OUT:10", "--port", "eth1", "--to", "eth9"}).err,
              HasSubstr("ip access-list OUT is not on the way"));
  struct Row {
    std::vector<std::string> words;
    const char* wrong;
  };
  for (const Row& row : {
           Row{{"permit"}, "either a list or --port and --to says where"},
           Row{{"permit", "IN", "--port", "a", "--to", "b"}, "either a list or --port and --to says where"},
           Row{{"permit", "--port", "a"}, "either a list or --port and --to says where"},
           Row{{"permit", "INN"}, "there is no list INN (did you mean IN?)"},
           Row{{"match", "IN"}, "match needs LIST:N, a rule of a list"},
           Row{{"match", "IN:11"}, "ip access-list IN has no rule 11 (did you mean 10"},
           Row{{"allow", "IN"}, "found \"allow\", expected permit, deny or match"},
           Row{{"permit", "IN", "where"}, "found the end of the line, expected a condition"},
           Row{{"permit", "IN", "where", "udp any"}, "where: found the end of the line, expected"},
       }) {
    const Ran ran = find(row.words);
    EXPECT_EQ(ran.status, 2) << row.wrong;
    EXPECT_THAT(ran.err, HasSubstr(row.wrong));
    EXPECT_EQ(ran.out, "");
  }
}

TEST(PacketCommands, TellMistakesInADocumentWhenOneIsAskedFor) {
  const TempDir dir;
  const std::string wrong = dir / "wrong.acl", config = dir / "a.acl";
  writeFile(wrong, "ip access-list A\n 10 permit tcp any\n");
  writeFile(config, "ip access-list A\n 10 permit tcp any any\n");
  const std::string mistake = wrong + ":2:19: found the end of the line, expected ";
  struct Row {
    std::vector<std::string> words;
    std::string mistake;
  };
  for (const Row& row : {
           Row{{"find", "permit", "A", "--config", wrong}, mistake},
           Row{{"find", "permit", "B", "--config", config}, "find: there is no list B"},
           Row{{"find", "permit", "A", "--config", config, "where", "tcp any"}, "find: where: found the end"},
           Row{{"find", "allow", "A", "--config", config}, "find: found \"allow\""},
           Row{{"compare", wrong, config}, mistake},
           Row{{"compare", config, wrong}, mistake},
           Row{{"simplify", "A", wrong}, mistake},
           Row{{"simplify", "B", config}, "simplify: there is no list B"},
           Row{{"test", "--config", wrong, exampleFolder + "edge.expect"}, mistake},
       }) {
    std::vector<std::string> words = row.words;
    words.insert(words.begin() + 1, "--json");
    const Ran ran = runVelo(words);
    EXPECT_EQ(ran.status, 2) << row.mistake;
    EXPECT_EQ(ran.err, "");
    const auto document = nlohmann::ordered_json::parse(ran.out);
    EXPECT_THAT(document.at("mistakes").at(0).get<std::string>(), testing::StartsWith(row.mistake));
    EXPECT_EQ(document.size(), 2u) << "with the version nothing else";
  }
}

TEST(PacketCommands, TestTellsWhatIsNotSo) {
  const TempDir dir;
  const Ran demo = runVelo({"test", "--config", exampleFolder + "demo.acl", exampleFolder + "demo.expect"});
  EXPECT_EQ(demo.status, 0) << demo.out << demo.err;
  const std::string junit = dir / "junit.xml";
  const Ran failed =
      runVelo({"test", "--config", shadowedAcl, exampleFolder + "edge.expect", "--junit", junit, "--json"});
  EXPECT_EQ(failed.status, 1);
  const auto document = nlohmann::ordered_json::parse(failed.out);
  size_t counterexamples = 0, failures = 0;
  for (const auto& result : document.at("results")) {
    failures += result.at("holds") == false;
    const auto example = result.at("example").get<std::string>();
    if (example.empty()) continue;
    const Ran ran =
        runVelo({"explain", "--config", shadowedAcl, "--port", "eth1", "--in", example, "--json"});
    EXPECT_EQ(nlohmann::ordered_json::parse(ran.out).at("asked").at(0).at("action"), "permit");
    ++counterexamples;
  }
  EXPECT_GT(counterexamples, 0u);
  const std::string xml = readFile(junit);
  EXPECT_THAT(
      xml, HasSubstr(fmt::format("tests=\"{}\" failures=\"{}\"", document.at("results").size(), failures)));
  EXPECT_THAT(xml, HasSubstr("tcp 10.0.0.1:1024 &gt; 198.51.100.7:23"));
}

TEST(PacketCommands, TestRefusesWhatCouldNotFail) {
  const TempDir dir;
  struct Row {
    const char* text;
    const char* wrong;
  };
  for (const Row& row : {
           Row{"expect all deny on eth1 in: tcp any\n", "e.expect:1:36: found the end of the line"},
           Row{"expect none pass  on eth1 in:  tcp any any not host 10.0.0.1 anny\n",
               "e.expect:1:62: found \"anny\""},
           Row{"expect all deny on eth1 in: any any 0x08zz\n", "e.expect:1:37: found \"0x08zz\""},
           Row{"# nothing\n\n", "e.expect: nothing is expected in it"},
           Row{"expect deny on eth1: tcp any any\n", "e.expect:1:22: found \"tcp\", expected in: or out:"},
           Row{"exepct deny\n", "e.expect:1:1: found \"exepct\", expected expect"},
           Row{"\nexpect deny on eth1 in: tpc 10.0.0.1:1 > 10.0.0.2:2\n",
               "e.expect:2:25: found \"tpc\", expected a packet as velo explain takes it"},
           Row{"expect deny on eth1 in: tcp 10.0.0.1:1 > 10.0.0.2:2 by rule x\n",
               "expected by rule and a number, or by no rule, behind the packet"},
           Row{"expect all deny on eht1 in: tcp any any\n",
               "e.expect:1:20: eht1 is named nowhere in the configuration (did you mean eth1?)"},
           Row{"expect all deny on eth1 in: tcp any any eq 22 not tcp\n",
               "e.expect:1:29: no packet is like that"},
       }) {
    const std::string file = dir / "e.expect";
    writeFile(file, std::string_view(row.text));
    const Ran ran = runVelo({"test", "--config", repairedAcl, file});
    EXPECT_EQ(ran.status, 2) << row.text << ran.out;
    EXPECT_THAT(ran.err, HasSubstr(row.wrong)) << row.text;
    EXPECT_EQ(ran.out, "");
  }
}

TEST(PacketCommands, TestTakesPortsWithoutListsAndTellsWhatIsNotProven) {
  const TempDir dir;
  const std::string file = dir / "e.expect";
  writeFile(file, "expect none pass from eth1 to eth2: udp any 198.51.100.0/24 eq domain\n");
  EXPECT_EQ(runVelo({"test", "--config", repairedAcl, file}).status, 2);
  const Ran known = runVelo({"test", "--config", repairedAcl, "--ports", "eth2,eth3", file});
  EXPECT_EQ(known.status, 0) << known.out << known.err;
  EXPECT_THAT(known.out, HasSubstr("1 of 1 expectation is so\n"));
  // That something could not be looked at says neither that it is so nor that it is not.
  std::string list = "ipv6 access-list LONG\n";
  for (int i = 1; i <= 2000; ++i)
    list += fmt::format(" {} permit tcp host 2001:db8::{:x} host 2001:db8::{:x}\n", i, i, 7 * i);
  const std::string longOne = dir / "long.acl";
  writeFile(longOne, list + "interface eth1\n ipv6 access-group LONG in\n");
  writeFile(file, "expect none pass on eth1 in: udp 2001:db8::/32 any\n");
  const Ran unknown = runVelo({"test", "--config", longOne, file, "--proof-memory", "1"});
  EXPECT_EQ(unknown.status, 2) << unknown.out;
  EXPECT_THAT(unknown.err, HasSubstr("e.expect:1:30: not proven: ipv6 packets: it takes more than 1 MiB"));
  EXPECT_EQ(unknown.out, "");
}

TEST(PacketCommands, TestGoesOnBehindWhatItCannotLookAt) {
  const TempDir dir;
  const std::string file = dir / "e.expect", junit = dir / "junit.xml", config = dir / "a.acl";
  writeFile(
      config,
      "mac access-list M\n 10 deny any any arp\n 20 permit any any\ninterface eth1\n mac access-group M in\n");
  writeFile(file,
            "exepct deny\n"
            "expect all drop on eth1 in: any any 0x0806\n"
            "expect none drop on eth1 in: host 02:00:00:00:00:01 any 0x0800\n"
            "expect none drop on eth7 in: any any\n"
            "expect pass on eth1 in: 02000000000102000000000200100008aaaa03000000810000 by rule 20\n"
            "expect all drop on eth1 in: any any not 0x0806\n");
  writeFile(junit, "of another run");
  const Ran ran = runVelo({"test", "--config", config, file, "--junit", junit});
  EXPECT_EQ(ran.status, 2);
  EXPECT_THAT(ran.err, HasSubstr("e.expect:1:1: found \"exepct\", expected expect"));
  EXPECT_THAT(ran.err, HasSubstr("e.expect:4:21: eth7 is named nowhere"));
  EXPECT_THAT(ran.out, HasSubstr("3 of 4 expectations are so\n")) << ran.err;
  EXPECT_THAT(ran.out, HasSubstr("FAIL " + file + ":6: "));
  const std::string xml = readFile(junit);
  EXPECT_THAT(xml, HasSubstr("tests=\"6\" failures=\"1\" errors=\"2\""));
  EXPECT_THAT(xml, HasSubstr("<testcase classname=\"velo test\" name=\"" + file + ":1:1"));
  EXPECT_THAT(xml, HasSubstr("<error message=\"" + file + ":1:1: found &quot;exepct&quot;"));
  const auto document =
      nlohmann::ordered_json::parse(runVelo({"test", "--config", config, file, "--json"}).out);
  EXPECT_EQ(document.at("results").size(), 4u);
  EXPECT_EQ(document.at("mistakes").size(), 2u);
  EXPECT_EQ(runVelo({"test", "--config", dir / "none.acl", file, "--junit", junit}).status, 2);
  EXPECT_FALSE(std::filesystem::exists(junit)) << "no results of another run are left";
}

}  // namespace
