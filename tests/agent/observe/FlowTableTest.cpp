#include <agent/observe/FlowTable.h>
#include <agent/observe/LineBudget.h>
#include <gtest/gtest.h>

#include <deque>
#include <map>
#include <random>
#include <tuple>

namespace {

using Agent::FlowKey;
using Agent::FlowTable;
using Agent::LineBudget;
using Kelp::Duration;

FlowKey flowOfNumber(uint32_t number) {
  FlowKey key;
  key.source[1] = number;
  return key;
}

TEST(FlowTableTest, EachPartOfAKeyTellsFlowsApart) {
  std::vector<FlowKey> keys(12);
  keys[1].source[0] = 1;
  keys[2].source[1] = 1;
  keys[3].destination[0] = 1;
  keys[4].destination[1] = 1;
  keys[5].intf = Nimnet::IntfId("eth1");
  keys[6].rule = 1;
  keys[7].first = 1;
  keys[8].second = 1;
  keys[9].type = Acl::AclType::ipv6;
  keys[10].kind = FlowKey::Kind::laterFragment;
  keys[11].protocol = 1;
  // Also where all have one hash, so that only the keys are left to tell them apart.
  for (const bool alike : {false, true}) {
    FlowTable table(16, 1);
    const auto hashOf = [&](const FlowKey& key) { return alike ? 0 : table.hashOf(key); };
    for (const FlowKey& key : keys) {
      EXPECT_EQ(table.find(key, hashOf(key)), nullptr);
      table.add(key, hashOf(key), Duration());
    }
    for (const FlowKey& key : keys) EXPECT_TRUE(table.find(key, hashOf(key))->key == key);
  }
}

TEST(FlowTableTest, HasRoomForAsManyAsItWasMadeFor) {
  constexpr uint32_t most = 65536;
  FlowTable table(most, 1);
  for (uint32_t i = 0; i < most; ++i) {
    EXPECT_FALSE(table.full());
    table.add(flowOfNumber(i), table.hashOf(flowOfNumber(i)), Duration());
  }
  EXPECT_TRUE(table.full());
  EXPECT_DEATH(table.add(flowOfNumber(most), table.hashOf(flowOfNumber(most)), Duration()),
               "not filled beyond its size");
  table.remove(*table.oldest());
  table.add(flowOfNumber(most), table.hashOf(flowOfNumber(most)), Duration());
  EXPECT_EQ(table.find(flowOfNumber(0), table.hashOf(flowOfNumber(0))), nullptr)
      << "the first of them was the oldest";
  for (uint32_t i = 1; i <= most; ++i)
    ASSERT_NE(table.find(flowOfNumber(i), table.hashOf(flowOfNumber(i))), nullptr) << i;
}

/// The same in plain containers.
struct PlainFlows {
  std::map<uint32_t, uint64_t> further;
  std::deque<uint32_t> order;  // the oldest first

  void forget(uint32_t number) {
    further.erase(number);
    std::erase(order, number);
  }
};

TEST(FlowTableTest, DoesWhatPlainContainersDo) {
  for (uint32_t seed = 0; seed < 20; ++seed) {
    std::mt19937 random(seed);
    const uint32_t most = 1 + random() % 40;
    const uint32_t range = most + 1 + random() % 20;
    FlowTable table(most, seed);
    PlainFlows model;
    for (int step = 0; step < 3000; ++step) {
      const uint32_t number = random() % range;
      // Few different hashes: their places in the table collide all the time.
      const uint64_t hash = number % 7 == 0 ? number : number % 5 + (uint64_t{1} << 33);
      FlowTable::Flow* found = table.find(flowOfNumber(number), hash);
      ASSERT_EQ(found != nullptr, model.further.contains(number)) << seed << " " << step;
      if (!found) {
        if (table.full()) {
          model.forget(static_cast<uint32_t>(table.oldest()->key.source[1]));
          table.remove(*table.oldest());
        }
        table.add(flowOfNumber(number), hash, Duration(step));
        model.further[number] = 0;
        model.order.push_back(number);
      } else if (const auto what = random() % 4; what == 0) {
        table.remove(*found);
        model.forget(number);
      } else if (what == 1) {
        table.toldIs(*found, Duration(step));
        std::erase(model.order, number);
        model.order.push_back(number);
      } else {
        ++found->further;
        ++model.further[number];
      }
      ASSERT_EQ(table.size(), model.further.size());
      ASSERT_LE(table.numbers(), most) << "places are used again";
      ASSERT_EQ(table.oldest() == nullptr, model.order.empty());
      if (!model.order.empty()) {
        ASSERT_EQ(table.oldest()->key.source[1], model.order.front());
      }
      std::map<uint32_t, uint64_t> seen;
      for (uint32_t i = 1; i <= table.numbers(); ++i) {
        if (const auto* each = table.numbered(i))
          seen[static_cast<uint32_t>(each->key.source[1])] = each->further;
      }
      ASSERT_EQ(seen, model.further) << seed << " " << step;
    }
  }
}

TEST(LineBudgetTest, AllowsSoManyInAnySecond) {
  struct Row {
    double at;
    bool taken;
  };
  const Row rows[] = {{0, true},    {0.5, true}, {0.9, false}, {1.0, true},
                      {1.4, false}, {1.5, true}, {1.9, false}, {7, true}};
  LineBudget budget(2);
  for (const Row& row : rows) EXPECT_EQ(budget.take(Duration(row.at)), row.taken) << row.at;
}

TEST(LineBudgetTest, ANoughtAllowsNothing) {
  LineBudget budget(0);
  EXPECT_FALSE(budget.take(Duration(5)));
}

}  // namespace
