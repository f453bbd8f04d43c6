#include <agent/metrics/Ledger.h>
#include <gtest/gtest.h>

#include "../../support/Dice.h"

namespace {

using Agent::Ledger;
using Counted = Ledger::Counted;

Ledger::Series number(uint32_t sequence) { return {Acl::AclType::ip, "A", sequence, Acl::AclDirection::in}; }
Kiv::UniqueId rule(uint64_t id) { return Kiv::UniqueId(id); }

/// A round in which these rules, as number, id and packets, are all there are. Returns what is told.
std::vector<uint64_t> round(Ledger& ledger, const std::vector<std::array<uint64_t, 3>>& rules) {
  std::vector<uint64_t> told;
  for (const auto& [sequence, id, packets] : rules) {
    const auto now = ledger.told(number(static_cast<uint32_t>(sequence)), rule(id), {packets, 100 * packets});
    EXPECT_EQ(now.bytes, 100 * now.packets);
    told.push_back(now.packets);
  }
  while (ledger.tidy()) {
  }
  return told;
}

using Told = std::vector<uint64_t>;

TEST(Ledger, TellsWhatARuleHasCounted) {
  Ledger ledger(100);
  EXPECT_EQ(round(ledger, {{10, 1, 5}, {20, 2, 0}}), (Told{5, 0}));
  EXPECT_EQ(round(ledger, {{10, 1, 7}, {20, 2, 1}}), (Told{7, 1}));
}

TEST(Ledger, AnotherRuleOfANumberGoesOnFromWhereItWas) {
  Ledger ledger(100);
  round(ledger, {{10, 1, 1000}});
  EXPECT_EQ(round(ledger, {{10, 2, 3}}), (Told{1003}));
  EXPECT_EQ(round(ledger, {{10, 2, 4}}), (Told{1004}));
}

TEST(Ledger, RulesThatGetOtherNumbersMakeNoneJump) {
  Ledger ledger(100);
  round(ledger, {{10, 1, 1000}, {20, 2, 50}});
  // The first gets the number of the second, and that one a new number.
  EXPECT_EQ(round(ledger, {{20, 1, 1001}, {30, 2, 52}}), (Told{51, 2}));
  EXPECT_EQ(round(ledger, {{10, 1, 1002}, {20, 2, 52}}), (Told{1001, 51})) << "and back";
}

TEST(Ledger, ARuleThatWasOutOfForceForAWhileBringsNothingTwice) {
  Ledger ledger(100);
  round(ledger, {{10, 1, 1000}});
  round(ledger, {{10, 2, 7}});
  EXPECT_EQ(round(ledger, {{10, 1, 1001}}), (Told{1008}));
}

TEST(Ledger, ACounterThatBeginsAgainAddsWhatItHas) {
  Ledger ledger(100);
  round(ledger, {{10, 1, 1000}});
  EXPECT_EQ(round(ledger, {{10, 1, 3}}), (Told{1003}));
}

TEST(Ledger, ForgetsWhatNobodyAsksForWhenThereIsTooMuch) {
  constexpr size_t most = 600;
  Ledger ledger(most);
  for (uint64_t first = 0; first < 10000; first += 500) {
    std::vector<std::array<uint64_t, 3>> rules;
    for (uint64_t i = first; i < first + 500; ++i) rules.push_back({i, i + 1, i});
    round(ledger, rules);
    EXPECT_LE(ledger.size(), most);
    const Told again = round(ledger, rules);
    for (uint64_t i = 0; i < 500; ++i) ASSERT_EQ(again[i], first + i) << "those in use are kept";
  }
}

TEST(Ledger, NoSeriesEverFallsAndTheirSumIsWhatWasCounted) {
  TestSupport::Dice dice(7);
  Ledger ledger(1000);
  std::map<uint64_t, uint64_t> counts;    // of the rules that are there
  std::map<uint64_t, uint64_t> numbers;   // by id
  std::map<uint64_t, uint64_t> lastTold;  // by number
  uint64_t nextId = 1, all = 0;
  for (int step = 0; step < 300; ++step) {
    numbers.clear();
    if (dice.below(3) == 0) counts[nextId++] = 0;
    if (dice.below(7) == 0 && !counts.empty()) counts.erase(counts.begin());
    uint64_t place = dice.below(3);
    std::vector<std::array<uint64_t, 3>> rules;
    for (auto& [id, count] : counts) {
      const uint64_t more = dice.below(50);
      count += more;
      all += more;
      rules.push_back({place++, id, count});
    }
    const Told told = round(ledger, rules);
    for (size_t i = 0; i < rules.size(); ++i) {
      uint64_t& last = lastTold[rules[i][0]];
      ASSERT_GE(told[i], last);
      last = told[i];
    }
  }
  uint64_t sum = 0;
  for (const auto& [number, told] : lastTold) sum += told;
  EXPECT_EQ(sum, all);
  EXPECT_GT(all, 1000u);
}

}  // namespace
