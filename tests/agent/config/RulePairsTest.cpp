#include <agent/config/RulePairs.h>
#include <fmt/format.h>
#include <gtest/gtest.h>

#include "../../support/Dice.h"
#include "../support/ModelOf.h"

#include <algorithm>
#include <map>
#include <sstream>

namespace {

using namespace Config;

/// Rules as `10A 20B`: numbers, each with a letter for what the rule says.
std::vector<NumberedRule> rulesOf(const std::string& text) {
  std::vector<NumberedRule> rules;
  std::istringstream words(text);
  uint32_t number = 0;
  for (char letter = 0; words >> number >> letter;) rules.push_back({number, static_cast<uint32_t>(letter)});
  return rules;
}

/// As `10>20` for one that stays, `-10` for one that goes, `+10` for one that comes.
std::string pairsText(const RulePairs& pairs) {
  std::string text;
  const auto add = [&text](const std::string& word) { text += (text.empty() ? "" : " ") + word; };
  for (const auto& pair : pairs.stay) add(fmt::format("{}>{}", pair.before, pair.after));
  for (const uint32_t number : pairs.gone) add(fmt::format("-{}", number));
  for (const uint32_t number : pairs.come) add(fmt::format("+{}", number));
  return text;
}

TEST(RulePairs, ARuleStaysByWhatItSays) {
  struct Row {
    const char* why;
    const char* before;
    const char* after;
    const char* pairs;
  };
  for (const Row& row : {
           Row{"nothing changes", "10A 20B", "10A 20B", "10>10 20>20"},
           Row{"all come", "", "10A 20B", "+10 +20"},
           Row{"all go", "10A 20B", "", "-10 -20"},
           Row{"others take their numbers", "10A 20B", "10C 20D", "-10 -20 +10 +20"},
           Row{"one comes in front, the others get the next numbers", "10A 20B", "10C 20A 30B",
               "10>20 20>30 +10"},
           Row{"one goes, the others move up", "10A 20B 30C", "10B 20C", "20>10 30>20 -10"},
           Row{"two change places", "10A 20B", "10B 20A", "20>10 10>20"},
           Row{"the last moves to the front", "10A 20B 30C", "5C 10A 20B", "30>5 10>10 20>20"},
           Row{"rules that say the same stay in their order", "10A 20A 30B", "20A 30A 40B",
               "10>20 20>30 30>40"},
           Row{"of three that say the same those stay that have their numbers", "10A 20A 30A", "20A 30A",
               "20>20 30>30 -10"},
           Row{"and of those the others in their order", "10A 20A", "20A 25A 30A", "20>20 10>25 +30"},
       })
    EXPECT_EQ(pairsText(pairRules(rulesOf(row.before), rulesOf(row.after))), row.pairs) << row.why;
}

TEST(RulePairs, WhatARuleSaysIsEverythingButNumberRemarkAndSpelling) {
  struct Row {
    const char* why;
    const char* before;
    const char* after;
    bool stays;
  };
  for (const Row& row : {
           Row{"the same words", "ip access-list L\n 10 permit ip any any\n",
               "ip access-list L\n 20 permit ip any any\n", true},
           Row{"a remark", "ip access-list L\n remark a\n 10 permit ip any any\n",
               "ip access-list L\n remark b\n 20 permit ip any any\n", true},
           Row{"other words", "ip access-list L\n 10 permit tcp host 192.0.2.1 any eq 80\n",
               "ip access-list L\n 20 permit 6 192.0.2.1/32 any eq www\n", true},
           Row{"the action", "ip access-list L\n 10 permit ip any any\n",
               "ip access-list L\n 20 deny ip any any\n", false},
           Row{"log", "ip access-list L\n 10 permit ip any any\n",
               "ip access-list L\n 20 permit ip any any log\n", false},
           Row{"the session", "ip access-list L\n 10 permit ip any any mirror session A\n",
               "ip access-list L\n 20 permit ip any any mirror session B\n", false},
           Row{"a port", "ip access-list L\n 10 permit tcp any any eq 80\n",
               "ip access-list L\n 20 permit tcp any any eq 81\n", false},
           Row{"a field far behind", "ipv6 access-list L\n 10 permit ipv6 any any hop-limit eq 1\n",
               "ipv6 access-list L\n 20 permit ipv6 any any hop-limit eq 2\n", false},
           Row{"an address of a MAC rule", "mac access-list L\n 10 permit host 02:00:00:00:00:01 any\n",
               "mac access-list L\n 20 permit host 02:00:00:00:00:02 any\n", false},
           Row{"a MAC rule in other words", "mac access-list L\n 10 permit host 02:00:00:00:00:01 any ip\n",
               "mac access-list L\n 20 permit host 0200.0000.0001 any 0x0800\n", true},
       }) {
    const auto before = TestSupport::modelOf(row.before);
    const auto after = TestSupport::modelOf(row.after);
    const auto pairs = pairRules(before.lists.begin()->second, after.lists.begin()->second);
    EXPECT_EQ(pairsText(pairs), row.stays ? "10>20" : "-10 +20") << row.why;
  }
}

TEST(RulePairs, GroupsAreWhatTheyStandFor) {
  const auto of = [&](const char* members, uint32_t number) {
    return TestSupport::modelOf(
        fmt::format("object-group network G\n {}\nip access-list L\n {} permit ip object-group G any\n",
                    members, number));
  };
  const auto pairs = [&](const char* members) {
    return pairsText(
        pairRules(of("host 192.0.2.1", 10).lists.begin()->second, of(members, 20).lists.begin()->second));
  };
  EXPECT_EQ(pairs("192.0.2.1/32"), "10>20");
  EXPECT_EQ(pairs("host 192.0.2.2"), "-10 +20");
}

/// The same by the rule of the header, one thing that rules say after the other.
RulePairs reference(const std::vector<NumberedRule>& before, const std::vector<NumberedRule>& after) {
  std::map<uint32_t, std::pair<std::vector<uint32_t>, std::vector<uint32_t>>> bySaying;
  for (const auto& rule : before) bySaying[rule.says].first.push_back(rule.number);
  for (const auto& rule : after) bySaying[rule.says].second.push_back(rule.number);
  std::map<uint32_t, uint32_t> from;
  RulePairs pairs;
  for (auto& [says, numbers] : bySaying) {
    auto& [old, now] = numbers;
    const bool inOrder = old.size() == now.size();
    for (size_t i = 0; i < now.size() && !inOrder;) {
      const auto same = std::find(old.begin(), old.end(), now[i]);
      if (same == old.end()) {
        ++i;
        continue;
      }
      from[now[i]] = now[i];
      old.erase(same);
      now.erase(now.begin() + static_cast<std::ptrdiff_t>(i));
    }
    while (!old.empty() && !now.empty()) {
      from[now.front()] = old.front();
      old.erase(old.begin());
      now.erase(now.begin());
    }
    pairs.gone.insert(pairs.gone.end(), old.begin(), old.end());
    pairs.come.insert(pairs.come.end(), now.begin(), now.end());
  }
  for (const auto& [is, was] : from) pairs.stay.push_back({was, is});
  std::sort(pairs.gone.begin(), pairs.gone.end());
  std::sort(pairs.come.begin(), pairs.come.end());
  return pairs;
}

TEST(RulePairs, AreThoseOfTheReference) {
  TestSupport::Dice dice(11);
  const auto someRules = [&dice] {
    std::map<uint32_t, uint32_t> rules;
    const uint64_t letters = 1 + dice.below(8);
    for (uint64_t i = dice.below(12); i > 0; --i)
      rules[static_cast<uint32_t>(1 + dice.below(20))] = static_cast<uint32_t>(dice.below(letters));
    return rules;
  };
  const auto numbered = [](const std::map<uint32_t, uint32_t>& rules) {
    std::vector<NumberedRule> all;
    for (const auto& [number, says] : rules) all.push_back({number, says});
    return all;
  };
  const auto listOf = [](const std::map<uint32_t, uint32_t>& rules) {
    std::string text = "ip access-list L\n";
    for (const auto& [number, says] : rules)
      text += fmt::format(" {} permit tcp any any eq {}\n", number, says + 1);
    return TestSupport::modelOf(text).lists.begin()->second;
  };
  for (int round = 0; round < 5000; ++round) {
    const auto before = someRules(), after = someRules();
    const std::string wanted = pairsText(reference(numbered(before), numbered(after)));
    ASSERT_EQ(pairsText(pairRules(numbered(before), numbered(after))), wanted);
    if (round % 10 == 0) {
      ASSERT_EQ(pairsText(pairRules(listOf(before), listOf(after))), wanted);
    }
  }
}

}  // namespace
