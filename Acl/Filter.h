#pragma once

#include <Acl/Conditions.h>
#include <Nimnet/Addr.h>

#include <cstdint>
#include <memory>
#include <utility>
#include <vector>

namespace Acl {

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
  Alternatives<IpFilter> alternatives;  ///< when given, the fields above ask only for what all of them ask
  bool operator==(const IpFilter&) const = default;
};

/// An IPv6 filter; the set bits of a mask are compared, and they may be anywhere.
struct Ip6Filter : IpFilterBase {
  Nimnet::Ip6Addr source, sourceMask;
  Nimnet::Ip6Addr destination, destinationMask;
  Alternatives<Ip6Filter> alternatives;  ///< when given, the fields above ask only for what all of them ask
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
