#include <agent/change/Apply.h>
#include <agent/core/EventLoop.h>
#include <agent/state/StateKeeper.h>
#include <agent/state/Successor.h>
#include <gtest/gtest.h>

#include "../support/CaptureBytes.h"
#include "../support/ModelOf.h"
#include "../support/Run.h"

#include <filesystem>
#include <map>
#include <set>

namespace {

using namespace Agent;
using namespace TestSupport;
using Acl::AclDirection;
using Acl::AclType;
using Kiv::UniqueId;

/// An agent without ports, from its start over what another one left to its end.
class OneAgent {
 public:
  static constexpr double startTime = 1700000000;

  explicit OneAgent(const std::string& path, const std::string& text,
                    const std::map<std::string, Config::Model>& inputs = {}) {
    std::string message;
    auto file = StateFile::open(path, &message);
    EXPECT_EQ(message, "");
    Successor successor(file->state());
    successor.publish(core_);
    const auto memory = [&](const std::string& source, const Config::List& list) {
      return successor.idsOf(source, list);
    };
    EXPECT_FALSE(Agent::putInForce(core_, {modelOf(text), inputs}, memory));
    const auto before = rulesShown();
    EXPECT_EQ(before.size(), file->state().ruleStatus.size()) << "what was shown is shown at once";
    EXPECT_FALSE(core_.loadPlugin(std::string(VELO_BIN_DIR) + "/VeloAcl.so"));
    successor.countRules(core_);
    const auto wanted = idsInForce();
    // Tasks that yield after every element may end behind the poll that they wait for, and come a second
    // later.
    for (int turn = 0; turn < 200; ++turn) {
      if (turn == 100) clock_.advance(Kelp::Duration(1.1));
      loop_.turn(0);
      const auto shown = rulesShown();
      for (const UniqueId& id : before) {
        EXPECT_TRUE(!wanted.contains(id) || shown.contains(id)) << id.str() << " was never to go";
      }
    }
    EXPECT_FALSE(core_.inForce().unpublished());
    EXPECT_EQ(rulesShown(), wanted) << "and nothing stale stays";
    successor.countImplicitDrops(core_);
    keeper_ = std::make_unique<StateKeeper>(core_, std::move(file));
  }

  void apply(const std::string& text) {
    EXPECT_FALSE(Agent::putInForce(core_, {modelOf(text), {}}));
    keeper_->handleApplied();
    turns();
  }
  void turns() {
    for (int turn = 0; turn < 50; ++turn) loop_.turn(0);
  }
  /// Long enough for counters to be copied into the status.
  void aWhile() {
    clock_.advance(Kelp::Duration(1.1));
    wall_.advance(Kelp::Duration(1.1));
    turns();
  }

  /// The ids of an IPv4 list's rules by number.
  std::map<uint32_t, UniqueId> ids(const char* list = "A") {
    std::map<uint32_t, UniqueId> found;
    for (const auto* entry :
         core_.inForce().lists()->config(AclType::ip)->acl(list)->currCfg()->ipRuleById().ordered())
      found[entry->value.sequence()] = entry->key;
    return found;
  }
  UniqueId implicitId(const char* list = "A") {
    return *status(list).implicitRuleId(Acl::ImplicitRuleType::drop);
  }
  const Acl::AclStatus& status(const char* list = "A") {
    return *core_.inForce().status()->status(AclType::ip)->acl(list);
  }
  Velo::Counter::VeloDpAclCounter& counter(const UniqueId& id, const char* list = "A") {
    const auto in = core_.manager().counterHolder()->collection("DpAclInRuleMatches");
    return *Kelp::ptrCast<Velo::Counter::VeloDpAclCounterColl>(in)->counterCollectionIs(
        {AclDirection::in, AclType::ip, list, id});
  }
  void count(const UniqueId& id, int times) {
    for (int i = 0; i < times; ++i) counter(id).count(MemSlab::make<Nimnet::Pkt>());
    counter(id).lastUpdateTimeIs(wall_.now());
  }

