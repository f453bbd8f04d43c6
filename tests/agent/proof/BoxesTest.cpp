#include <agent/proof/Boxes.h>
#include <agent/proof/Comparison.h>
#include <agent/proof/Condition.h>
#include <agent/proof/OnePacket.h>
#include <agent/proof/TakenSets.h>
#include <gtest/gtest.h>

#include "../support/ModelOf.h"
#include "ProofSupport.h"
#include "SmallWorld.h"

#include <map>
#include <string>

namespace {

using namespace TestSupport;
using Differential::Fields;

template <class Rule>
class BoxesTest : public testing::Test {
 protected:
  std::vector<Rule> rulesOf(SmallWorld<Rule>& world, Dice& dice, uint64_t most) {
    std::vector<Rule> rules;
    const auto count = dice.below(most + 1);
    for (uint32_t i = 1; i <= count; ++i) rules.push_back(sayable(world.rule(10 * i)));
    return rules;
  }
  /// The rule that a packet meets; null: none.
  static const Rule* met(const std::vector<Rule>& rules, const Fields& packet) {
    for (const Rule& rule : rules) {
      Differential::Oracle<Rule> oracle;
      oracle.ruleIs(Kiv::UniqueId(1), rule);
      if (oracle.first(packet).rule) return &rule;
    }
    return nullptr;
  }
  static bool passes(const Rule* rule) { return rule && rule->action == Acl::Action::permit; }

