#pragma once

#include <Nimnet/Addr.h>

#include <array>
#include <cstdint>
#include <memory>
#include <utility>
#include <vector>

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

/// Filters of which a packet has to match any one: a rule that names groups stands for them. All copies share
/// them, and they are never changed. None of them has alternatives of its own.
template <class Filter>
class Alternatives {
 public:
  /// There are none: the filter alone says what matches.
  Alternatives() = default;
  /// The filter matches what one of `all` matches; nothing when `all` is empty.
  explicit Alternatives(std::vector<Filter> all)
      : all_(std::make_shared<const std::vector<Filter>>(std::move(all))) {}

  bool given() const { return all_ != nullptr; }
  /// Only when they are given.
  const std::vector<Filter>& all() const { return *all_; }

  /// Equal filters in the same order, wherever they lie.
  bool operator==(const Alternatives& other) const {
    return all_ == other.all_ || (all_ && other.all_ && *all_ == *other.all_);
  }

 private:
  std::shared_ptr<const std::vector<Filter>> all_;
};

/// An IPv4 filter; the set bits of a mask are compared, and they may be anywhere.
struct IpFilter : IpFilterBase {
  Nimnet::IpAddr source, sourceMask;
  Nimnet::IpAddr destination, destinationMask;
  Alternatives<IpFilter> alternatives;  ///< given: what all of them ask is above, too
  bool operator==(const IpFilter&) const = default;
};

/// An IPv6 filter; the set bits of a mask are compared, and they may be anywhere.
struct Ip6Filter : IpFilterBase {
  Nimnet::Ip6Addr source, sourceMask;
  Nimnet::Ip6Addr destination, destinationMask;
  Alternatives<Ip6Filter> alternatives;  ///< given: what all of them ask is above, too
  bool operator==(const Ip6Filter&) const = default;
};

/// Calls visit(filter) with each filter that a filter stands for, itself when it has no alternatives, until
/// it returns false; returns whether it never did.
template <class Filter, class Visit>
bool visitFilters(const Filter& filter, const Visit& visit) {
  if constexpr (requires { filter.alternatives; }) {
    if (filter.alternatives.given()) [[unlikely]] {
      for (const Filter& each : filter.alternatives.all()) {
        if (!visit(each)) return false;
      }
      return true;
    }
  }
  return visit(filter);
}

/// MPLS labels asked for by a MAC filter (RFC 3032, 2.1): 20 bits each, 0 to 0xFFFFF.
class MplsFilter {
 public:
  /// What the filter consists of.
  struct Labels {
    bool labelNamed = false;
    bool innerLabelNamed = false;
    int32_t label = 0;
    int32_t innerLabel = 0;
    bool operator==(const Labels&) const = default;
  };

  MplsFilter() = default;

  /// Throw std::range_error, and set nothing, when the label is outside 20 bits.
  void labelIs(int32_t label);
  void innerLabelIs(int32_t label);

  /// Throws the same when either label, asked for or not, is outside 20 bits.
  void check() const {
    if (isLabel(labels_.label) && isLabel(labels_.innerLabel)) [[likely]]
      return;
    refuse();
  }

  bool labelNamed() const { return labels_.labelNamed; }
  bool innerLabelNamed() const { return labels_.innerLabelNamed; }
  int32_t label() const { return labels_.label; }
  int32_t innerLabel() const { return labels_.innerLabel; }
  bool isAny() const { return !labels_.labelNamed && !labels_.innerLabelNamed; }
  bool operator==(const MplsFilter&) const = default;

 private:
  friend struct UncheckedMpls;  // tests/support/UncheckedMpls.h: a label that cannot be
  static constexpr bool isLabel(int32_t label) { return label >= 0 && label <= 0xFFFFF; }
  [[noreturn]] void refuse() const;

  Labels labels_;
};

/// A MAC filter; the set bits of a mask are compared, and they may be anywhere.
struct MacFilter {
  VlanMatch vlan;
  Nimnet::EthAddr source, sourceMask;
  Nimnet::EthAddr destination, destinationMask;
  bool etherTypeNamed = false;
  uint16_t etherType = 0;  ///< the type behind the tags
  MplsFilter mpls;

  /// See MplsFilter.
  void mplsLabelIs(int32_t label) { mpls.labelIs(label); }
  void mplsInnerLabelIs(int32_t label) { mpls.innerLabelIs(label); }
  bool operator==(const MacFilter&) const = default;
};

}  // namespace Acl
