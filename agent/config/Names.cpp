#include <agent/config/Names.h>

#include <algorithm>

namespace Config {

namespace {

constexpr NamedNumber protocols[] = {
    {"tcp", protocolTcp},
    {"udp", protocolUdp},
    {"icmp", protocolIcmp},
    {"icmpv6", protocolIcmpV6},
    {"icmp6", protocolIcmpV6},
    {"ipv6-icmp", protocolIcmpV6},
    {"sctp", protocolSctp},
    {"ah", 51},
    {"ahp", 51},
    {"dccp", 33},
    {"egp", 8},
    {"eigrp", 88},
    {"esp", 50},
    {"etherip", 97},
    {"gre", 47},
    {"igmp", 2},
    {"igp", 9},
    {"igrp", 9},
    {"ipcomp", 108},
    {"ipinip", 4},
    {"isis", 124},
    {"l2tp", 115},
    {"mobility", 135},
    {"mpls", 137},
    {"ospf", 89},
    {"ospfigp", 89},
    {"ospfv3", 89},
    {"pcp", 108},
    {"pim", 103},
    {"rdp", 27},
    {"rsvp", 46},
    {"udplite", 136},
    {"vrrp", 112},
};

constexpr NamedNumber dscps[] = {
    {"default", 0}, {"le", 1},    {"cs0", 0},   {"cs1", 8},          {"cs2", 16},  {"cs3", 24},  {"cs4", 32},
    {"cs5", 40},    {"cs6", 48},  {"cs7", 56},  {"af11", 10},        {"af12", 12}, {"af13", 14}, {"af21", 18},
    {"af22", 20},   {"af23", 22}, {"af31", 26}, {"af32", 28},        {"af33", 30}, {"af41", 34}, {"af42", 36},
    {"af43", 38},   {"ef", 46},   {"va", 44},   {"voice-admit", 44},
};

constexpr NamedNumber etherTypes[] = {
    {"ip", 0x0800},
    {"ipv4", 0x0800},
    {"ipv6", 0x86dd},
    {"arp", 0x0806},
    {"aarp", 0x80f3},
    {"appletalk", 0x809b},
    {"cfm", 0x8902},
    {"decnet", 0x6003},
    {"eapol", 0x888e},
    {"fcoe", 0x8906},
    {"fip", 0x8914},
    {"ipx", 0x8137},
    {"lat", 0x6004},
    {"lldp", 0x88cc},
    {"loopback", 0x9000},
    {"mac-control", 0x8808},
    {"macsec", 0x88e5},
    {"mop-console", 0x6002},
    {"mop-dump", 0x6001},
    {"mpls", 0x8847},
    {"mpls-unicast", 0x8847},
    {"mpls-multicast", 0x8848},
    {"pppoe-discovery", 0x8863},
    {"pppoe-session", 0x8864},
    {"profinet", 0x8892},
    {"ptp", 0x88f7},
    {"rarp", 0x8035},
    {"slow-protocols", 0x8809},
    {"trill", 0x22f3},
    {"vines-ip", 0x0bad},
    {"wake-on-lan", 0x0842},
};

constexpr IcmpMessage icmpV4[] = {
    {"echo-reply", 0},
    {"unreachable", 3},
    {"destination-unreachable", 3},
    {"net-unreachable", 3, 0},
    {"host-unreachable", 3, 1},
    {"protocol-unreachable", 3, 2},
    {"port-unreachable", 3, 3},
    {"packet-too-big", 3, 4},
    {"fragmentation-needed", 3, 4},
    {"source-route-failed", 3, 5},
    {"network-unknown", 3, 6},
    {"host-unknown", 3, 7},
    {"host-isolated", 3, 8},
    {"net-prohibited", 3, 9},
    {"dod-net-prohibited", 3, 9},
    {"host-prohibited", 3, 10},
    {"dod-host-prohibited", 3, 10},
    {"net-tos-unreachable", 3, 11},
    {"host-tos-unreachable", 3, 12},
    {"administratively-prohibited", 3, 13},
    {"host-precedence-unreachable", 3, 14},
    {"precedence-unreachable", 3, 15},
    {"source-quench", 4},
    {"redirect", 5},
    {"net-redirect", 5, 0},
    {"host-redirect", 5, 1},
    {"net-tos-redirect", 5, 2},
    {"host-tos-redirect", 5, 3},
    {"alternate-address", 6},
    {"echo", 8},
    {"echo-request", 8},
    {"router-advertisement", 9},
    {"router-solicitation", 10},
    {"time-exceeded", 11},
    {"ttl-exceeded", 11, 0},
    {"reassembly-timeout", 11, 1},
    {"parameter-problem", 12},
    {"general-parameter-problem", 12, 0},
    {"option-missing", 12, 1},
    {"bad-length", 12, 2},
    {"no-room-for-option", 12, 2},
    {"timestamp-request", 13},
    {"timestamp-reply", 14},
    {"information-request", 15},
    {"information-reply", 16},
    {"mask-request", 17},
    {"address-mask-request", 17},
    {"mask-reply", 18},
    {"address-mask-reply", 18},
    {"traceroute", 30},
    {"conversion-error", 31},
    {"mobile-redirect", 32},
    {"photuris", 40},
    {"extended-echo", 42},
    {"extended-echo-request", 42},
    {"extended-echo-reply", 43},
};

constexpr IcmpMessage icmpV6[] = {
    {"unreachable", 1},
    {"destination-unreachable", 1},
    {"no-route", 1, 0},
    {"administratively-prohibited", 1, 1},
    {"no-admin", 1, 1},
    {"beyond-scope", 1, 2},
    {"address-unreachable", 1, 3},
    {"port-unreachable", 1, 4},
    {"source-policy-failed", 1, 5},
    {"reject-route", 1, 6},
    {"packet-too-big", 2},
    {"time-exceeded", 3},
    {"hop-limit-exceeded", 3, 0},
    {"reassembly-timeout", 3, 1},
    {"parameter-problem", 4},
    {"erroneous-header", 4, 0},
    {"unknown-next-header", 4, 1},
    {"unknown-option", 4, 2},
    {"echo", 128},
    {"echo-request", 128},
    {"echo-reply", 129},
    {"mld-query", 130},
    {"mld-report", 131},
    {"mld-reduction", 132},
    {"mld-done", 132},
    {"router-solicitation", 133},
    {"router-advertisement", 134},
    {"neighbor-solicitation", 135},
    {"nd-ns", 135},
    {"neighbor-advertisement", 136},
    {"nd-na", 136},
    {"redirect", 137},
    {"router-renumbering", 138},
    {"node-information-query", 139},
    {"node-information-reply", 140},
    {"inverse-neighbor-solicitation", 141},
    {"inverse-neighbor-advertisement", 142},
    {"mldv2", 143},
    {"mldv2-report", 143},
    {"home-agent-discovery-request", 144},
    {"home-agent-discovery-reply", 145},
    {"mobile-prefix-solicitation", 146},
    {"mobile-prefix-advertisement", 147},
    {"certification-path-solicitation", 148},
    {"certification-path-advertisement", 149},
    {"multicast-router-advertisement", 151},
    {"multicast-router-solicitation", 152},
    {"multicast-router-termination", 153},
    {"rpl-control", 155},
    {"extended-echo-request", 160},
    {"extended-echo-reply", 161},
};

template <class Number>
std::optional<Number> find(std::span<const NamedNumber> table, std::string_view name) {
  const auto at = std::find_if(table.begin(), table.end(), [&](const auto& row) { return row.name == name; });
  if (at == table.end()) return {};
  return static_cast<Number>(at->number);
}

}  // namespace

std::optional<uint8_t> protocolNumber(std::string_view name) { return find<uint8_t>(protocols, name); }
std::optional<uint8_t> dscpNumber(std::string_view name) { return find<uint8_t>(dscps, name); }
std::optional<uint16_t> etherTypeNumber(std::string_view name) { return find<uint16_t>(etherTypes, name); }

std::span<const NamedNumber> protocolNames() { return protocols; }
std::span<const NamedNumber> dscpNames() { return dscps; }
std::span<const NamedNumber> etherTypeNames() { return etherTypes; }

std::span<const IcmpMessage> icmpMessages(uint8_t icmpProtocol) {
  if (icmpProtocol == protocolIcmp) return icmpV4;
  if (icmpProtocol == protocolIcmpV6) return icmpV6;
  return {};
}

const IcmpMessage* icmpMessage(std::string_view name, uint8_t icmpProtocol) {
  for (const auto& message : icmpMessages(icmpProtocol)) {
    if (message.name == name) return &message;
  }
  return nullptr;
}

}  // namespace Config
