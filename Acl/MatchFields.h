#pragma once

#include <Acl/Filter.h>
#include <Nimnet/Ip6Hdr.h>
#include <Nimnet/IpHdr.h>
#include <Nimnet/L4Hdr.h>

#include <array>
#include <string>
#include <string_view>
#include <utility>

/// The conditions that a rule can have, a row for each. The reference matcher tests all of them; an
/// explanation of a verdict tests the same rows to find those that failed.
namespace Acl {

/// The fields of a packet that both IPv4 and IPv6 rules are matched with.
struct IpBaseFields {
  bool protocolKnown = true;
  uint8_t protocol = 0;
  uint8_t trafficClass = 0;
  uint8_t hops = 0;
  bool nonFirstFragment = false;
  uint16_t vlanId = 0;
  bool vlanKnown = true;
  bool hopsKnown = true;
  bool hasPorts = false;
  uint16_t sourcePort = 0;
  uint16_t destinationPort = 0;
  bool hasTcp = false;
  uint8_t tcpFlags = 0;
  bool hasIcmp = false;
  uint8_t icmpType = 0;
  uint8_t icmpCode = 0;

  /// Sets the fields of the L4 header.
  void l4Is(const Nimnet::L4& l4) {
    const auto portsOf = [this](const auto* hdr) {
      hasPorts = true;
      sourcePort = hdr->sourcePort();
      destinationPort = hdr->destinationPort();
    };
    const auto messageOf = [this](const auto* hdr) {
      hasIcmp = true;
      icmpType = hdr->type();
      icmpCode = hdr->code();
    };
    switch (l4.kind()) {
      case Nimnet::L4Kind::none:
        return;
      case Nimnet::L4Kind::tcp:
        hasTcp = true;
        tcpFlags = l4.as<Nimnet::TcpHdr>()->flags();
        return portsOf(l4.as<Nimnet::TcpHdr>());
      case Nimnet::L4Kind::udp:
        return portsOf(l4.as<Nimnet::UdpHdr>());
      case Nimnet::L4Kind::sctp:
        return portsOf(l4.as<Nimnet::SctpHdr>());
      case Nimnet::L4Kind::icmp:
        return messageOf(l4.as<Nimnet::IcmpHdr>());
      case Nimnet::L4Kind::icmp6:
        return messageOf(l4.as<Nimnet::Icmp6Hdr>());
    }
  }
};

/// The fields that IPv4 rules are matched with.
struct IpFields : IpBaseFields {
  Nimnet::IpAddr source, destination;
  explicit IpFields(const Nimnet::IpHdr& ip);
};

/// The fields that IPv6 rules are matched with.
struct Ip6Fields : IpBaseFields {
  Nimnet::Ip6Addr source, destination;
  explicit Ip6Fields(const Nimnet::Ip6Hdr& ip6);
};

/// The fields that MAC rules are matched with. MPLS labels are not among them.
struct MacFields {
  Nimnet::EthAddr source, destination;
  uint16_t etherType = 0;
  uint16_t vlanId = 0;
};

/// One condition: its name for people, a test whether a packet meets the condition of a filter (a filter
/// without this condition is always met), and the packet's value for people.
template <class Filter, class Fields>
struct FieldTest {
  std::string_view name;
  bool (*matches)(const Filter& filter, const Fields& packet);
  std::string (*shown)(const Fields& packet);
};

constexpr bool sameBits(Nimnet::IpAddr a, Nimnet::IpAddr b, Nimnet::IpAddr mask) {
  return ((a.value ^ b.value) & mask.value) == 0;
}
constexpr bool sameBits(const Nimnet::Ip6Addr& a, const Nimnet::Ip6Addr& b, const Nimnet::Ip6Addr& mask) {
  return (((a.high ^ b.high) & mask.high) | ((a.low ^ b.low) & mask.low)) == 0;
}
constexpr bool sameBits(Nimnet::EthAddr a, Nimnet::EthAddr b, Nimnet::EthAddr mask) {
  return ((a.value() ^ b.value()) & mask.value()) == 0;
}

namespace Shown {
std::string vlan(bool known, uint16_t id);
std::string protocol(const IpBaseFields& packet);
std::string number(bool known, uint32_t value);
std::string tcpFlags(const IpBaseFields& packet);
}  // namespace Shown

/// The rows themselves.
namespace FieldTests {

/// The addresses of any kind of rule.
template <class Filter, class Fields>
inline constexpr std::array<FieldTest<Filter, Fields>, 2> addressTests = {{
    {"source", [](const Filter& f, const Fields& p) { return sameBits(p.source, f.source, f.sourceMask); },
     [](const Fields& p) { return p.source.str(); }},
    {"destination",
     [](const Filter& f, const Fields& p) {
       return sameBits(p.destination, f.destination, f.destinationMask);
     },
     [](const Fields& p) { return p.destination.str(); }},
}};

using F = IpFilterBase;
using P = IpBaseFields;

/// Everything else of an IP rule.
inline constexpr std::array<FieldTest<F, P>, 11> ipTests = {{
    {"vlan",
     [](const F& f, const P& p) { return f.vlan.isAny() || (p.vlanKnown && f.vlan.matches(p.vlanId)); },
     [](const P& p) { return Shown::vlan(p.vlanKnown, p.vlanId); }},
    {"protocol",
     [](const F& f, const P& p) { return !f.protocolNamed || (p.protocolKnown && f.protocol == p.protocol); },
     Shown::protocol},
    {"traffic class",
     [](const F& f, const P& p) { return ((p.trafficClass ^ f.trafficClass) & f.trafficClassMask) == 0; },
     [](const P& p) { return fmt::format("0x{:02x}, dscp {}", p.trafficClass, p.trafficClass >> 2); }},
    {"ttl", [](const F& f, const P& p) { return f.hops.isAny() || (p.hopsKnown && f.hops.matches(p.hops)); },
     [](const P& p) { return Shown::number(p.hopsKnown, p.hops); }},
    {"fragments", [](const F& f, const P& p) { return !f.fragments || p.nonFirstFragment; },
     [](const P& p) { return std::string(p.nonFirstFragment ? "a later fragment" : "no later fragment"); }},
    {"source port",
     [](const F& f, const P& p) {
       return f.sourcePort.isAny() || (p.hasPorts && f.sourcePort.matches(p.sourcePort));
     },
     [](const P& p) { return Shown::number(p.hasPorts, p.sourcePort); }},
    {"destination port",
     [](const F& f, const P& p) {
       return f.destinationPort.isAny() || (p.hasPorts && f.destinationPort.matches(p.destinationPort));
     },
     [](const P& p) { return Shown::number(p.hasPorts, p.destinationPort); }},
    {"established",
     [](const F& f, const P& p) {
       return !f.established || (p.hasTcp && (p.tcpFlags & (Nimnet::TcpHdr::ack | Nimnet::TcpHdr::rst)) != 0);
     },
     Shown::tcpFlags},
    {"tcp flags",
     [](const F& f, const P& p) {
       return f.tcpFlags == 0 || (p.hasTcp && (p.tcpFlags & f.tcpFlags) == f.tcpFlags);
     },
     Shown::tcpFlags},
    {"icmp type",
     [](const F& f, const P& p) { return !f.icmpTypeNamed || (p.hasIcmp && f.icmpType == p.icmpType); },
     [](const P& p) { return Shown::number(p.hasIcmp, p.icmpType); }},
    {"icmp code",
     [](const F& f, const P& p) { return !f.icmpCodeNamed || (p.hasIcmp && f.icmpCode == p.icmpCode); },
     [](const P& p) { return Shown::number(p.hasIcmp, p.icmpCode); }},
}};

/// Everything else of a MAC rule.
inline constexpr std::array<FieldTest<MacFilter, MacFields>, 3> macTests = {{
    {"vlan", [](const MacFilter& f, const MacFields& p) { return f.vlan.matches(p.vlanId); },
     [](const MacFields& p) { return Shown::vlan(true, p.vlanId); }},
    {"ethertype",
     [](const MacFilter& f, const MacFields& p) { return !f.etherTypeNamed || f.etherType == p.etherType; },
     [](const MacFields& p) { return fmt::format("0x{:04x}", p.etherType); }},
    {"mpls label", [](const MacFilter& f, const MacFields&) { return f.mpls.isAny(); },
     [](const MacFields&) { return std::string("not looked at"); }},
}};

/// Calls `visit` with each row until it returns false.
template <const auto& tests, class Visit>
constexpr bool visitAll(const Visit& visit) {
  return [&]<size_t... i>(std::index_sequence<i...>) { return (visit(tests[i]) && ...); }
  (std::make_index_sequence<tests.size()>());
}

}  // namespace FieldTests

/// Calls `visit` with each condition of a kind of rule until it returns false. Returns true when it never
/// did.
template <class Visit>
constexpr bool visitTests(const IpFilter&, const IpFields&, const Visit& visit) {
  using namespace FieldTests;
  return visitAll<addressTests<IpFilter, IpFields>>(visit) && visitAll<ipTests>(visit);
}
template <class Visit>
constexpr bool visitTests(const Ip6Filter&, const Ip6Fields&, const Visit& visit) {
  using namespace FieldTests;
  return visitAll<addressTests<Ip6Filter, Ip6Fields>>(visit) && visitAll<ipTests>(visit);
}
template <class Visit>
constexpr bool visitTests(const MacFilter&, const MacFields&, const Visit& visit) {
  using namespace FieldTests;
  return visitAll<addressTests<MacFilter, MacFields>>(visit) && visitAll<macTests>(visit);
}

/// True when a packet meets every condition of a filter, or of one of those that it stands for.
template <class Filter, class Fields>
bool matchesFilter(const Filter& filter, const Fields& packet) {
  return !visitFilters(filter, [&packet](const Filter& one) {
    return !visitTests(one, packet, [&](const auto& test) { return test.matches(one, packet); });
  });
}

}  // namespace Acl
