#include "World.h"

// Whatever the status announces is enforced: one test a flag, which holds the flag and has real frames judged
// by the plugin's steps.

namespace {

using namespace TestSupport;

class Capability : public World {
 protected:
  /// In both pipelines of the agent, on one interface.
  bool through(const Bytes& bytes, AclDirection direction) {
    if (direction == in) return agent.manager.pipeline()->process(packet(bytes)) == nullptr;
    return agent.manager.pipeline()->process(leaving(bytes, "eth1")) == nullptr;
  }
  void announced(std::initializer_list<const char*> flags) {
    EXPECT_TRUE(agent.status->initialized());
    for (const char* flag : flags) EXPECT_EQ(Zeb::attributeValue<bool>(*agent.status, flag), true) << flag;
  }

  /// A list that denies what the filter matches and permits the rest, bound on the way in and out; `matching`
  /// is dropped by it both ways and `other` passes both ways.
  template <class Rule>
  void denies(AclType type, void (*set)(typename Rule::FilterType&), const Bytes& matching,
              const Bytes& other) {
    Rule deny, rest;
    deny.sequence = 10, deny.action = Action::deny;
    set(deny.filter);
    rest.sequence = 20;
    const auto rules = MemSlab::make<Acl::AclSubConfig>();
    put(*rules, 5, deny);
    put(*rules, 6, rest);
    agent.cli->configIs(type)->aclIs("L")->currCfgIs(rules);
    bind(type, in), bind(type, out);
    for (AclDirection direction : {in, out}) {
      const uint64_t denied = matches(direction, type, 5), passed = matches(direction, type, 6);
      EXPECT_FALSE(through(matching, direction)) << fmt::format("{}: what is denied", direction);
      EXPECT_EQ(matches(direction, type, 5), denied + 1);
      EXPECT_TRUE(through(other, direction)) << fmt::format("{}: what is not", direction);
      EXPECT_EQ(matches(direction, type, 6), passed + 1);
    }
  }
  static void put(Acl::AclSubConfig& rules, uint64_t id, const Acl::IpRule& rule) {
    rules.ipRuleByIdIs(Kiv::UniqueId(id), rule);
  }
  static void put(Acl::AclSubConfig& rules, uint64_t id, const Acl::Ip6Rule& rule) {
    rules.ip6RuleByIdIs(Kiv::UniqueId(id), rule);
  }
  static void put(Acl::AclSubConfig& rules, uint64_t id, const Acl::MacRule& rule) {
    rules.macRuleByIdIs(Kiv::UniqueId(id), rule);
  }
  void ip(void (*set)(Acl::IpFilter&), const Bytes& matching, const Bytes& other) {
    denies<Acl::IpRule>(AclType::ip, set, matching, other);
  }
  void ipv6(void (*set)(Acl::Ip6Filter&), const Bytes& matching, const Bytes& other) {
    denies<Acl::Ip6Rule>(AclType::ipv6, set, matching, other);
  }
  void mac(void (*set)(Acl::MacFilter&), const Bytes& matching, const Bytes& other) {
    denies<Acl::MacRule>(AclType::mac, set, matching, other);
  }

