#include <agent/proof/Sayings.h>
#include <gtest/gtest.h>

#include "../support/ModelOf.h"

namespace {

using TestSupport::modelOf;

/// A line for each saying: "code rule: text | example".
std::string warned(const std::string& text, const Proof::Limits& limits = {Kelp::Duration(3600)},
                   Proof::Say say = Proof::Say::oddities) {
  const auto model = modelOf(text);
  const auto found = Proof::sayingsOf(model.lists.begin()->second, limits, say);
  std::string all;
  for (const auto& each : found.all)
    all += fmt::format("{} {}: {} | {}\n", each.code.kind().code, each.sequence, each.text, each.example);
  // Who is named in the words stands beside them in numbers.
  for (const auto& each : found.all) {
    for (const uint32_t rule : each.by) {
      EXPECT_TRUE(each.by.size() > 5 || each.text.find(fmt::format("{}", rule)) != std::string::npos)
          << each.text;
    }
  }
  return all + (found.cutOff.empty() ? "" : "not " + found.cutOff + "\n");
}

TEST(Sayings, SayWhatIsOddInWordsWithAnExample) {
  struct Row {
    const char* rules;
    const char* expected;
  };
  for (
      const Row& row : {
          Row{"10 permit tcp 10.0.0.0/9 any\n20 permit tcp 10.128.0.0/9 any\n30 deny tcp 10.0.0.0/8 any eq "
              "22\n",
              "rule-never-matches 30: rule 30 denies, but rules 10 and 20 permit all of it | "
              "tcp 10.0.0.0:1024 > 0.0.0.0:22 syn\n"},
          Row{"10 permit tcp any any\n30 deny tcp any any eq 22\n",
              "rule-never-matches 30: rule 30 denies, but rule 10 permits all of it | "
              "tcp 0.0.0.0:1024 > 0.0.0.0:22 syn\n"},
          Row{"10 permit tcp any any\n20 permit tcp any any eq 22\n30 permit udp any any\n",
              "rule-never-matches 20: rule 20 never matches: rule 10 permits all of it | "
              "tcp 0.0.0.0:1024 > 0.0.0.0:22 syn\n"},
          Row{"10 deny udp any any\n20 permit udp any any eq 53\n30 permit tcp any any\n",
              "rule-never-matches 20: rule 20 permits, but rule 10 denies all of it | "
              "udp 0.0.0.0:1024 > 0.0.0.0:53\n"},
          Row{"10 deny ip 10.0.0.0/9 any\n20 permit ip 10.128.0.0/9 any\n30 permit ip 10.0.0.0/8 any\n",
              "rule-changes-nothing 20: rule 20 changes no verdict: without it its packets are permitted, "
              "too | "
              "tcp 10.128.0.0:1024 > 0.0.0.0:80 syn\n"
              "rule-never-matches 30: rule 30 never matches: rules 10 and 20 decide about all of it, not "
              "all as it "
              "would | tcp 10.0.0.0:1024 > 0.0.0.0:80 syn\n"},
          Row{"10 permit tcp any lt 0 any\n20 permit udp any any\n",
              "rule-never-matches 10: rule 10 never matches: no packet is as it asks | \n"},
          Row{"10 permit tcp any any\n20 permit tcp any any established\n",
              "established-before-all-tcp 20: rule 20 asks for established, but rule 10 already permits all "
              "such TCP "
              "| tcp 0.0.0.0:1024 > 0.0.0.0:80 ack\n"},
          Row{"10 permit tcp any any ack\n15 permit tcp any any rst\n20 permit tcp any any established\n",
              "rule-changes-nothing 10: rule 10 changes no verdict: without it its packets are permitted, "
              "too | "
              "tcp 0.0.0.0:1024 > 0.0.0.0:80 ack\n"
              "rule-changes-nothing 15: rule 15 changes no verdict: without it its packets are permitted, "
              "too | "
              "tcp 0.0.0.0:1024 > 0.0.0.0:80 fin rst urg\n"
              "rule-never-matches 20: rule 20 never matches: rules 10 and 15 permit all of it | "
              "tcp 0.0.0.0:1024 > 0.0.0.0:80 ack\n"},
          Row{"10 deny tcp any any eq 22\n20 permit tcp any any\n30 permit tcp any any established\n",
              "fragments-slip-by 10: rule 10 denies by port, but rule 20 permits later fragments of such "
              "packets | tcp 0.0.0.0 > 0.0.0.0 later fragment\n"
              "rule-never-matches 30: rule 30 never matches: rules 10 and 20 decide about all of it, not all as it would | "
              "tcp 0.0.0.0:1024 > 0.0.0.0:80 ack\n"},
          Row{"10 deny tcp any any eq 23\n20 permit ip any any\n",
              "fragments-slip-by 10: rule 10 denies by port, but rule 20 permits later fragments of such "
              "packets | "
              "tcp 0.0.0.0 > 0.0.0.0 later fragment\n"},
          Row{"10 deny tcp any any eq 23\n15 deny tcp any any fragments\n20 permit ip any any\n", ""},
          Row{"10 deny tcp any any eq 23\n15 deny udp any any eq 69\n20 permit ip any any\n",
              "fragments-slip-by 10: rule 10 denies by port, but rule 20 permits later fragments of such "
              "packets | tcp 0.0.0.0 > 0.0.0.0 later fragment\n"
              "fragments-slip-by 15: rule 15 denies by port, but rule 20 permits later fragments of such "
              "packets | udp 0.0.0.0 > 0.0.0.0 later fragment\n"},
          // What is permitted whole does not slip by.
          Row{"10 permit tcp host 10.0.0.1 any\n20 deny tcp any any eq 23\n30 permit tcp any any lt 99\n",
              ""},
          Row{"10 permit tcp host 10.0.0.1 any fragments\n20 deny tcp any any eq 23\n30 permit tcp any any lt 99\n",
              "fragments-slip-by 20: rule 20 denies by port, but rule 10 permits later fragments of such "
              "packets | tcp 10.0.0.1 > 0.0.0.0 later fragment\n"},
          Row{"10 permit udp any any\n20 permit ip any any\n",
              "rule-changes-nothing 10: rule 10 changes no verdict: without it its packets are permitted, "
              "too | "
              "udp 0.0.0.0:1024 > 0.0.0.0:80\n"
              "list-passes-all 0: passes everything | tcp 0.0.0.0:1024 > 0.0.0.0:80 syn\n"},
          Row{"10 deny udp any any eq 53\n20 deny ip any any\n",
              "rule-changes-nothing 10: rule 10 changes no verdict: without it its packets are dropped, too "
              "| "
              "udp 0.0.0.0:1024 > 0.0.0.0:53\n"
              "list-passes-nothing 0: passes nothing | tcp 0.0.0.0:1024 > 0.0.0.0:80 syn\n"},
          Row{"10 deny ip any any\n",
              "list-passes-nothing 0: passes nothing | tcp 0.0.0.0:1024 > 0.0.0.0:80 syn\n"},
          Row{"10 permit tcp any any\n20 deny ip any any\n", ""},
      })
    EXPECT_EQ(warned(std::string("ip access-list A\n") + row.rules), row.expected) << row.rules;
}

TEST(Sayings, SayOnRequestWhatIsLeftOfRules) {
  const std::string list =
      "ip access-list A\n10 deny tcp any any eq 22\n15 deny tcp any any fragments\n20 permit tcp any any\n"
      "30 deny udp any any eq 53 99\n";
  EXPECT_EQ(warned(list), "");
  EXPECT_EQ(
      warned(list, {Kelp::Duration(3600)}, Proof::Say::partsToo),
      "rule-partly-taken 20: rule 20 gets a part of what it asks for: left is tcp any any neq 22; rules 10 and "
      "15 take tcp any any eq 22, or tcp any any fragments | tcp 0.0.0.0:1024 > 0.0.0.0:22 syn\n");
  // What it does not get at all is told otherwise.
  EXPECT_EQ(
      warned("ip access-list A\n10 permit tcp any any\n20 permit tcp any any eq 22\n30 permit udp any any\n",
             {Kelp::Duration(3600)}, Proof::Say::partsToo),
      "rule-never-matches 20: rule 20 never matches: rule 10 permits all of it | "
      "tcp 0.0.0.0:1024 > 0.0.0.0:22 syn\n");
}

// Nobody reads what very many rules leave, and to find it out takes long.
TEST(Sayings, SayOfARuleBehindVeryManyWhatTheFirstTakesAndAnExampleOfWhatIsLeft) {
  const auto denied = [](int count) {
    std::string rules = "ip access-list A\n";
    for (int i = 0; i < count; ++i)
      rules += fmt::format("{} deny tcp host 10.0.0.{} any eq 22\n", 10 * (i + 1), i);
    return rules;
  };
  const auto told = [](const std::string& rules) {
    return warned(rules, {Kelp::Duration(3600)}, Proof::Say::partsToo);
  };
  EXPECT_EQ(told(denied(80) + "2000 permit tcp 10.0.0.0/24 any eq 22\n"),
            "rule-partly-taken 2000: rule 2000 gets a part of what it asks for: left is for example tcp "
            "10.0.0.80:1024 > 0.0.0.0:22 syn; rule 10 takes tcp host 10.0.0.0 any eq 22, and 79 more rules "
            "before it may take some | tcp 10.0.0.0:1024 > 0.0.0.0:22 syn\n");
  EXPECT_EQ(
      told(denied(128) + "2000 permit tcp 10.0.0.0/25 any eq 22\n"),
      "rule-never-matches 2000: rule 2000 permits, but rules 10, 20, 30, 40 and 124 more deny all of it | "
      "tcp 10.0.0.0:1024 > 0.0.0.0:22 syn\n"
      "list-passes-nothing 0: passes nothing | tcp 0.0.0.0:1024 > 0.0.0.0:80 syn\n");
}

TEST(Sayings, SayOfAThousandRulesOnlyThatTheyGetAPart) {
  std::string rules = "ip access-list A\n 1 deny tcp any any eq 22\n2 deny tcp any any fragments\n";
  for (int i = 0; i < 1001; ++i)
    rules += fmt::format("{} permit tcp host 10.0.{}.{} any\n", 10 + i, i / 250, i % 250);
  const std::string found = warned(rules, {Kelp::Duration(3600)}, Proof::Say::partsToo);
  EXPECT_EQ(std::count(found.begin(), found.end(), '\n'), 1001) << "and that there are more";
  EXPECT_TRUE(
      found.ends_with("not of which further rules earlier ones take a part (they are more than 1000)\n"));
}

TEST(Sayings, NameTheFirstOfManyRules) {
  std::string rules = "ip access-list A\n";
  for (int i = 0; i < 8; ++i) rules += fmt::format("{} permit ip 10.{}.0.0/11 any\n", 10 * (i + 1), 32 * i);
  EXPECT_EQ(warned(rules + "90 deny ip 10.0.0.0/8 any\n100 permit ip host 192.0.2.1 any\n"),
            "rule-never-matches 90: rule 90 denies, but rules 10, 20, 30, 40 and 4 more permit all of it | "
            "tcp 10.0.0.0:1024 > 0.0.0.0:80 syn\n");
}

TEST(Sayings, HaveTheRulesThatTheyComeFromInNumbers) {
  struct Row {
    const char* rules;
    std::vector<std::vector<uint32_t>> by;  // of each saying
  };
  for (const Row& row : {
           Row{"10 permit tcp 10.0.0.0/9 any\n20 permit tcp 10.128.0.0/9 any\n30 deny tcp 10.0.0.0/8 any\n",
               {{10, 20}}},
           Row{"10 permit tcp any any\n20 permit tcp any any established\n", {{10}}},
           Row{"10 permit tcp any lt 0 any\n20 permit udp any any\n", {{}}},
           Row{"10 deny tcp any any eq 23\n20 permit ip any any\n", {{20}}},
           Row{"10 permit udp any any\n20 permit ip any any\n", {{}, {}}},
       }) {
    const auto model = modelOf(std::string("ip access-list A\n") + row.rules);
    std::vector<std::vector<uint32_t>> by;
    for (const auto& each : Proof::sayingsOf(model.lists.begin()->second, {Kelp::Duration(3600)}).all)
      by.push_back(each.by);
    EXPECT_EQ(by, row.by) << row.rules;
  }
}

TEST(Sayings, SayWhatALimitLeftOut) {
  EXPECT_EQ(warned("ip access-list A\n10 permit tcp any any\n"), "") << "what follows begins anew";
  std::string rules = "ipv6 access-list A\n";
  for (int i = 1; i <= 2000; ++i)
    rules += fmt::format("{} permit tcp host 2001:db8::{:x} host 2001:db8::{:x}\n", i, i, 7 * i);
  EXPECT_EQ(warned(rules, {Kelp::Duration(3600), size_t{1} << 20}),
            "not 2000 of 2000 rules (it takes more than 1 MiB of memory)\n");
  EXPECT_EQ(warned("ip access-list A\n10 permit ip any any\n", {Kelp::Duration(3600), 100}),
            "not 1 of 1 rules (it takes more than 0 MiB of memory)\n");
}

/// A second later whenever it is asked.
class AskedClock final : public Kiv::Clock {
 public:
  Kelp::Duration now() const override { return Kelp::Duration(asked_++); }

 private:
  mutable double asked_ = 0;
};

TEST(Sayings, ALimitWhileTheyArePutInWordsLosesNoneThatWasFound) {
  const auto model = modelOf(
      "ip access-list A\n10 permit tcp any any\n20 permit tcp any any established\n30 deny tcp any any eq 22\n"
      "40 permit udp any any\n50 permit udp any any eq 53\n");
  const auto& list = model.lists.begin()->second;
  size_t inWords = 0;
  for (double seconds = 1;; ++seconds) {
    const auto said = Proof::sayingsOf(list, {Kelp::Duration(seconds)}, Proof::Say::oddities, AskedClock());
    if (said.cutOff.starts_with("whether rules ask")) {
      ++inWords;
      EXPECT_EQ(said.all.size(), 3u) << "within " << seconds << " seconds";
    }
    if (!said.cutOff.empty()) continue;
    EXPECT_EQ(said.all.size(), 3u);
    EXPECT_EQ(said.all.front().code.kind().code, "established-before-all-tcp");
    break;
  }
  EXPECT_GT(inWords, 0u);
}

}  // namespace
