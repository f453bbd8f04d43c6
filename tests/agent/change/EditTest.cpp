#include <agent/change/Edit.h>
#include <agent/change/Warnings.h>
#include <agent/config/Writer.h>
#include <gtest/gtest.h>

#include "../support/ModelOf.h"

namespace {

using Agent::edited;
using Agent::Sources;
using TestSupport::modelOf;

constexpr const char* beforeEdit =
    "ip access-list A\n"
    "   remark web\n"
    "   10 permit tcp any any eq www\n"
    "   20 permit udp any any eq domain\n"
    "   30 deny ip any any\n"
    "   remark behind all\n";

struct EditRow {
  const char* why;
  const char* commands;
  const char* after;  ///< without the first line and the last one
};

TEST(Edit, CarriesOutItsCommandsInTheirOrder) {
  for (const EditRow& row : {
           EditRow{"no command", "",
                   "   remark web\n   10 permit tcp any any eq www\n   20 permit udp any any eq domain\n"
                   "   30 deny ip any any\n"},
           EditRow{"adds a rule", "15 permit icmp any any",
                   "   remark web\n   10 permit tcp any any eq www\n   15 permit icmp any any\n"
                   "   20 permit udp any any eq domain\n   30 deny ip any any\n"},
           EditRow{"adds one at the end", "permit icmp any any",
                   "   remark web\n   10 permit tcp any any eq www\n   20 permit udp any any eq domain\n"
                   "   30 deny ip any any\n   40 permit icmp any any\n"},
           EditRow{"replaces one, which keeps its remark", "10 permit tcp any any eq 443",
                   "   remark web\n   10 permit tcp any any eq 443\n   20 permit udp any any eq domain\n"
                   "   30 deny ip any any\n"},
           EditRow{"unless there is another one", "remark new\n10 permit tcp any any eq 443",
                   "   remark new\n   10 permit tcp any any eq 443\n   20 permit udp any any eq domain\n"
                   "   30 deny ip any any\n"},
           EditRow{"takes one away by its number", "no 20",
                   "   remark web\n   10 permit tcp any any eq www\n   30 deny ip any any\n"},
           EditRow{"and by what it says", "no deny ip any any",
                   "   remark web\n   10 permit tcp any any eq www\n   20 permit udp any any eq domain\n"},
           EditRow{"a remark need not be there", "no remark x\nno 20 remark\nno 999 remark",
                   "   remark web\n   10 permit tcp any any eq www\n   20 permit udp any any eq domain\n"
                   "   30 deny ip any any\n"},
           EditRow{"takes a remark away", "no 10 remark",
                   "   10 permit tcp any any eq www\n   20 permit udp any any eq domain\n"
                   "   30 deny ip any any\n"},
           EditRow{"gives one", "20 remark names",
                   "   remark web\n   10 permit tcp any any eq www\n   remark names\n"
                   "   20 permit udp any any eq domain\n   30 deny ip any any\n"},
           EditRow{"moves one to the front", "move 30 before 10",
                   "   5 deny ip any any\n   remark web\n   10 permit tcp any any eq www\n"
                   "   20 permit udp any any eq domain\n"},
           EditRow{"between two", "move 30 before 20",
                   "   remark web\n   10 permit tcp any any eq www\n   15 deny ip any any\n"
                   "   20 permit udp any any eq domain\n"},
           EditRow{"behind another one", "move 10 after 20",
                   "   20 permit udp any any eq domain\n   remark web\n   25 permit tcp any any eq www\n"
                   "   30 deny ip any any\n"},
           EditRow{"to the end", "move 10 after 30",
                   "   20 permit udp any any eq domain\n   30 deny ip any any\n   remark web\n"
                   "   40 permit tcp any any eq www\n"},
           EditRow{"where it is already", "move 10 before 20\nmove 30 after 20",
                   "   remark web\n   10 permit tcp any any eq www\n   20 permit udp any any eq domain\n"
                   "   30 deny ip any any\n"},
           EditRow{"whatever its number", "resequence 7\nmove 7 before 17",
                   "   remark web\n   7 permit tcp any any eq www\n   17 permit udp any any eq domain\n"
                   "   27 deny ip any any\n"},
           EditRow{"gives new numbers", "resequence",
                   "   remark web\n   10 permit tcp any any eq www\n   20 permit udp any any eq domain\n"
                   "   30 deny ip any any\n"},
           EditRow{"from a number on", "resequence 100",
                   "   remark web\n   100 permit tcp any any eq www\n   110 permit udp any any eq domain\n"
                   "   120 deny ip any any\n"},
           EditRow{"in steps", "resequence 1 1",
                   "   remark web\n   1 permit tcp any any eq www\n   2 permit udp any any eq domain\n"
                   "   3 deny ip any any\n"},
           EditRow{"up to the last number", "resequence 4294967293 1",
                   "   remark web\n   4294967293 permit tcp any any eq www\n"
                   "   4294967294 permit udp any any eq domain\n   4294967295 deny ip any any\n"},
           EditRow{"one command on what the one before has made", "resequence 1 1\nresequence 20 20\nno 40",
                   "   remark web\n   20 permit tcp any any eq www\n   60 deny ip any any\n"},
       }) {
    const auto result = edited({modelOf(beforeEdit), {}}, {"A", {}, row.commands});
    ASSERT_TRUE(result.model) << row.why << ": " << result.mistakes.front();
    EXPECT_EQ(textOf(*result.model), fmt::format("ip access-list A\n{}   remark behind all\n", row.after))
        << row.why;
  }
}

TEST(Edit, ChangesNothingElse) {
  const std::string text =
      "object-group network G\n   host 192.0.2.1\n"
      "ip access-list standard 7\n   20 permit any\n"
      "ip access-list A\n   10 permit ip object-group G any\n"
      "mac access-list A\n   10 permit any any\n"
      "interface eth1\n   ip access-group A in\n";
  const auto of = [&text](const Agent::Edit& edit) {
    const auto result = edited({modelOf(text), {}}, edit);
    return result.model ? textOf(*result.model) : result.mistakes.front();
  };
  const auto with = [&text](const std::string& old, const std::string& now) {
    std::string changed = text;
    return changed.replace(changed.find(old), old.size(), now);
  };
  EXPECT_EQ(of({"A", Acl::AclType::mac, "20 deny any any"}),
            with("   10 permit any any\n", "   10 permit any any\n   20 deny any any\n"));
  EXPECT_EQ(of({"A", Acl::AclType::ip, "resequence 5"}),
            with("   10 permit ip object", "   5 permit ip object"));
  EXPECT_EQ(of({"7", {}, "30 deny host 192.0.2.1"}),
            with("   20 permit any\n", "   20 permit any\n   30 deny host 192.0.2.1\n"));
}

TEST(Edit, KeepsNoticesOfWhatIsStillThere) {
  const Sources sources{modelOf("ip access-list A\n 10 permit ip any any\n 15 permit ip 192.0.2.1/24 any\n"
                                " 20 deny ip 192.0.2.2/25 any\n 30 deny ip 192.0.2.2/26 any\n"),
                        {}};
  struct Row {
    const char* why;
    const char* commands;
    std::vector<std::string> places;
  };
  for (const Row& row : {
           Row{"nothing is done", "", {"t:3:15", "t:4:13", "t:5:13"}},
           Row{"a rule goes", "no 15", {"t:4:13", "t:5:13"}},
           Row{"one is replaced", "20 deny ip any any", {"t:3:15", "t:5:13"}},
           Row{"by another odd one", "20 deny ip 192.0.2.3/25 any", {"t:3:15", "edit:1:12", "t:5:13"}},
           Row{"one comes and goes", "40 deny ip 192.0.2.3/25 any\nno 40", {"t:3:15", "t:4:13", "t:5:13"}},
           Row{"they get other numbers", "resequence 1 1", {"t:3:15", "t:4:13", "t:5:13"}},
           Row{"twins cannot be told from each other",
               "no 15\n40 permit ip 192.0.2.2/25 any",
               {":0:0", "t:5:13", ":0:0"}},
           Row{"nothing odd is left", "no 15\nno 20\nno 30", {}},
       }) {
    const auto result = edited(sources, {"A", {}, row.commands});
    ASSERT_TRUE(result.model) << row.why << ": " << result.mistakes.front();
    std::vector<std::string> places;
    for (const auto& [code, place, text, example, by] : result.model->notices.warnings)
      places.push_back(fmt::format("{}:{}:{}", place.file, place.line, place.column));
    EXPECT_EQ(places, row.places) << row.why;
  }
}

TEST(Edit, LeavesThingsWhereTheyStand) {
  const std::string text =
      "port-channel po1 members gone\n"
      "interface eth1\n ip access-group MISSING in\n ip access-group A out\n shutdown\n"
      "object-group network NOBODY\n"
      "ip access-list A\n 10 permit tcp any any mirror session M1\n 20 permit ip any object-group NOBODY\n"
      " 30 permit udp any any\n"
      "ip access-list UNBOUND\nmirror session M2 destination nowhere\n";
  // In the order in which they are told.
  const std::vector<std::string> before = {"t:3:18 list-undefined",
                                           "t:11:16 list-unbound",
                                           "t:8:2 session-undefined",
                                           "t:12:16 session-without-port",
                                           "t:1:14 member-without-port",
                                           "t:9:2 empty-group",
                                           "t:5:2 shutdown"};
  struct Row {
    const char* why;
    const char* commands;
    const char *session, *group;  ///< the places of rules with them
  };
  for (const Row& row : {
           Row{"nothing is done", "", "t:8:2", "t:9:2"},
           Row{"another rule goes", "no 30", "t:8:2", "t:9:2"},
           Row{"rules get other numbers", "resequence 20 1\nresequence 7 13", "t:8:2", "t:9:2"},
           Row{"rules change places", "move 10 after 20\nresequence", "t:8:2", "t:9:2"},
           Row{"one takes the number of another one",
               "no 10\n40 permit tcp any any mirror session M1\nresequence", "edit:2:1", "t:9:2"},
           Row{"one comes from the edit", "no 30\n10 permit tcp any any mirror session M1", "edit:2:1",
               "t:9:2"},
           Row{"and goes to another place", "20 permit tcp any object-group NOBODY\nmove 20 before 10",
               "t:8:2", "edit:1:1"},
       }) {
    Sources sources{modelOf(text), {}};
    // What an earlier edit has left is in the way of nothing.
    for (const std::string& commands : {std::string("resequence"), std::string(row.commands)}) {
      auto result = edited(sources, {"A", {}, commands});
      ASSERT_TRUE(result.model) << row.why << ": " << result.mistakes.front();
      sources.commandLine = std::move(*result.model);
    }
    auto expected = before;
    expected[2] = std::string(row.session) + " session-undefined";
    expected[5] = std::string(row.group) + " empty-group";
    std::vector<std::string> places;
    const Agent::PortNames ports = {"eth1"};
    for (const auto& warning : Agent::lastingWarnings(sources.layers(), &ports)) {
      const Agent::Place& place = warning.place;
      places.push_back(
          fmt::format("{}:{}:{} {}", place.file, place.line, place.column, warning.code.kind().code));
    }
    EXPECT_EQ(places, expected) << row.why;
    EXPECT_LE(sources.commandLine.notices.texts.size(), 2u) << row.why;
  }
  const auto result = edited({modelOf(text), {}}, {"UNBOUND", {}, "permit ip any any"});
  ASSERT_TRUE(result.model);
  const auto& notices = result.model->notices;
  EXPECT_EQ(notices.placeOf(notices.lists, {Acl::AclType::ip, "UNBOUND"}), (Agent::Place{"t", 11, 16}));
}

TEST(Edit, TellsOfANumberThatIsGivenTwice) {
  struct Row {
    const char* why;
    const char* commands;
    const char* odd;
  };
  for (const Row& row : {
           Row{"the first is lost", "15 permit tcp any any\nno 20\n15 deny udp any any",
               "edit:3:1 rule 15 is given a second time: the first, permit tcp any any, is lost"},
           Row{"of a rule that was there", "10 permit tcp any any\n10 deny udp any any",
               "edit:2:1 rule 10 is given a second time: the first, permit tcp any any, is lost"},
           Row{"once", "15 permit tcp any any\n16 permit tcp any any\n10 deny ip any any", ""},
           Row{"it was taken away between", "15 permit tcp any any\nno 15\n15 deny udp any any", ""},
           Row{"it has another number by then", "15 permit tcp any any\nresequence 15\n15 deny udp any any",
               ""},
           Row{"it was moved", "15 permit tcp any any\nmove 15 before 10\n15 deny udp any any", ""},
           Row{"a remark is no rule", "15 permit tcp any any\n15 remark one", ""},
       }) {
    const auto result = edited({modelOf(beforeEdit), {}}, {"A", {}, row.commands});
    ASSERT_TRUE(result.model) << row.why << result.mistakes.front();
    std::string odd;
    for (const auto& warning : result.model->notices.warnings) {
      EXPECT_EQ(warning.code.kind().code, "rule-twice");
      odd += fmt::format("{}:{}:{} {}", warning.place.file, warning.place.line, warning.place.column,
                         warning.text);
    }
    EXPECT_EQ(odd, row.odd) << row.why;
  }
}

TEST(Edit, TellsWhatIsWrongWithItsPlace) {
  struct Row {
    const char* why;
    Agent::Edit edit;
    const char* mistake;
  };
  const Sources sources{modelOf(beforeEdit),
                        {{"edge.acl", modelOf("ip access-list B\nip access-list EDGE\n")}}};
  for (const Row& row : {
           Row{"a mistake of the language",
               {"A", {}, "no 20\n10 permit tpc any any"},
               "edit:2:11: found \"tpc\", expected ip, tcp, udp, icmp, sctp, another protocol name or 0 to "
               "255 (did you mean tcp?)"},
           Row{"a statement that leads out of the list",
               {"A", {}, "interface eth1"},
               "edit:1:1: found \"interface\", expected a rule, remark, no, move or resequence"},
           Row{"a slip",
               {"A", {}, "mvoe 10 after 20"},
               "edit:1:1: found \"mvoe\", expected a rule, remark, no, move or resequence (did you mean "
               "move?)"},
           Row{"behind no",
               {"A", {}, "no premit ip any any"},
               "edit:1:4: found \"premit\", expected a rule, its number or remark (did you mean permit?)"},
           Row{"of a place",
               {"A", {}, "move 10 befor 20"},
               "edit:1:9: found \"befor\", expected before or after (did you mean before?)"},
           Row{"also behind no",
               {"A", {}, "no ip access-list A"},
               "edit:1:4: found \"ip\", expected a rule, its number or remark"},
           Row{"an empty command",
               {"A", {}, "no 10\n\nno 20"},
               "edit:2:1: found the end of the line, expected a command"},
           Row{"no such rule",
               {"A", {}, "move 15 before 10"},
               "edit:1:6: found \"15\", expected the number of a rule of the list"},
           Row{"none to take away",
               {"A", {}, "no 999"},
               "edit:1:4: found \"999\", expected the number of a rule of the list"},
           Row{"it was taken away before",
               {"A", {}, "no 10\nno 10"},
               "edit:2:4: found \"10\", expected the number of a rule of the list"},
           Row{"none that says so",
               {"A", {}, "no permit icmp any any"},
               "edit:1:4: found \"permit\", expected a rule of the list"},
           Row{"none of the number that says so",
               {"A", {}, "no 10 deny ip any any"},
               "edit:1:4: found \"10\", expected a rule of the list"},
           Row{"nowhere to go",
               {"A", {}, "move 10 under 20"},
               "edit:1:9: found \"under\", expected before or after"},
           Row{"before itself",
               {"A", {}, "move 10 before 10"},
               "edit:1:16: found \"10\", expected another rule than the one that moves"},
           Row{"no number is free",
               {"A", {}, "resequence 1 1\nmove 3 before 2"},
               "edit:2:15: found \"2\", expected a place with a free number: none is left before 2 "
               "(resequence "
               "makes room)"},
           Row{"nor at the end",
               {"A", {}, "resequence 4294967293 1\nmove 4294967293 after 4294967295"},
               "edit:2:23: found \"4294967295\", expected a place with a free number: none is left after "
               "4294967295 (resequence makes room)"},
           Row{"numbers beyond the last",
               {"A", {}, "resequence 4294967294 1"},
               "edit:1:12: found \"4294967294\", expected numbers that leave the last of 3 rules at "
               "4294967295 "
               "or below"},
           Row{"a word too many",
               {"A", {}, "resequence 1 2 3"},
               "edit:1:16: found \"3\", expected the end of the line"},
           Row{"no such list", {"AA", {}, "no 10"}, "there is no list AA"},
           Row{"a list of the directory",
               {"B", {}, "no 10"},
               "list B is of the file edge.acl of the configuration directory: it is changed there"},
           Row{"a list of another type", {"A", Acl::AclType::mac, "no 10"}, "there is no list A"},
       }) {
    const auto result = edited(sources, row.edit);
    EXPECT_FALSE(result.model) << row.why;
    ASSERT_FALSE(result.mistakes.empty()) << row.why;
    EXPECT_EQ(result.mistakes.front(), row.mistake) << row.why;
  }
  const Sources both{modelOf("ip access-list A\nmac access-list A\n"), {}};
  EXPECT_EQ(edited(both, {"A", {}, "no 10"}).mistakes.front(),
            "lists of several types have the name A: say which is meant (--type ip)");
}

TEST(Edit, HasABoundedNumberOfCommands) {
  std::string commands;
  for (size_t i = 0; i <= Agent::Edit::mostCommands; ++i) commands += "resequence\n";
  EXPECT_EQ(edited({modelOf(beforeEdit), {}}, {"A", {}, commands}).mistakes.front(),
            "an edit has at most 1000 commands");
}

}  // namespace