  /// A deny-all list of a kind in one direction drops there, and only there.
  void deniesAll(AclType type, AclDirection direction) {
    rule(type, 5, Action::deny);
    bind(type, direction);
    EXPECT_FALSE(through(frameFor(type), direction));
    EXPECT_TRUE(through(frameFor(type), direction == in ? out : in));
  }
  void mirrors(AclType type) {
    rule(type, 5, Action::permit, "W");
    bind(type, in);
    EXPECT_TRUE(through(frameFor(type), in));
    EXPECT_EQ(mirror.copies.size(), 1u) << "on the way in";
    bind(type, out);
    EXPECT_TRUE(through(frameFor(type), out));
    EXPECT_EQ(mirror.copies, (Lines{"W to eth9", "W to eth9"})) << "and on the way out";
  }
};

TEST_F(Capability, dpAclSupported) {
  announced({"dpAclSupported"});
  deniesAll(AclType::ip, in);
}
TEST_F(Capability, dpIpEgressAclSupported) {
  announced({"dpIpEgressAclSupported"});
  deniesAll(AclType::ip, out);
}
TEST_F(Capability, dpIp6AclSupported) {
  announced({"dpIp6AclSupported"});
  deniesAll(AclType::ipv6, in);
}
TEST_F(Capability, dpIp6EgressAclSupported) {
  announced({"dpIp6EgressAclSupported"});
  deniesAll(AclType::ipv6, out);
}
TEST_F(Capability, dpMacAclSupported) {
  announced({"dpMacAclSupported"});
  deniesAll(AclType::mac, in);
}
TEST_F(Capability, dpMacEgressAclSupported) {
  announced({"dpMacEgressAclSupported"});
  deniesAll(AclType::mac, out);
}

TEST_F(Capability, dpAclTcSupported) {
  announced({"dpAclTcSupported"});
  ipv6([](Acl::Ip6Filter& f) { f.trafficClass = 0x21, f.trafficClassMask = 0xff; },
       ip6().trafficClass(0x21).tcp(1, 2), ip6().trafficClass(0x20).tcp(1, 2));
}
TEST_F(Capability, dpAclHopLimitSupported) {
  announced({"dpAclHopLimitSupported"});
  ipv6(
      [](Acl::Ip6Filter& f) {
        f.hops = {Acl::Compare::lt, 2};
      },
      ip6().hopLimit(1).tcp(1, 2), ip6().hopLimit(2).tcp(1, 2));
  ip(
      [](Acl::IpFilter& f) {
        f.hops = {Acl::Compare::neq, 255};
      },
      ip4().ttl(254).tcp(1, 2), ip4().ttl(255).tcp(1, 2));
}
TEST_F(Capability, dpAclDscpSupported) {
  announced({"dpAclDscpSupported"});
  ip([](Acl::IpFilter& f) { f.trafficClass = 46 << 2, f.trafficClassMask = 0xfc; },
     ip4().tos(46 << 2 | 1).tcp(1, 2), ip4().tos(47 << 2).tcp(1, 2));
}
TEST_F(Capability, dscpFilterSupported) {
  announced({"dscpFilterSupported"});
  ipv6([](Acl::Ip6Filter& f) { f.trafficClass = 10 << 2, f.trafficClassMask = 0xfc; },
       ip6().trafficClass(10 << 2 | 2).tcp(1, 2), ip6().trafficClass(11 << 2).tcp(1, 2));
}
TEST_F(Capability, dpAclDscpMaskSupported) {
  announced({"dpAclDscpMaskSupported"});
  ip([](Acl::IpFilter& f) { f.trafficClass = 0x20 << 2, f.trafficClassMask = 0x38 << 2; },
     ip4().tos(0x27 << 2).tcp(1, 2), ip4().tos(0x28 << 2).tcp(1, 2));
}
TEST_F(Capability, dpAclDscpMaskIpv6Supported) {
  announced({"dpAclDscpMaskIpv6Supported"});
  ipv6([](Acl::Ip6Filter& f) { f.trafficClass = 0x20 << 2, f.trafficClassMask = 0x38 << 2; },
       ip6().trafficClass(0x27 << 2).tcp(1, 2), ip6().trafficClass(0x28 << 2).tcp(1, 2));
}

TEST_F(Capability, dpAclCountersSupported) {
  announced({"dpAclCountersSupported"});
  rule(AclType::ip, 5, Action::permit);
  bind(AclType::ip, in), bind(AclType::ip, out);
  for (int i = 0; i < 3; ++i) through(tcp4(), in);
  through(tcp4(), out);
  EXPECT_EQ(counted(), (Lines{"DpAclInRuleMatches: in ip L 5 = 3", "DpAclIpOutRuleMatches: out ip L 5 = 1"}));
}

TEST_F(Capability, dpIpAclMirrorActionSupported) {
  announced({"dpIpAclMirrorActionSupported"});
  mirrors(AclType::ip);
}
TEST_F(Capability, dpIpv6AclMirrorActionSupported) {
  announced({"dpIpv6AclMirrorActionSupported"});
  mirrors(AclType::ipv6);
}
TEST_F(Capability, dpMacAclMirrorActionSupported) {
  announced({"dpMacAclMirrorActionSupported"});
  mirrors(AclType::mac);
}

TEST_F(Capability, dpAclSctpSupported) {
  announced({"dpAclSctpSupported"});
  ip([](Acl::IpFilter& f) { f.protocolNamed = true, f.protocol = 132; }, ip4().sctp(1, 2), ip4().udp(1, 2));
  ipv6([](Acl::Ip6Filter& f) { f.protocolNamed = true, f.protocol = 132; }, ip6().sctp(1, 2),
       ip6().udp(1, 2));
}
TEST_F(Capability, dpAclSctpPortMatchSupported) {
  announced({"dpAclSctpPortMatchSupported"});
  ip(
      [](Acl::IpFilter& f) {
        f.destinationPort = {Acl::Compare::eq, 1, {2905}};
      },
      ip4().sctp(1, 2905), ip4().sctp(2905, 2906));
  ipv6(
      [](Acl::Ip6Filter& f) {
        f.sourcePort = {Acl::Compare::range, 2, {2905, 2907}};
      },
      ip6().sctp(2907, 1), ip6().sctp(2908, 2906));
}

TEST_F(Capability, dpAclVlanSupported) {
  announced({"dpAclVlanSupported"});
  const auto tagged = [](uint16_t id) { return frame().eth().vlan(id); };
  constexpr const char *a = "192.0.2.1", *b = "192.0.2.2";
  ip(
      [](Acl::IpFilter& f) {
        f.vlan = {true, 100, 0};
      },
      tagged(100).ip4(a, b).tcp(1, 2), tagged(101).ip4(a, b).tcp(1, 2));
  ipv6(
      [](Acl::Ip6Filter& f) {
        f.vlan = {true, 100, 0};
      },
      tagged(100).ip6("::1", "::2").tcp(1, 2), tagged(101).ip6("::1", "::2").tcp(1, 2));
}
TEST_F(Capability, vlanSupported) {
  announced({"vlanSupported"});
  mac(
      [](Acl::MacFilter& f) {
        f.vlan = {true, 200, 0x00f};
      },
      frame().eth().vlan(207).arp("192.0.2.1", "192.0.2.2"),
      frame().eth().vlan(208).arp("192.0.2.1", "192.0.2.2"));
}

}  // namespace
