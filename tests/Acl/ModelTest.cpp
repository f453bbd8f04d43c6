#include <Acl/Counters.h>
#include <Acl/Model.h>
#include <Acl/Status.h>
#include <Zeb/TypeModule.h>
#include <gtest/gtest.h>

#include <limits>
#include <map>
#include <random>
#include <set>
#include <sstream>

#include "../support/UncheckedMpls.h"
#include "CapabilityFlags.h"
#include "ChangeLog.h"

namespace {

using namespace Acl;
using Velo::Counter::AclTypeNameTuple;
using Velo::Counter::RuleIdSet;
using Velo::Counter::VeloDpAclCounterColl;
using Velo::Counter::VeloDpAclCounterKey;

TEST(AclTypes, NumbersAndNamesAreFixed) {
  struct Row {
    int number;
    std::string_view expected, text;
  };
  const auto row = [](auto value, std::string_view expected) {
    return Row{static_cast<int>(value), expected, stringValue(value)};
  };
  const std::pair<int, Row> rows[] = {
      {0, row(AclType::ip, "ip")},        {1, row(AclType::ipv6, "ipv6")},
      {2, row(AclType::mac, "mac")},      {0, row(AclDirection::in, "in")},
      {1, row(AclDirection::out, "out")}, {0, row(Action::permit, "permit")},
      {1, row(Action::deny, "deny")},     {4, row(ImplicitRuleType::drop, "drop")},
  };
  for (const auto& [number, shown] : rows) {
    EXPECT_EQ(shown.number, number) << shown.expected;
    EXPECT_EQ(shown.text, shown.expected);
  }
  std::ostringstream out;
  out << AclType::ipv6 << ' ' << AclDirection::out;
  EXPECT_EQ(out.str(), "ipv6 out");
}

TEST(AclTypes, ANameGivesItsValueBackAndNothingElseDoes) {
  AclType type = AclType::mac;
  for (AclType each : {AclType::ip, AclType::ipv6, AclType::mac}) {
    EXPECT_TRUE(sequenceToValue(stringValue(each), &type));
    EXPECT_EQ(type, each);
  }
  for (const char* wrong : {"", "IP", "ip6", "ip ", "ipv", "unknown"}) {
    EXPECT_FALSE(sequenceToValue(wrong, &type)) << wrong;
    EXPECT_EQ(type, AclType::mac) << "what cannot be read is not written";
  }
  AclDirection direction = AclDirection::in;
  EXPECT_TRUE(sequenceToValue("out", &direction));
  EXPECT_EQ(direction, AclDirection::out);
  EXPECT_FALSE(sequenceToValue("inout", &direction));
  ImplicitRuleType implicit = ImplicitRuleType::none;
  EXPECT_TRUE(sequenceToValue("drop", &implicit));
  EXPECT_EQ(implicit, ImplicitRuleType::drop);
}

TEST(AclRules, ADefaultRulePermitsAndEqualsNoConfiguredDeny) {
  EXPECT_EQ(IpRule().action, Action::permit);
  EXPECT_EQ(IpRuleConfig().action(), Action::permit);
  IpRule deny;
  deny.action = Action::deny;
  EXPECT_FALSE(IpRuleConfig(deny).isEq(IpRuleConfig()))
      << "a deny that says nothing else is still told from no rule";
}

template <class Rule>
class AclRuleConfigs : public testing::Test {
 protected:
  static Rule some() {
    Rule rule;
    rule.sequence = 10, rule.action = Action::deny, rule.log = true, rule.mirrorSession = "W";
    rule.text = "deny", rule.remark = "why";
    rule.filter.vlan = {true, 5, 0};
    return rule;
  }
};
using RuleKinds = testing::Types<IpRule, Ip6Rule, MacRule>;
TYPED_TEST_SUITE(AclRuleConfigs, RuleKinds);

TYPED_TEST(AclRuleConfigs, SayWhatTheRuleSaysThatTheyAreMadeOf) {
  const auto rule = this->some();
  const typename TypeParam::Config made = rule;
  EXPECT_EQ(made.base(), rule);
  EXPECT_EQ(made.sequence(), 10u);
  EXPECT_EQ(made.action(), Action::deny);
  EXPECT_TRUE(made.log());
  EXPECT_EQ(made.mirrorSession(), "W");
  EXPECT_EQ(made.text(), "deny");
  EXPECT_EQ(made.remark(), "why");
  EXPECT_EQ(made.filter(), rule.filter);
}

TYPED_TEST(AclRuleConfigs, AreCopiedBySharingAndComparedByValue) {
  using Config = typename TypeParam::Config;
  const uint64_t before = MemSlab::liveCount();
  {
    const Config made = this->some();
    EXPECT_EQ(MemSlab::liveCount(), before + 1);
    Config copy = made;
    EXPECT_EQ(MemSlab::liveCount(), before + 1) << "a copy is no second body";
    EXPECT_TRUE(copy.sharesBody(made));
    EXPECT_TRUE(copy.isEq(made));

    const Config again = this->some();
    EXPECT_FALSE(again.sharesBody(made));
    EXPECT_TRUE(again.isEq(made)) << "equal is who says the same";
    auto other = this->some();
    other.remark = "why not";
    EXPECT_FALSE(made.isEq(other)) << "told apart by what every rule has";
    other = this->some();
    other.filter.vlan = {};
    EXPECT_FALSE(made.isEq(other)) << "told apart by the filter";
    copy = other;
    EXPECT_EQ(made, this->some()) << "a copy that becomes another rule leaves this one as it is";
  }
  EXPECT_EQ(MemSlab::liveCount(), before);
}

TYPED_TEST(AclRuleConfigs, HoldNothingUntilTheyAreMadeOfARule) {
  using Config = typename TypeParam::Config;
  const uint64_t before = MemSlab::liveCount();
  const Config none, other;
  EXPECT_EQ(MemSlab::liveCount(), before);
  EXPECT_EQ(none.base(), TypeParam());
  EXPECT_EQ(none.filter(), TypeParam().filter);
  EXPECT_TRUE(none.isEq(other));
  EXPECT_TRUE(none.isEq(TypeParam())) << "a default rule is no other than no rule";
  EXPECT_FALSE(none.isEq(this->some()));
}

TYPED_TEST(AclRuleConfigs, AreTheSameRuleWhateverRemarkAndSpelling) {
  const typename TypeParam::Config made = this->some();
  auto rule = this->some();
  rule.text = rule.remark = "otherwise";
  EXPECT_TRUE(made.isSameRule(rule));
  rule.log = false;
  EXPECT_FALSE(made.isSameRule(rule));
  rule = this->some();
  rule.filter.vlan = {};
  EXPECT_FALSE(made.isSameRule(rule));
}

TEST(AclRules, RemarkAndSpellingDoNotMakeAnotherRule) {
  Ip6Rule a, b;
  b.remark = "other";
  b.text = "permit ipv6 any any";
  EXPECT_TRUE(a.isSameRule(b));
  EXPECT_FALSE(a == b);
  struct Row {
    const char* why;
    void (*change)(Ip6Rule&);
  };
  const Row rows[] = {
      {"number", [](Ip6Rule& r) { r.sequence = 1; }},
      {"action", [](Ip6Rule& r) { r.action = Action::deny; }},
      {"log", [](Ip6Rule& r) { r.log = true; }},
      {"mirror session", [](Ip6Rule& r) { r.mirrorSession = "W"; }},
      {"filter", [](Ip6Rule& r) { r.filter.fragments = true; }},
  };
  for (const Row& row : rows) {
    Ip6Rule changed;
    row.change(changed);
    EXPECT_FALSE(a.isSameRule(changed)) << row.why;
  }
}

TEST(AclRules, MplsLabelsHaveTwentyBits) {
  const auto thrown = [](auto act) -> std::string {
    try {
      act();
    } catch (const std::range_error& error) {
      return error.what();
    }
    return "";
  };
  struct Row {
    int32_t label;
    bool allowed;
  };
  const Row rows[] = {{0, true},
                      {0xFFFFF, true},
                      {0x100000, false},
                      {-1, false},
                      {std::numeric_limits<int32_t>::min(), false},
                      {std::numeric_limits<int32_t>::max(), false}};
  for (const auto& [label, allowed] : rows) {
    MacFilter filter;
    const char* outer = "Acl::MacFilter::mplsLabel < 0 or > 0xFFFFF not allowed";
    const char* inner = "Acl::MacFilter::mplsInnerLabel < 0 or > 0xFFFFF not allowed";
    EXPECT_EQ(thrown([&, value = label] { filter.mplsLabelIs(value); }), allowed ? "" : outer) << label;
    EXPECT_EQ(filter.mpls.labelNamed(), allowed);
    EXPECT_EQ(filter.mpls.label(), allowed ? label : 0) << "a refused label is not set";
    EXPECT_EQ(thrown([&, value = label] { filter.mplsInnerLabelIs(value); }), allowed ? "" : inner) << label;
    EXPECT_EQ(filter.mpls.innerLabelNamed(), allowed);
    EXPECT_EQ(filter.mpls.innerLabel(), allowed ? label : 0);
    EXPECT_NO_THROW(filter.mpls.check());

    MacFilter stored;
    stored.mpls = UncheckedMpls::of({.label = label});
    const MacFilter copy = stored;
    EXPECT_EQ(copy.mpls.label(), label) << "copying does not look";
    EXPECT_EQ(thrown([&] { copy.mpls.check(); }), allowed ? "" : outer);
    stored.mpls = UncheckedMpls::of({.innerLabel = label});
    EXPECT_EQ(thrown([&] { stored.mpls.check(); }), allowed ? "" : inner);
  }
}

TEST(AclRuleMap, OrdersByNumberThenIdThroughEveryChange) {
  RuleMap<IpRuleConfig> rules;
  const auto put = [&](uint64_t id, uint32_t sequence) {
    IpRule rule;
    rule.sequence = sequence;
    return rules.put(Kiv::UniqueId(id), rule);
  };
  const auto order = [&] {
    std::vector<uint64_t> ids;
    for (const auto* entry : rules.ordered()) ids.push_back(entry->key.value());
    return ids;
  };
  using Ids = std::vector<uint64_t>;
  put(7, 30);
  put(5, 10);
  put(9, 20);
  EXPECT_EQ(order(), (Ids{5, 9, 7}));
  put(3, 20);
  EXPECT_EQ(order(), (Ids{5, 3, 9, 7})) << "rules of one number by id";
  EXPECT_EQ(put(3, 20), Zeb::MapWrite::unchanged);
  put(5, 25);
  EXPECT_EQ(order(), (Ids{3, 9, 5, 7})) << "a rule that gets another number moves";
  put(1, 4294967295u);
  EXPECT_EQ(order(), (Ids{3, 9, 5, 7, 1}));
  EXPECT_EQ(rules.atSequence(25)->key.value(), 5u);
  EXPECT_EQ(rules.atSequence(20)->key.value(), 3u) << "the first of two";
  EXPECT_EQ(rules.atSequence(26), nullptr);
  EXPECT_TRUE(rules.erase(Kiv::UniqueId(uint64_t{9})));
  EXPECT_FALSE(rules.erase(Kiv::UniqueId(uint64_t{9})));
  EXPECT_EQ(order(), (Ids{3, 5, 7, 1}));
}

TEST(AclRuleMap, OrdersListsOfThousandsOfRulesThroughRandomChanges) {
  RuleMap<IpRuleConfig> rules;
  std::map<uint64_t, uint32_t> model;  // sequence numbers by id
  std::mt19937 random(3);
  for (int step = 0; step < 20000; ++step) {
    const bool growing = (step / 4000) % 2 == 0;
    const uint64_t id = 1 + random() % 3000;
    if (random() % 10 < (growing ? 9u : 2u)) {
      IpRule rule;
      rule.sequence = 1 + random() % 2000;
      rules.put(Kiv::UniqueId(id), rule);
      model[id] = rule.sequence;
    } else {
      ASSERT_EQ(rules.erase(Kiv::UniqueId(id)), model.erase(id) > 0) << "step " << step;
    }
    if (step % 200 != 0 && !model.empty()) continue;
    std::set<std::pair<uint32_t, uint64_t>> wanted;
    for (const auto& [each, sequence] : model) wanted.emplace(sequence, each);
    std::vector<std::pair<uint32_t, uint64_t>> found;
    for (const auto* entry : rules.ordered()) found.emplace_back(entry->value.sequence(), entry->key.value());
    ASSERT_TRUE(std::equal(found.begin(), found.end(), wanted.begin(), wanted.end())) << "step " << step;
    const uint32_t sequence = 1 + random() % 2000;
    const auto first = wanted.lower_bound({sequence, 0});
    const auto* at = rules.atSequence(sequence);
    ASSERT_EQ(at != nullptr, first != wanted.end() && first->first == sequence) << "step " << step;
    if (at) {
      ASSERT_EQ(at->key.value(), first->second) << "step " << step;
    }
  }
}

TEST(AclCounters, EveryFieldOfAKeyTellsCountersApart) {
  const VeloDpAclCounterKey key{AclDirection::in, AclType::ip, "L", Kiv::UniqueId(uint64_t{1})};
  const VeloDpAclCounterKey others[] = {{AclDirection::out, AclType::ip, "L", key.ruleId},
                                        {AclDirection::in, AclType::mac, "L", key.ruleId},
                                        {AclDirection::in, AclType::ip, "M", key.ruleId},
                                        {AclDirection::in, AclType::ip, "L", Kiv::UniqueId(uint64_t{2})}};
  const auto counters = MemSlab::make<VeloDpAclCounterColl>("C", CtrPool::FeatureId(4));
  const auto first = counters->counterCollectionIs(key);
  std::set<uint32_t> hashes{key.hash()};
  for (const auto& other : others) {
    EXPECT_NE(other, key);
    EXPECT_LT(key, other) << "the fields order in the order in which they stand";
    EXPECT_NE(counters->counterCollectionIs(other), first) << fmt::format("{}", other);
    hashes.insert(other.hash());
  }
  EXPECT_EQ(hashes.size(), 5u);
  EXPECT_EQ(counters->counterCollectionIs(key), first) << "the second time finds it";
  EXPECT_EQ(counters->counterCollection().size(), 5u);
  EXPECT_EQ(counters->name(), "C");
  EXPECT_EQ(counters->featureId(), CtrPool::FeatureId(4));
  EXPECT_EQ(fmt::format("{}", key), "in ip L 0x0000000000000001");
}

TEST(AclCounters, ListNamesAndRuleIdSets) {
  EXPECT_LT((AclTypeNameTuple{AclType::ip, "B"}), (AclTypeNameTuple{AclType::ipv6, "A"}))
      << "the type goes first";
  EXPECT_LT((AclTypeNameTuple{AclType::ip, "A"}), (AclTypeNameTuple{AclType::ip, "B"}));
  EXPECT_TRUE((AclTypeNameTuple{AclType::ip, "A"}).isEq({AclType::ip, "A"}));
  EXPECT_NE((AclTypeNameTuple{AclType::ip, "A"}).hash(), (AclTypeNameTuple{AclType::mac, "A"}).hash());
  const auto ids = MemSlab::make<RuleIdSet>();
  ChangeLog log(*ids);
  const Kiv::UniqueId id(uint64_t{4});
  EXPECT_TRUE(ids->ruleIdsIs(id));
  EXPECT_FALSE(ids->ruleIdsIs(id));
  EXPECT_TRUE(ids->ruleIds(id));
  EXPECT_TRUE(ids->ruleIdsDel(id));
  EXPECT_FALSE(ids->ruleIdsDel(id));
  EXPECT_EQ(log.names(), (std::vector<std::string>{"ruleIds", "ruleIds"})) << "set once, deleted once";
}

TEST(AclStatus, TheFlagsAreTheTwentyByTheirNamesAndBeginFalse) {
  const auto status = MemSlab::make<StatusDp>(Kelp::String("kepa"));
  ChangeLog log(*status);
  for (const auto& flag : capabilityFlags()) {
    EXPECT_EQ(Zeb::attributeValue<bool>(*status, flag), false) << flag;
    EXPECT_TRUE(Zeb::attributeValueIs(*status, flag, true)) << flag;
    EXPECT_EQ(Zeb::attributeValue<bool>(*status, flag), true) << flag;
  }
  status->initialize();
  EXPECT_EQ(log.names().size(), 21u);
  EXPECT_EQ(log.names().back(), "initialized");
}

TEST(AclModel, TypesThatAStateTreeHoldsCanBeMadeByName) {
  const std::any name = Kelp::String("x");
  for (const char* type :
       {"Zeb::Dir", "Acl::Config", "Acl::Input::Config", "Acl::IntfConfig", "Acl::StatusDp"}) {
    const auto made = Kelp::ptrCast<Zeb::Entity>(Zeb::constructByName(type, std::span(&name, 1)));
    ASSERT_TRUE(made) << type;
    EXPECT_EQ(made->name(), "x");
    EXPECT_EQ(made->typeData().name(), type);
  }
}

TEST(AclModel, ABindingToAListThatDoesNotExistIsKept) {
  const auto bindings = intfConfigFactory("i");
  bindings->initialize();
  EXPECT_TRUE(bindings->initialized());
  const auto in = bindings->configIs(AclType::ip)->intfIs(AclDirection::in);
  in->intfIs(Nimnet::IntfId("eth1"), "NOWHERE");
  EXPECT_EQ(*in->intf(Nimnet::IntfId("eth1")), "NOWHERE");
  in->intfIs(Nimnet::IntfId("eth1"), "OTHER");
  EXPECT_EQ(in->intf().size(), 1u) << "one list a kind, direction and interface";
}

}  // namespace
