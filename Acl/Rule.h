#pragma once

#include <Acl/Types.h>
#include <Kelp/String.h>
#include <Nimnet/Addr.h>

#include <array>
#include <cstdint>
#include <type_traits>

namespace Acl {

/// How a field is compared with the operands of a rule.
enum class Compare : uint8_t { any, eq, neq, lt, gt, range };

/// A condition on an L4 port: eq and neq take one to ten ports, lt and gt one, range a low and a high one
/// (both included).
struct PortMatch {
  static constexpr int maxPorts = 10;

  Compare op = Compare::any;
  uint8_t count = 0;
  std::array<uint16_t, maxPorts> ports{};

  bool isAny() const { return op == Compare::any; }
  bool matches(uint16_t port) const;
  bool operator==(const PortMatch&) const = default;
};

/// A condition on the TTL or hop limit.
struct HopMatch {
  Compare op = Compare::any;
  uint8_t value = 0;

  bool isAny() const { return op == Compare::any; }
  bool matches(uint8_t hops) const;
  bool operator==(const HopMatch&) const = default;
};

/// A condition on the outer VLAN id, 0 for untagged and priority-tagged frames; set wildcard bits are
/// ignored.
struct VlanMatch {
  bool named = false;
  uint16_t id = 0;
  uint16_t wildcard = 0;

  bool isAny() const { return !named; }
  bool matches(uint16_t vlanId) const { return !named || ((vlanId ^ id) & ~wildcard & 0xfff) == 0; }
  bool operator==(const VlanMatch&) const = default;
};

/// What the two IP filters share.
struct IpFilterBase {
  VlanMatch vlan;
  bool protocolNamed = false;
  uint8_t protocol = 0;  ///< IPv4 protocol; for IPv6 the last header of the chain
  PortMatch sourcePort;  ///< of TCP, UDP and SCTP
  PortMatch destinationPort;
  bool icmpTypeNamed = false;  ///< ICMP or ICMPv6, as the protocol says
  bool icmpCodeNamed = false;
  uint8_t icmpType = 0;
  uint8_t icmpCode = 0;
  bool established = false;  ///< TCP with ACK or RST set
  uint8_t tcpFlags = 0;      ///< TCP flags (RFC 9293, 3.1, low six bits) that must all be set
  uint8_t trafficClass = 0;  ///< the eight bits of IPv4 TOS and IPv6 traffic class (RFC 2474): DSCP * 4 + ECN
  uint8_t trafficClassMask = 0;  ///< its bits that are compared
  HopMatch hops;
  bool fragments = false;  ///< non-first fragments only

  /// True when the rule asks for something of the L4 header; such a rule never matches a non-first fragment.
  bool needsL4() const {
    return !sourcePort.isAny() || !destinationPort.isAny() || icmpTypeNamed || icmpCodeNamed || established ||
           tcpFlags;
  }
  bool operator==(const IpFilterBase&) const = default;
};

/// An IPv4 filter; the set bits of a mask are compared, and they may be anywhere.
struct IpFilter : IpFilterBase {
  Nimnet::IpAddr source, sourceMask;
  Nimnet::IpAddr destination, destinationMask;
  bool operator==(const IpFilter&) const = default;
};

/// An IPv6 filter; the set bits of a mask are compared, and they may be anywhere.
struct Ip6Filter : IpFilterBase {
  Nimnet::Ip6Addr source, sourceMask;
  Nimnet::Ip6Addr destination, destinationMask;
  bool operator==(const Ip6Filter&) const = default;
};

/// MPLS labels asked for by a MAC filter (RFC 3032, 2.1): 20 bits each.
struct MplsFilter {
  bool labelNamed = false;
  bool innerLabelNamed = false;
  int32_t label = 0;
  int32_t innerLabel = 0;
  bool operator==(const MplsFilter&) const = default;
};

/// A MAC filter; the set bits of a mask are compared, and they may be anywhere. Setting a label outside 20
/// bits, and copying a filter that has one, throws std::range_error; moving does not look.
class MacFilter {
 public:
  MacFilter() = default;
  MacFilter(const MacFilter& other);
  MacFilter(MacFilter&&) = default;
  MacFilter& operator=(const MacFilter& other) { return *this = MacFilter(other); }
  MacFilter& operator=(MacFilter&&) = default;

  VlanMatch vlan;
  Nimnet::EthAddr source, sourceMask;
  Nimnet::EthAddr destination, destinationMask;
  bool etherTypeNamed = false;
  uint16_t etherType = 0;  ///< the type behind the tags

  /// Its labels are not checked until the filter is copied.
  MplsFilter mpls;
  void mplsLabelIs(int32_t label);
  void mplsInnerLabelIs(int32_t label);

  bool operator==(const MacFilter&) const = default;
};

/// What every rule has. A default-constructed rule permits and is equal to no configured deny.
struct RuleConfig {
  uint32_t sequence = 0;  ///< 1 to 4294967295; rules are tried smallest first
  Action action = Action::permit;
  bool log = false;            ///< kept and shown; the packet path does not act on it
  Kelp::String mirrorSession;  ///< empty: no mirroring
  Kelp::String text;           ///< as it was typed, without the number
  Kelp::String remark;         ///< the remarks in front of the rule, a line each

  bool operator==(const RuleConfig&) const = default;

 protected:
  /// Equal in everything that makes it this rule: all but remark and spelling.
  bool sameRule(const RuleConfig& other) const {
    return sequence == other.sequence && action == other.action && log == other.log &&
           mirrorSession == other.mirrorSession;
  }
};

/// A rule with the filter of its kind of list.
template <class Filter>
struct FilterRuleConfig : RuleConfig {
  using FilterType = Filter;
  Filter filter;

  bool isEq(const FilterRuleConfig& other) const { return *this == other; }
  /// False when it would be another rule, with an id of its own: anything but remark and spelling differs.
  bool isSameRule(const FilterRuleConfig& other) const { return sameRule(other) && filter == other.filter; }
  bool operator==(const FilterRuleConfig&) const = default;
};

struct IpRuleConfig : FilterRuleConfig<IpFilter> {};
struct Ip6RuleConfig : FilterRuleConfig<Ip6Filter> {};
struct MacRuleConfig : FilterRuleConfig<MacFilter> {};

/// The kind of list that has rules of this kind.
template <class Rule>
inline constexpr AclType listTypeOf = std::is_same_v<Rule, IpRuleConfig>    ? AclType::ip
                                      : std::is_same_v<Rule, Ip6RuleConfig> ? AclType::ipv6
                                                                            : AclType::mac;

/// Calls visit(std::type_identity<Rule>()) for the rules that lists of a type have.
template <class Visit>
auto withRuleType(AclType type, const Visit& visit) {
  switch (type) {
    case AclType::ip:
      return visit(std::type_identity<IpRuleConfig>());
    case AclType::ipv6:
      return visit(std::type_identity<Ip6RuleConfig>());
    case AclType::mac:
      break;
  }
  return visit(std::type_identity<MacRuleConfig>());
}

}  // namespace Acl
