#include <agent/change/Difference.h>
#include <agent/change/PreparedChange.h>
#include <gtest/gtest.h>

#include "../support/ModelOf.h"

#include <string>

namespace {

using TestSupport::modelOf;

nlohmann::ordered_json differenceOf(const char* before, const char* after) {
  std::string line;
  for (const auto& piece : Agent::difference(modelOf(before), modelOf(after)).json) line += piece;
  return nlohmann::ordered_json::parse(line);
}

TEST(Difference, ShowsRemarks) {
  const auto text = [](const char* before, const char* after) {
    return Agent::differenceText(differenceOf(before, after), false);
  };
  const std::string head = "~ ip access-list A\n  in ip access-list A:\n";
  const char* plain = "ip access-list A\n 10 permit ip any any\n";
  const char* web = "ip access-list A\n remark web\n remark two\n 10 permit ip any any\n";
  EXPECT_EQ(text(plain, web), head + "~   10 permit ip any any  (remark: web|two)\n");
  EXPECT_EQ(text(web, plain), head + "~   10 permit ip any any  (without its remark: web|two)\n");
  EXPECT_EQ(text(web, "ip access-list A\n remark new\n 10 permit ip any any\n"),
            head + "~   10 permit ip any any  (remark: new, was: web|two)\n");
  EXPECT_EQ(text(web, "ip access-list A\n remark new\n 20 permit ip any any\n"),
            head + "~   20 permit ip any any  (was: 10)  (remark: new, was: web|two)\n");
  EXPECT_EQ(text(plain, "ip access-list A\n remark new\n 10 deny ip any any\n"),
            head + "~   10 deny ip any any  (was: permit ip any any)  (remark: new)\n");
  EXPECT_EQ(text("ip access-list A\n", web), head + "+   10 permit ip any any  (remark: web|two)\n");
  EXPECT_EQ(text(web, "ip access-list A\n"), head + "-   10 permit ip any any  (remark: web|two)\n");
  EXPECT_EQ(text("ip access-list A\n 10 permit ip any any\n remark end\n",
                 "ip access-list A\n 10 permit ip any any\n remark last\n"),
            head + "-   remark end  (behind the last rule)\n+   remark last  (behind the last rule)\n");
}

TEST(Difference, SaysWhatOfOtherSourcesComesIntoForce) {
  const std::string one =
      "ip access-list A\n permit tcp any any\ninterface eth1\n ip access-group A in\nport-channel po1 members eth2\n"
      "mirror session S destination eth3\n";
  const std::string other =
      "ip access-list A\n deny ip any any\ninterface eth1\n ip access-group B in\nport-channel po1 members eth4\n"
      "mirror session S destination eth4\n";
  struct Row {
    const char* why;
    std::string source, now, text, summary;
  };
  for (
      const Row& row : {
          Row{"the command line's goes", "", "",
              "- ip access-list A (1 rule)\n- interface eth1: ip access-group A in\n- port-channel po1: eth2\n"
              "- mirror session S: eth3\n+ ip access-list A of f comes into force\n"
              "+ interface eth1: ip access-group B in of f comes into force\n+ port-channel po1 of f comes into force\n"
              "+ mirror session S of f comes into force\n",
              "1 list removed, 1 binding removed, 1 port-channel removed, 1 mirror session removed, 1 list of other "
              "sources comes into force, 1 binding of other sources comes into force, 1 port-channel of other sources "
              "comes into force, 1 mirror session of other sources comes into force"},
          Row{"the file's goes, and was not in force", "f", "",
              "- ip access-list A (1 rule)\n- interface eth1: ip access-group B in\n- port-channel po1: eth4\n"
              "- mirror session S: eth4\n",
              "1 list removed, 1 binding removed, 1 port-channel removed, 1 mirror session removed"},
          Row{"a third one comes below", "g", "ip access-list A\n", "+ ip access-list A (0 rules)\n",
              "+1 list"},
          Row{"one comes above", "e", "ip access-list C\n", "+ ip access-list C (0 rules)\n", "+1 list"},
      }) {
    SCOPED_TRACE(row.why);
    Agent::Sources sources;
    sources.commandLine = modelOf(one);
    sources.inputs["f"] = modelOf(other);
    const Config::Model now = modelOf(row.now);
    const Agent::Warnings none;
    Agent::PreparedChange prepared;
    const auto found = prepared.prepare({sources, none, nullptr}, row.source, &now,
                                        {"apply", "somebody", {.openings = true}});
    EXPECT_EQ(found.summary, row.summary);
    const auto shown = nlohmann::ordered_json::parse(*found.line());
    EXPECT_EQ(Agent::differenceText(shown, false), row.text);
  }
  Agent::Sources sources;
  sources.inputs["a"] = modelOf("ip access-list X\n");
  sources.inputs["b"] = modelOf(other);
  sources.inputs["c"] = modelOf(one);
  sources.inputs["d"] = modelOf(other);
  const Agent::Warnings none;
  Agent::PreparedChange prepared;
  const auto found =
      prepared.prepare({sources, none, nullptr}, "b", nullptr, {"gone", "the directory", {.openings = true}});
  EXPECT_NE(Agent::differenceText(nlohmann::ordered_json::parse(*found.line()), false)
                .find("+ ip access-list A of c comes into force\n"),
            std::string::npos);
  const Config::Model above = modelOf(other);
  const auto over =
      prepared.prepare({sources, none, nullptr}, "a", &above, {"file", "the directory", {.openings = true}});
  EXPECT_EQ(over.summary.find("into force"), std::string::npos)
      << "what changes itself is told as that: " << over.summary;
}

TEST(Difference, SaysWhatChangesAndNothingElse) {
  struct Row {
    const char* why;
    const char* before;
    const char* after;
    const char* text;
  };
  for (
      const Row& row : {
          Row{"the same text", "ip access-list A\n permit ip any any\n",
              "ip access-list A\n permit ip any any\n", "nothing changes\n"},
          Row{"a rule more", "ip access-list A\n 10 permit ip any any\n",
              "ip access-list A\n 5 deny udp any any\n 10 permit ip any any\n",
              "~ ip access-list A\n  in ip access-list A:\n+   5 deny udp any any\n"},
          Row{"a rule less", "mac access-list A\n 10 permit any any\n 20 deny any any\n",
              "mac access-list A\n 20 deny any any\n",
              "~ mac access-list A\n  in mac access-list A:\n-   10 permit any any\n"},
          Row{"another rule of the same number gets a new id", "ip access-list A\n 10 permit tcp any any\n",
              "ip access-list A\n 10 permit udp any any\n",
              "~ ip access-list A\n  in ip access-list A:\n~   10 permit udp any any  (was: permit tcp any "
              "any)\n"},
          Row{"another spelling is the same rule, and is told apart in the document",
              "ip access-list A\n 10 permit tcp any any eq 80\n",
              "ip access-list A\n 10 permit 6 any any eq www\n",
              "~ ip access-list A\n  in ip access-list A:\n~   10 permit 6 any any eq www  (was: permit tcp "
              "any any "
              "eq 80)\n"},
          Row{"a rule that only has another number",
              "ip access-list A\n 10 permit tcp any any\n 20 permit udp any any\n",
              "ip access-list A\n 10 deny sctp any any\n 20 permit tcp any any\n 30 permit udp any any\n",
              "~ ip access-list A\n  in ip access-list A:\n+   10 deny sctp any any\n~   20 permit tcp any "
              "any  (was: 10)\n~   30 permit udp any any  (was: 20)\n"},
          Row{"a rule that has another number and other words",
              "ip access-list A\n 10 permit tcp any any eq 80\n",
              "ip access-list A\n 20 permit tcp any any eq www\n",
              "~ ip access-list A\n  in ip access-list A:\n~   20 permit tcp any any eq www  (was: 10 permit "
              "tcp any any eq 80)\n"},
          Row{"a rule in the place of one that moves",
              "ip access-list A\n 10 permit tcp any any\n 20 permit udp any any\n",
              "ip access-list A\n 5 permit udp any any\n 10 permit tcp any any\n 20 deny ip any any\n",
              "~ ip access-list A\n  in ip access-list A:\n+   20 deny ip any any\n~   5 permit udp any any  "
              "(was: 20)\n"},
          Row{"a group differs, and so do the rules that name it",
              "object-group network G\n host 192.0.2.1\nip access-list A\n 10 permit ip object-group G "
              "any\n 20 "
              "deny ip any any\n",
              "object-group network G\n host 192.0.2.2\nip access-list A\n 10 permit ip object-group G "
              "any\n 20 "
              "deny ip any any\n",
              "~ ip access-list A\n  in ip access-list A:\n~   10 permit ip object-group G any  (its "
              "object-groups differ)\n~ object-group network G: - host 192.0.2.1, + host 192.0.2.2\n"},
          Row{"a group that says the same in other words",
              "object-group network G\n host 192.0.2.1\nip access-list A\n 10 permit ip object-group G "
              "any\n",
              "object-group network G\n 192.0.2.1/32\nip access-list A\n 10 permit ip object-group G any\n",
              "~ object-group network G: - host 192.0.2.1, + 192.0.2.1/32\n"},
          Row{"groups that come, go, and have their members in another order",
              "object-group network G\n host 192.0.2.1\nobject-group network H\n host 192.0.2.1\n host "
              "192.0.2.2\n",
              "object-group network H\n host 192.0.2.2\n host 192.0.2.1\nobject-group service S\n tcp\n",
              "- object-group network G (1 member)\n+ object-group service S (1 member)\n~ object-group "
              "network H: its members in another order\n"},
          Row{"a group of another kind", "object-group network G\n host 192.0.2.1\n",
              "object-group service G\n tcp\n", "~ object-group service G: - host 192.0.2.1, + tcp\n"},
          Row{"what is kept with interfaces",
              "interface a\n description old\ninterface b\n shutdown\ninterface c\n description x\n "
              "shutdown\n",
              "interface a\n description new\ninterface c\n shutdown\ninterface d\n description y\n "
              "shutdown\n",
              "- interface b: shutdown\n+ interface d: description y, shutdown\n~ interface a: description "
              "new  "
              "(was: description old)\n~ interface c: shutdown  (was: description x, shutdown)\n"},
          Row{"lists that come and go", "ip access-list A\n permit ip any any\n", "ipv6 access-list A\n",
              "- ip access-list A (1 rule)\n+ ipv6 access-list A (0 rules)\n"},
          Row{"bindings", "interface eth1\n ip access-group A in\n ip access-group A out\n",
              "interface eth1\n ip access-group B in\n mac access-group C in\n",
              "- interface eth1: ip access-group A out\n+ interface eth1: mac access-group C in\n~ "
              "interface eth1: ip "
              "access-group B in  (was: A)\n"},
          Row{"port-channels and sessions", "port-channel po1 members a b\nmirror session S destination x\n",
              "port-channel po1 members a c\nport-channel po2 members d\n",
              "+ port-channel po2: d\n~ port-channel po1: a c  (was: a b)\n- mirror session S: x\n"},
      }) {
    const auto document = differenceOf(row.before, row.after);
    EXPECT_EQ(Agent::differenceText(document, false), row.text) << row.why;
    EXPECT_EQ(Agent::isNoDifference(document), std::string(row.text) == "nothing changes\n") << row.why;
  }
}

TEST(Difference, TellsARespelledRuleFromAChangedOne) {
  const auto document = differenceOf("ip access-list A\n 10 permit tcp any any\n 20 deny ip any any\n",
                                     "ip access-list A\n 10 permit 6 any any\n 20 deny ip any any log\n");
  const auto& rules = document.at("lists").at("changed").at(0).at("rules");
  ASSERT_EQ(rules.at("respelled").size(), 1u);
  EXPECT_EQ(rules.at("respelled").at(0).at("sequence"), 10);
  ASSERT_EQ(rules.at("changed").size(), 1u);
  EXPECT_EQ(rules.at("changed").at(0).at("sequence"), 20);
}

TEST(Difference, TellsARenumberedRuleFromBoth) {
  const auto document = differenceOf("ip access-list A\n 10 permit tcp any any\n",
                                     "ip access-list A\n 20 permit tcp any any\n");
  const auto& rules = document.at("lists").at("changed").at(0).at("rules");
  for (const char* other : {"added", "removed", "changed", "respelled"})
    EXPECT_TRUE(rules.at(other).empty()) << other;
  ASSERT_EQ(rules.at("renumbered").size(), 1u);
  EXPECT_EQ(rules.at("renumbered").at(0).at("sequence"), 20);
  EXPECT_EQ(rules.at("renumbered").at(0).at("was"), 10);
}

}  // namespace