  std::set<UniqueId> rulesShown() {
    std::set<UniqueId> found;
    const auto status = core_.mountedStatus();
    for (auto type = status->status().begin(); type; type.next()) {
      for (auto list = type.value()->acl().begin(); list; list.next()) {
        for (auto rule = list.value()->ruleStatus().begin(); rule; rule.next()) found.insert(rule.key());
      }
    }
    return found;
  }

 private:
  std::set<UniqueId> idsInForce() {
    std::set<UniqueId> found;
    for (auto type = core_.inForce().lists()->config().begin(); type; type.next()) {
      for (auto list = type.value()->acl().begin(); list; list.next()) {
        const auto rules = list.value()->currCfg();
        for (auto rule = rules->ipRuleById().begin(); rule; rule.next()) found.insert(rule.key());
        for (auto rule = rules->ip6RuleById().begin(); rule; rule.next()) found.insert(rule.key());
        for (auto rule = rules->macRuleById().begin(); rule; rule.next()) found.insert(rule.key());
      }
    }
    return found;
  }

  Kiv::ManualClock clock_;
  Kiv::ManualClock wall_{Kelp::Duration(startTime)};
  EventLoop loop_{clock_, wall_};
  Core core_;
  std::unique_ptr<StateKeeper> keeper_;
};

class SuccessionTest : public testing::Test {
 protected:
  const TempDir dir_;
  const std::string path_ = dir_ / "state";
};

constexpr const char* usual =
    "ip access-list A\n 10 permit tcp any any\n 20 deny udp any any eq 53\n 30 permit ip any any\n"
    "interface eth1\n ip access-group A in\n";

TEST_F(SuccessionTest, ARuleKeepsItsIdWhileItStaysTheSameRule) {
  struct Row {
    const char* why;
    const char* text;
    std::map<uint32_t, uint32_t> kept;  ///< numbers then, by those before
  };
  for (const Row& row :
       {Row{"nothing changed", usual, {{10, 10}, {20, 20}, {30, 30}}},
        Row{"another spelling, and a remark",
            "ip access-list A\n remark new\n 10 permit 6 any any\n 20 deny udp any any eq domain\n 30 permit "
            "ip any "
            "any\n",
            {{10, 10}, {20, 20}, {30, 30}}},
        Row{"one changed, one went, one came",
            "ip access-list A\n 5 permit icmp any any\n 10 permit tcp any any\n 20 deny udp any any eq 54\n",
            {{10, 10}}},
        Row{"the numbers are others'",
            "ip access-list A\n 10 permit ip any any\n 30 permit tcp any any\n",
            {{10, 30}, {30, 10}}},
        Row{"another number and another spelling",
            "ip access-list A\n 10 deny ip any any\n 20 permit 6 any any\n 30 deny udp any any eq domain\n",
            {{10, 20}, {20, 30}}},
        Row{"the list is another", "ip access-list B\n 10 permit tcp any any\n", {}},
        Row{"the kind is another", "ipv6 access-list A\n 10 permit tcp any any\n", {}}}) {
    SCOPED_TRACE(row.why);
    std::filesystem::remove(path_);
    const auto before = OneAgent(path_, usual).ids();
    OneAgent next(path_, row.text);
    const auto shown = next.rulesShown();
    for (const auto& [sequence, id] : before)
      EXPECT_EQ(shown.contains(id), row.kept.contains(sequence)) << sequence;
    if (row.kept.empty()) continue;
    for (const auto& [was, is] : row.kept) EXPECT_EQ(next.ids().at(is), before.at(was));
  }
}

TEST_F(SuccessionTest, ARuleWithGroupsKeepsItsIdWhileTheyStandForTheSame) {
  const std::string lists = "ip access-list A\n 10 permit ip object-group G any\n 20 permit ip any any\n";
  const std::string groups = "object-group network G\n host 192.0.2.1\n 10.0.0.0/8\n";
  struct Row {
    const char* why;
    std::string groups;
    bool kept;
  };
  for (const Row& row :
       {Row{"the same", groups, true},
        Row{"in another order and other words", "object-group network G\n 10.0.0.0/8\n 192.0.2.1/32\n", true},
        Row{"one more", groups + " host 192.0.2.2\n", false},
        Row{"another one", "object-group network G\n host 192.0.2.2\n 10.0.0.0/8\n", false}}) {
    SCOPED_TRACE(row.why);
    std::filesystem::remove(path_);
    const auto before = OneAgent(path_, groups + lists).ids();
    const auto after = OneAgent(path_, row.groups + lists).ids();
    EXPECT_EQ(after.at(10) == before.at(10), row.kept);
    EXPECT_EQ(after.at(20), before.at(20));
  }
}

TEST_F(SuccessionTest, CountsAndTimesGoOn) {
  UniqueId rule, drop;
  {
    OneAgent first(path_, usual);
    rule = first.ids().at(20);
    drop = first.implicitId();
    first.count(rule, 5);
    first.count(drop, 3);
    first.aWhile();
  }
  OneAgent next(path_, usual);
  const Acl::RuleStatus shown = *next.status().ruleStatus(rule);
  EXPECT_EQ(shown.packets, 5u);
  EXPECT_EQ(shown.lastMatch, OneAgent::startTime);
  EXPECT_NE(next.implicitId(), drop);
  EXPECT_EQ(next.status().implicitRuleStatus(Acl::ImplicitRuleType::drop)->packets, 3u);
  next.count(rule, 1);
  next.count(next.implicitId(), 1);
  next.aWhile();
  EXPECT_EQ(next.status().ruleStatus(rule)->packets, 6u);
  EXPECT_EQ(next.status().implicitRuleStatus(Acl::ImplicitRuleType::drop)->packets, 4u);
  EXPECT_FALSE(next.status().ruleStatus(drop)) << "the old id is no rule";
}

TEST_F(SuccessionTest, ARuleMadeAgainIsANewOne) {
  UniqueId first;
  {
    OneAgent agent(path_, usual);
    first = agent.ids().at(10);
    agent.count(first, 2);
    agent.apply("ip access-list A\n 20 deny udp any any eq 53\n");
    agent.apply(usual);
    EXPECT_NE(agent.ids().at(10), first);
    first = agent.ids().at(10);
  }
  OneAgent next(path_, usual);
  EXPECT_EQ(next.ids().at(10), first) << "the last one that it had";
  EXPECT_EQ(next.status().ruleStatus(first)->packets, 0u);
  next.apply("ip access-list A\n 20 deny udp any any eq 53\n");
  next.apply(usual);
  EXPECT_NE(next.ids().at(10), first) << "only the first configuration remembers";
}

TEST_F(SuccessionTest, SourcesHaveTheirOwnRules) {
  const auto model =
      modelOf("ip access-list A\n 10 permit tcp any any\nip access-list B\n 10 permit ip any any\n");
  UniqueId a, b;
  {
    OneAgent first(path_, usual, {{"cli", model}});
    a = first.ids("A").at(10);
    b = first.ids("B").at(10);
  }
  OneAgent next(path_, usual, {{"cli", model}});
  EXPECT_EQ(next.ids("A").at(10), a);
  EXPECT_EQ(next.ids("B").at(10), b) << "of a file that is called like the command line";
}

TEST_F(SuccessionTest, IdsAreNotGivenOutTwice) {
  std::set<UniqueId> known;
  {
    OneAgent first(path_, usual);
    for (const auto& [sequence, id] : first.ids()) known.insert(id);
  }
  OneAgent next(path_, std::string(usual) + "ip access-list C\n 10 permit ip any any\n");
  EXPECT_FALSE(known.contains(next.ids("C").at(10)));
  EXPECT_GT(next.ids("C").at(10).value(), known.rbegin()->value() + 1000)
      << "nor those that were not written";
}

}  // namespace