  const Proof::RuleSets sets_{typeOf<Rule>, {Kelp::Duration(3600)}};
};

using Kinds = testing::Types<Acl::IpRule, Acl::Ip6Rule, Acl::MacRule>;
TYPED_TEST_SUITE(BoxesTest, Kinds);

TYPED_TEST(BoxesTest, WhatAListPermitsIsInItsBoxesAndNothingElseIs) {
  size_t boxes = 0, inside = 0, outside = 0, judged[2][2] = {}, taken[2] = {};
  for (uint64_t seed = 0; seed < 120 * proofTimes() && !this->HasFailure(); ++seed) {
    SCOPED_TRACE(fmt::format("seed {}", seed));
    Dice dice(seed);
    SmallWorld<TypeParam> world(dice);
    const auto rules = this->rulesOf(world, dice, 6);
    const Config::List list = configList(rules);
    const auto permitted = Proof::permitted(&list, this->sets_.packets(), this->sets_);
    Proof::LooseBits loose;
    loose.add(list);
    const auto found = Proof::boxesOf(permitted, this->sets_, loose, 5000);
    ASSERT_FALSE(found.more);
    std::vector<Proof::PacketSet> read;
    for (const Proof::Box& box : found.all) {
      std::string wrong;
      const auto condition = Proof::readCondition(typeOf<TypeParam>, box.words, &wrong);
      ASSERT_TRUE(condition) << box.words << ": " << wrong;
      read.push_back(setOf(*condition, this->sets_));
      EXPECT_EQ(read.back(), box.packets) << box.words;
    }
    boxes += found.all.size();
    EXPECT_EQ(Proof::joined(read), permitted);
    for (const bool passes : {true, false}) {
      const auto among = this->sets_.of(Config::Rule(world.rule(100)));
      const auto wanted = passes ? among & permitted : among - permitted;
      const auto one = Proof::oneJudged(&list, passes, among, this->sets_);
      EXPECT_EQ(one.has_value(), !wanted.isEmpty());
      EXPECT_TRUE(!one || this->sets_.contains(wanted, *one));
      ++judged[one.has_value()][passes];
      for (const auto& rule : rules) {
        const auto decided = Proof::takenBy(list, rule.sequence, among, this->sets_);
        const auto its = Proof::oneTaken(list, rule.sequence, among, this->sets_);
        EXPECT_EQ(its.has_value(), !decided.isEmpty());
        EXPECT_TRUE(!its || this->sets_.contains(decided, *its));
        taken[its.has_value()]++;
      }
    }
    for (const Fields& packet : world.packets()) {
      if (dice.below(4) != 0) continue;
      const bool passes = this->passes(this->met(rules, packet));
      const Proof::Packet bits = proofPacket(packet);
      size_t in = 0;
      for (const auto& set : read) in += this->sets_.contains(set, bits);
      ASSERT_EQ(in > 0, passes) << packet.str();
      ++(passes ? inside : outside);
    }
  }
  EXPECT_GT(boxes, 50u);
  EXPECT_GT(inside, 100u);
  EXPECT_GT(outside, 100u);
  EXPECT_TRUE(taken[0] > 20 && taken[1] > 20) << taken[0] << " " << taken[1];
  for (const auto& each : judged) EXPECT_TRUE(each[0] > 3 && each[1] > 3) << each[0] << " " << each[1];
}

TYPED_TEST(BoxesTest, AComparisonSaysOfEveryPacketWhatChanges) {
  std::map<std::string, size_t> seen;
  for (uint64_t seed = 0; seed < 60 * proofTimes() && !this->HasFailure(); ++seed) {
    SCOPED_TRACE(fmt::format("seed {}", seed));
    Dice dice(seed);
    SmallWorld<TypeParam> world(dice);
    auto before = this->rulesOf(world, dice, 6), after = before;
    for (auto changes = 1 + dice.below(2); changes > 0; --changes) {
      // A rule that goes, comes, gets another place, or does otherwise.
      if (!after.empty() && dice.once(2))
        after.erase(after.begin() + static_cast<long>(dice.below(after.size())));
      if (dice.once(2))
        after.insert(after.begin() + static_cast<long>(dice.below(after.size() + 1)), sayable(world.rule(1)));
      if (!after.empty() && dice.once(3)) std::swap(after.front(), after.back());
      if (!after.empty() && dice.once(4)) after[dice.below(after.size())].log = true;
      if (!after.empty() && dice.once(4)) after[dice.below(after.size())].mirrorSession = "S";
      for (uint32_t i = 0; i < after.size(); ++i) after[i].sequence = 5 * (i + 1);
    }
    const Config::List old = configList(before), now = configList(after);
    const auto found = Proof::compare(&old, &now, this->sets_, 5000);
    const auto isIn = [&](const Proof::Changed& changed, const Proof::Packet& packet, uint32_t was,
                          uint32_t is) {
      bool in = false;
      for (const auto& box : changed.boxes) {
        std::string wrong;
        const auto condition = Proof::readCondition(typeOf<TypeParam>, box.words, &wrong);
        if (!this->sets_.contains(setOf(*condition, this->sets_), packet)) continue;
        in = true;
        EXPECT_TRUE(std::count(box.before.begin(), box.before.end(), was)) << box.words;
        EXPECT_TRUE(std::count(box.after.begin(), box.after.end(), is)) << box.words;
      }
      return in;
    };
    const auto packets = world.packets();
    for (size_t tries = 0; tries < 40; ++tries) {
      const Fields& packet = packets[dice.below(packets.size())];
      const TypeParam* was = this->met(before, packet);
      const TypeParam* is = this->met(after, packet);
      const uint32_t wasNumber = was ? was->sequence : 0, isNumber = is ? is->sequence : 0;
      const Proof::Packet bits = proofPacket(packet);
      const auto in = [&](const Proof::Changed& changed) { return isIn(changed, bits, wasNumber, isNumber); };
      const bool passed = this->passes(was), passes = this->passes(is);
      EXPECT_EQ(in(found.opened), !passed && passes) << packet.str();
      EXPECT_EQ(in(found.closed), passed && !passes) << packet.str();
      const bool same = passed == passes;
      const auto session = [](const TypeParam* rule) {
        return rule ? rule->mirrorSession.str() : std::string();
      };
      const bool copied = same && session(was) != session(is);
      const bool logged = same && (was && was->log) != (is && is->log);
      EXPECT_EQ(in(found.mirrored), copied) << packet.str();
      EXPECT_EQ(in(found.logged), logged) << packet.str();
      const bool counted = in(found.counted);
      EXPECT_FALSE(counted && (!same || copied || logged)) << packet.str();
      if (same && !copied && !logged && (was == nullptr) != (is == nullptr)) {
        EXPECT_TRUE(counted) << packet.str();
      }
      if (counted && was && is) ++seen["counted"];
      if (was && is && same && !copied && !logged && !was->isSameRule(*is) && !(was->filter == is->filter)) {
        EXPECT_TRUE(counted) << packet.str();
      }
      seen["opened"] += !passed && passes;
      seen["closed"] += passed && !passes;
      seen["mirrored"] += copied;
      seen["logged"] += logged;
      seen["same"] += same;
    }
    for (const auto& box : found.opened.boxes) {
      EXPECT_TRUE(
          this->sets_.contains(Proof::permitted(&now, this->sets_.packets(), this->sets_), box.example));
      EXPECT_FALSE(
          this->sets_.contains(Proof::permitted(&old, this->sets_.packets(), this->sets_), box.example));
    }
  }
  for (const char* each : {"opened", "closed", "mirrored", "logged", "counted", "same"})
    EXPECT_GT(seen[each], 5u) << each;
}

/// What a list permits, a box a line.
std::string permittedBy(const std::string& text, size_t most = 1000) {
  const auto model = modelOf(text);
  const Config::List& list = model.lists.begin()->second;
  const Proof::RuleSets sets(list.type, {Kelp::Duration(3600)});
  Proof::LooseBits loose;
  loose.add(list);
  std::string all;
  for (const auto& box : boxesOf(Proof::permitted(&list, sets.packets(), sets), sets, loose, most).all)
    all += (all.empty() ? "" : "\n") + box.words;
  return all;
}

TEST(Boxes, ReadLikeRules) {
  struct Row {
    const char* list;
    const char* rules;
    const char* expected;
  };
  for (
      const Row& row : {
          Row{"ip", "permit tcp 10.0.0.0/8 any eq 22", "tcp 10.0.0.0/8 any eq 22"},
          Row{"ip", "permit ip any any", "ip any any"},
          Row{"ip", "deny tcp any any\npermit ip any any", "ip any any not tcp"},
          Row{"ip", "deny tcp any any eq 22 23\npermit tcp any host 192.0.2.1",
              "tcp any host 192.0.2.1 neq 22 23\ntcp any host 192.0.2.1 fragments"},
          Row{"ip", "deny tcp any any established\npermit tcp any any range 10 20 dscp ef",
              "tcp any any range 10 20 dscp 46 not established"},
          Row{"ip", "deny ip any any fragments\npermit ip any any", "ip any any not fragments"},
          Row{"ip", "permit icmp any any echo ttl gt 9", "icmp any any 8 ttl gt 9"},
          Row{"ip", "deny icmp any any unreachable\npermit icmp any any", "icmp any any not 3"},
          // Each code that is not is of one type, so the box is for that type only.
          Row{"ip", "deny icmp any any 8 0\ndeny icmp any any 5 0\npermit icmp any any",
              "icmp any any 8 not 8 0\nicmp any any not 5 not 8\nicmp any any 5 not 5 0"},
          Row{"ip", "permit tcp any any syn ack ttl lt 5\n", "tcp any any syn ack ttl lt 5"},
          Row{"ip", "deny ip any any ttl lt 5\ndeny ip any any ttl gt 9\npermit ip any any",
              "ip any any ttl gt 4 not ttl gt 9"},
          Row{"ip", "permit ip 10.0.3.0 0.255.0.255 any", "ip 10.0.3.0 0.255.0.255 any"},
          Row{"ip", "permit ip 10.0.0.0/9 any\npermit ip 10.128.0.0/9 any", "ip 10.0.0.0/8 any"},
          Row{"ip", "permit vlan 5 ip any any", "vlan 5 ip any any"},
          Row{"ip", "deny vlan 5 ip any any\npermit ip any any", "ip any any not vlan 5"},
          Row{"ipv6", "permit udp 2001:db8::/32 gt 1023 any", "udp 2001:db8::/32 gt 1023 any"},
          Row{"ipv6", "permit ipv6 host 2001:db8::1 any traffic-class 0x20",
              "ipv6 host 2001:db8::1 any traffic-class 32"},
          Row{"mac", "permit host 02:00:5e:00:00:01 any ip", "host 02:00:5e:00:00:01 any 0x0800"},
          Row{"mac", "deny any any arp\npermit any any", "any any not 0x0806"},
          Row{"ip", "deny ip host 10.0.0.1 any\npermit ip any any", "ip any any not host 10.0.0.1 any"},
          Row{"ip", "deny ip any host 10.0.0.1\npermit ip any any", "ip any any not any host 10.0.0.1"},
          Row{"ip", "deny ip 10.1.0.0/16 any\npermit ip 10.0.0.0/8 any",
              "ip 10.0.0.0/8 any not 10.1.0.0/16 any"},
          Row{"ip",
              "deny tcp host 10.0.0.1 any eq 22\ndeny tcp any any fragments\npermit tcp 10.0.0.0/8 any eq 22",
              "tcp 10.0.0.0/8 any eq 22 not host 10.0.0.1 any"},
          Row{"ip", "deny ip host 10.0.0.1 any\ndeny ip host 172.16.0.9 any\npermit ip any any",
              "ip any any not host 10.0.0.1 any not host 172.16.0.9 any"},
          // Where a `not` saves no line there is none.
          Row{"ip", "deny ip 128.0.0.0/2 any\npermit ip any any", "ip 0.0.0.0/1 any\nip 192.0.0.0/2 any"},
          Row{"ip", "permit ip 10.0.0.0/8 any\npermit ip 8.0.0.0/8 any",
              "ip 8.0.0.0/8 any\nip 10.0.0.0/8 any"},
          Row{"ip", "deny ip 0.0.0.1 255.255.255.254 any\npermit ip any any",
              "ip 0.0.0.0 255.255.255.254 any"},
          Row{"ipv6", "deny ipv6 any host 2001:db8::1\npermit ipv6 2001:db8::/32 any",
              "ipv6 2001:db8::/32 any not any host 2001:db8::1"},
          Row{"mac", "deny host 02:00:5e:00:00:01 any\npermit any any",
              "any any not host 02:00:5e:00:00:01 any"},
          Row{"ip", "deny udp any any fragments\ndeny udp any any eq 3389\npermit udp any any gt 1023",
              "udp any any gt 1023 not any any eq 3389"},
          Row{"ip",
              "deny udp any any fragments\ndeny udp any range 200 201 any\npermit udp any range 100 900 any",
              "udp any range 100 900 any not any eq 200 201 any"},
          Row{"ip",
              "deny udp any any fragments\npermit udp any any range 10 20\npermit udp any any range 30 40",
              "udp any any range 10 20\nudp any any range 30 40"},
          Row{"ip",
              "deny udp any any fragments\npermit udp any any range 10 16\npermit udp any any range 18 24",
              "udp any any range 10 16\nudp any any range 18 24"},
          Row{"ip", "", ""},
      }) {
    std::string text = fmt::format("{} access-list A\n", row.list);
    EXPECT_EQ(permittedBy(text + row.rules + "\n"), row.expected) << row.rules;
  }
}

// It has no later fragments, so what those may be does not make it smaller.
TEST(Boxes, TheFirstIsALargeOneWhenThereIsRoomForNoMore) {
  EXPECT_EQ(
      permittedBy("ip access-list A\npermit tcp 0.0.0.0/8 any eq 22\npermit tcp 0.0.0.0/16 any fragments\n"
                  "permit tcp any host 0.0.0.0 eq 22\n",
                  1),
      "tcp 0.0.0.0/8 any eq 22");
}

TEST(Condition, IsRefusedWithWhatWasExpected) {
  struct Row {
    Acl::AclType type;
    const char* text;
    const char* wrong;
  };
  for (const Row& row : {
           Row{Acl::AclType::ip, "tcp any", "found the end of the line, expected "},
           Row{Acl::AclType::ip, "tcp any any not",
               "found nothing behind not, expected what packets are not to have"},
           Row{Acl::AclType::ip, "tcp any any log", "found log or mirror, expected what packets can have"},
           Row{Acl::AclType::ip, "ip object-group G any",
               "found an object-group, expected what packets can have"},
           Row{Acl::AclType::ip, "udp any any not established",
               "found \"established\" in a rule that is not for tcp"},
           Row{Acl::AclType::mac, "any any not vlan 9999", "found \"9999\", expected a VLAN id"},
           Row{Acl::AclType::ipv6, "ip any any", "found \"ip\" in an IPv6 list"},
       }) {
    std::string wrong;
    EXPECT_FALSE(Proof::readCondition(row.type, row.text, &wrong)) << row.text;
    EXPECT_TRUE(wrong.starts_with(row.wrong)) << wrong;
  }
}

TEST(Condition, TellsWhereTheMistakeIs) {
  struct Row {
    Acl::AclType type;
    const char* text;
    size_t column;
    const char* found;
  };
  for (const Row& row : {
           Row{Acl::AclType::ip, "tcp any", 8, "the end of the line"},
           Row{Acl::AclType::ip, "  tcp  any anny", 12, "\"anny\""},
           Row{Acl::AclType::ip, "tcp any any not", 16, "nothing behind not"},
           Row{Acl::AclType::ip, "tcp any any not syn not  host 10.0.0.300 any", 31, "\"10.0.0.300\""},
           Row{Acl::AclType::ip, "tcp any any not host 10.0.0.3", 30, "the end of the line"},
           Row{Acl::AclType::ip, "tcp any any not vlan 5 not any any eq 99999", 39, "\"99999\""},
           Row{Acl::AclType::mac, "any any not vlan 9999", 18, "\"9999\""},
           Row{Acl::AclType::ip, "tcp any any\x01", 12, "byte 0x01"},
       }) {
    Config::Cursor::Problem wrong;
    EXPECT_FALSE(Proof::readCondition(row.type, row.text, &wrong)) << row.text;
    EXPECT_EQ(wrong.column, row.column) << row.text;
    EXPECT_EQ(wrong.found, row.found) << row.text;
  }
}

TEST(Condition, HasPartsOfRulesBehindNot) {
  struct Row {
    Acl::AclType type;
    const char* text;
    const char* without;  // a condition for the same that is not in it
  };
  for (const Row& row : {
           Row{Acl::AclType::ip, "tcp any any not host 10.0.0.1 any", "tcp host 10.0.0.1 any"},
           Row{Acl::AclType::ip, "tcp any any not any eq 22 any", "tcp any eq 22 any"},
           Row{Acl::AclType::ip, "tcp any any not any any eq 22", "tcp any any eq 22"},
           Row{Acl::AclType::ip, "ip any any not udp host 10.0.0.1 any", "udp host 10.0.0.1 any"},
           Row{Acl::AclType::ip, "ip any any not vlan 5", "vlan 5 ip any any"},
           Row{Acl::AclType::ip, "ip any any not tcp", "tcp any any"},
           Row{Acl::AclType::ip, "icmp any any not 8 0", "icmp any any 8 0"},
           Row{Acl::AclType::ipv6, "ipv6 any any not any 2001:db8::/32", "ipv6 any 2001:db8::/32"},
           Row{Acl::AclType::mac, "any any not any host 02:00:5e:00:00:01", "any host 02:00:5e:00:00:01"},
       }) {
    const Proof::RuleSets sets(row.type, {Kelp::Duration(3600)});
    const auto set = [&](std::string_view text) {
      std::string wrong;
      const auto condition = Proof::readCondition(row.type, text, &wrong);
      EXPECT_TRUE(condition) << text << ": " << wrong;
      return condition ? setOf(*condition, sets) : Proof::PacketSet();
    };
    const std::string_view text = row.text;
    EXPECT_EQ(set(text), set(text.substr(0, text.find(" not "))) - set(row.without)) << row.text;
    EXPECT_NE(set(text), set(text.substr(0, text.find(" not ")))) << row.text;
  }
}

TEST(Condition, IsForTheKindsThatItCanBeAskedOf) {
  using enum Acl::AclType;
  const std::vector<Acl::AclType> all = {ip, ipv6, mac};
  Config::Cursor::Problem wrong;
  EXPECT_EQ(Proof::kindsOfCondition("udp any any", all, &wrong), (std::vector{ip, ipv6}));
  EXPECT_EQ(Proof::kindsOfCondition("any any 0x0806", all, &wrong), std::vector{mac});
  EXPECT_TRUE(Proof::kindsOfCondition("any any 0x08zz", all, &wrong).empty());
  EXPECT_EQ(wrong.column, 9u) << "only a MAC list could ask for it";
}

}  // namespace
