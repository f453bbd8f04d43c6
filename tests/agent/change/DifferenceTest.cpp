#include <agent/change/Difference.h>
#include <gtest/gtest.h>

#include "../support/ModelOf.h"

namespace {

using TestSupport::modelOf;

nlohmann::ordered_json differenceOf(const char* before, const char* after) {
  std::string line;
  for (const auto& piece : Agent::difference(modelOf(before), modelOf(after))) line += piece;
  return nlohmann::ordered_json::parse(line);
}

TEST(Difference, SaysWhatChangesAndNothingElse) {
  struct Row {
    const char* why;
    const char* before;
    const char* after;
    const char* text;
  };
  for (const Row& row : {
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
           Row{"a group differs, and so do the rules that name it",
               "object-group network G\n host 192.0.2.1\nip access-list A\n 10 permit ip object-group G "
               "any\n 20 "
               "deny ip any any\n",
               "object-group network G\n host 192.0.2.2\nip access-list A\n 10 permit ip object-group G "
               "any\n 20 "
               "deny ip any any\n",
               "~ ip access-list A\n  in ip access-list A:\n~   10 permit ip object-group G any  (its "
               "object-groups differ)\n"},
           Row{"a group that says the same in other words",
               "object-group network G\n host 192.0.2.1\nip access-list A\n 10 permit ip object-group G "
               "any\n",
               "object-group network G\n 192.0.2.1/32\nip access-list A\n 10 permit ip object-group G any\n",
               "nothing changes\n"},
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

}  // namespace
