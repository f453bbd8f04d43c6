#include "Support.h"

namespace Config {
namespace {

using Acl::AclType;

TEST(List, NamesOfTheThreeKindsAreApart) {
  const auto model = modelOf("ip access-list A\nipv6 access-list A\nmac access-list A\nip access-list a\n");
  ASSERT_EQ(model.lists.size(), 4u);
  for (const auto& [key, list] : model.lists) {
    EXPECT_EQ(list.type, key.first);
    EXPECT_EQ(list.name, key.second);
    EXPECT_TRUE(list.rules.empty()) << "a list may be empty";
    EXPECT_FALSE(list.standard);
  }
}

TEST(List, TakesAnyPrintableName) {
  for (const char* name : {"in", "no", "10", "any", "0x1", "!x", "a/b:c", "~", "Standard"}) {
    EXPECT_EQ(modelOf(std::string("ip access-list ") + name).lists.size(), 1u) << name;
  }
}

TEST(List, NumbersOrderTheRules) {
  const struct {
    const char* why;
    const char* rules;
    std::vector<uint32_t> numbers;
  } table[] = {
      {"the first number is 10", "permit ip any any\n", {10}},
      {"then ten more each", "permit ip any any\ndeny ip any any\npermit tcp any any\n", {10, 20, 30}},
      {"ten more than the highest, not than the last",
       "50 permit ip any any\n7 deny ip any any\ndeny ip any any\n",
       {7, 50, 60}},
      {"the lowest and the highest", "4294967295 permit ip any any\n1 deny ip any any\n", {1, 4294967295}},
      {"the last automatic number",
       "4294967285 permit ip any any\ndeny ip any any\n",
       {4294967285, 4294967295}},
      {"the highest that is left",
       "10 permit ip any any\n90 deny ip any any\nno 90\ndeny ip any any\n",
       {10, 20}},
      {"an emptied list begins at 10", "90 deny ip any any\nno 90\ndeny ip any any\n", {10}},
      {"a number given again replaces",
       "10 permit ip any any\n20 permit ip any any\n10 deny ip any any\n",
       {10, 20}},
  };
  for (const auto& row : table) {
    EXPECT_EQ(numbersOf(listOf(std::string("ip access-list A\n") + row.rules)), row.numbers) << row.why;
  }
}

TEST(List, ANumberGivenAgainReplacesTheWholeRule) {
  const auto list = listOf(
      "ip access-list A\nremark old\n10 permit tcp any any eq 80 log\n10 deny udp any any mirror session "
      "W\n");
  const auto& rule = std::get<Acl::IpRule>(list.rules.at(10));
  EXPECT_EQ(rule.action, Acl::Action::deny);
  EXPECT_EQ(rule.filter.protocol, 17);
  EXPECT_TRUE(rule.filter.destinationPort.isAny());
  EXPECT_FALSE(rule.log);
  EXPECT_EQ(rule.mirrorSession, "W");
  EXPECT_EQ(rule.remark, "") << "the remark went with the rule it was in front of";
}

TEST(List, NamedAgainIsContinued) {
  const char* texts[] = {
      "ip access-list A\npermit ip any any\nip access-list B\nip access-list A\ndeny ip any any\n",
      "ip access-list extended A\npermit ip any any\nip access-list A\ndeny ip any any\n",
      "ip access-list standard A\npermit any\nip access-list standard A\ndeny any\n",
  };
  for (const auto* text : texts) EXPECT_EQ(numbersOf(listOf(text)), (std::vector<uint32_t>{10, 20})) << text;
}

TEST(List, ExtendedIsTheSameThing) {
  EXPECT_EQ(modelOf("ip access-list extended A\n10 permit tcp any any\n"),
            modelOf("ip access-list A\n10 permit tcp any any\n"));
  EXPECT_TRUE(listOf("ip access-list standard A\n").standard);
}

TEST(Remark, IsKeptWithTheNextRule) {
  const struct {
    const char* why;
    const char* text;
    const char* remark;  ///< of the only rule
    std::vector<std::string> pending;
  } table[] = {
      {"in front of a rule", "remark partners first\n10 permit ip any any\n", "partners first", {}},
      {"several are lines", "remark one\nremark two\n10 permit ip any any\n", "one\ntwo", {}},
      {"blanks inside stay, those around it go",
       "  remark   a  b\t c  \n10 permit ip any any\n",
       "a  b\t c",
       {}},
      {"words of statements are text", "remark ! no permit 10\n10 permit ip any any\n", "! no permit 10", {}},
      {"any language", "remark gr\xc3\xbc\xc3\x9f\n10 permit ip any any\n", "gr\xc3\xbc\xc3\x9f", {}},
      {"behind the last rule it waits", "10 permit ip any any\nremark later\n", "", {"later"}},
      {"it waits while another list is open",
       "remark early\nmac access-list M\npermit any any\nip access-list A\n10 permit ip any any\n",
       "early",
       {}},
      {"taking back drops all that wait",
       "remark a\nremark b\nno remark\nremark c\n10 permit ip any any\n",
       "c",
       {}},
      {"taking back one line leaves the others",
       "remark a\nremark b\nno remark a\n10 permit ip any any\n",
       "b",
       {}},
      {"a rule's remark is not taken back", "remark a\n10 permit ip any any\nno remark\n", "a", {}},
      {"taking a rule back leaves what waits",
       "10 permit ip any any\n20 permit ip any any\nremark a\nno 20\n",
       "",
       {"a"}},
  };
  for (const auto& row : table) {
    const auto list = listOf(std::string("ip access-list A\n") + row.text);
    ASSERT_EQ(list.rules.size(), 1u) << row.why;
    EXPECT_EQ(common(list.rules.at(10)).remark.view(), row.remark) << row.why;
    EXPECT_EQ(list.pendingRemarks, row.pending) << row.why;
  }
}

TEST(No, TakesBackRules) {
  const struct {
    const char* why;
    const char* text;
    std::vector<uint32_t> left;
  } table[] = {
      {"by number", "no 20\n", {10, 30}},
      {"what is not there is no mistake", "no 25\n", {10, 20, 30}},
      {"by what it says: all that say the same", "no permit tcp any any\n", {20}},
      {"in another spelling", "no permit 6 0.0.0.0/0 any\n", {20}},
      {"by number and what it says", "no 30 permit tcp any any\n", {10, 20}},
      {"not when that number says something else", "no 20 permit tcp any any\n", {10, 20, 30}},
      {"the action counts", "no deny tcp any any\n", {10, 20, 30}},
      {"log counts", "no permit tcp any any log\n", {10, 20, 30}},
  };
  for (const auto& row : table) {
    const std::string start =
        "ip access-list A\npermit tcp any any\npermit udp any any\npermit tcp any any\n";
    EXPECT_EQ(numbersOf(listOf(start + row.text)), row.left) << row.why;
  }
}

TEST(No, TakesBackLists) {
  const std::string start =
      "ip access-list A\n10 permit ip any any\nmac access-list A\nip access-list standard S\n";
  const struct {
    const char* why;
    const char* text;
    size_t left;
  } table[] = {
      {"one of its kind", "no ip access-list A\n", 2},
      {"also as extended", "no ip access-list extended A\n", 2},
      {"a standard one", "no ip access-list standard S\n", 2},
      {"a standard one without the word", "no ip access-list S\n", 2},
      {"another kind has other names", "no ipv6 access-list A\n", 3},
      {"what is not there is no mistake", "no ip access-list B\n", 3},
      {"names are case-sensitive", "no ip access-list a\n", 3},
  };
  for (const auto& row : table) EXPECT_EQ(modelOf(start + row.text).lists.size(), row.left) << row.why;

  const auto again =
      listOf(start + "ip access-list A\nremark x\nno ip access-list A\nip access-list A\ndeny ip any any\n");
  EXPECT_EQ(numbersOf(again), std::vector<uint32_t>{10}) << "a list that comes again begins anew";
  EXPECT_EQ(common(again.rules.at(10)).remark, "") << "its waiting remarks went with it";
  EXPECT_FALSE(listOf("ip access-list standard A\nno ip access-list A\nip access-list A\n").standard)
      << "a list that was taken back may come again in the other form";
}

TEST(Sources, AreReadInOrderAsOneText) {
  const auto result =
      read({{"a", "ip access-list A\n10 permit ip any any\n20 deny ip any any\nremark late\n"},
            {"b", "ip access-list A\nno 20\npermit tcp any any\n"},
            {"c", "interface eth1\nip access-group A in\n"}});
  ASSERT_TRUE(result.model);
  const auto& list = result.model->lists.at({AclType::ip, "A"});
  EXPECT_EQ(numbersOf(list), (std::vector<uint32_t>{10, 20}));
  EXPECT_EQ(common(list.rules.at(20)).text, "permit tcp any any");
  EXPECT_EQ(common(list.rules.at(20)).remark, "late") << "a remark waits across texts, too";
}

TEST(Sources, AreOneTextSoThatALaterOneGoesOnInTheOpenList) {
  const auto result = read({{"a", "ip access-list A\n"}, {"b", "permit ip any any\n"}});
  ASSERT_TRUE(result.model);
  EXPECT_EQ(numbersOf(result.model->lists.at({AclType::ip, "A"})), (std::vector<uint32_t>{10}));
}

TEST(Sources, AllMistakesOfAllTextsAreReportedAtOnceAndNothingIsApplied) {
  const auto result =
      read({{"a", "ip access-list A\nx\n10 permit ip any any\n"}, {"b", "y\ninterface e\nz\n"}});
  EXPECT_FALSE(result.model);
  ASSERT_EQ(result.mistakes.size(), 3u);
  EXPECT_EQ(result.mistakes[0].file, "a");
  EXPECT_EQ(result.mistakes[0].line, 2);
  EXPECT_EQ(result.mistakes[1].file, "b");
  EXPECT_EQ(result.mistakes[1].line, 1);
  EXPECT_EQ(result.mistakes[2].line, 3);
}

TEST(Sources, ContinueAModel) {
  const auto start = modelOf("ip access-list A\npermit ip any any\nport-channel po1 members eth1\n");
  EXPECT_EQ(modelOf("", start), start) << "an empty text says nothing";
  EXPECT_EQ(numbersOf(modelOf("ip access-list A\ndeny ip any any\n", start).lists.at({AclType::ip, "A"})),
            (std::vector<uint32_t>{10, 20}));
  EXPECT_EQ(readText("port-channel po2 members eth1\n", start).mistakes.size(), 1u)
      << "members of the model's port-channels are taken";
  EXPECT_EQ(read({}).model, Model()) << "no text is an empty configuration";
}

}  // namespace
}  // namespace Config
