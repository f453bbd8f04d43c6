#include <Nimnet/L4Hdr.h>
#include <agent/explain/FrameDamage.h>

#include <span>

namespace Agent {

namespace {

using Nimnet::TcpHdr;
using Velo::ParseFault;

using Octets = std::vector<uint8_t>;

struct Damage {
  Velo::ParseFault fault;
  void (*done)(Octets& header);
};

void totalLengthIs(Octets& ip, uint8_t high, uint8_t low) {
  ip[2] = high;
  ip[3] = low;
}

constexpr Damage ip4Damages[] = {
    // A header with options, before which the capture ends: see captured() in FrameDraft.h.
    {ParseFault::ipHeaderCut, [](Octets& ip) { ip[0] = 0x46, totalLengthIs(ip, 0, 24); }},
    {ParseFault::ipHeaderLength, [](Octets& ip) { ip[0] = 0x44; }},
    {ParseFault::ipTotalLengthTooShort, [](Octets& ip) { totalLengthIs(ip, 0, 0); }},
    {ParseFault::ipTotalLengthTooLong, [](Octets& ip) { totalLengthIs(ip, 0xff, 0xff); }},
};
constexpr Damage ip6Damages[] = {
    {ParseFault::ip6PayloadLengthTooLong, [](Octets& ip) { ip[4] = ip[5] = 0xff; }},
};
constexpr Damage l4Damages[] = {
    {ParseFault::tcpHeaderCut, [](Octets& l4) { l4.resize(TcpHdr::minSize / 2); }},
    {ParseFault::tcpDataOffsetTooShort, [](Octets& l4) { l4[12] = 4 << 4; }},
    {ParseFault::tcpDataOffsetTooLong, [](Octets& l4) { l4[12] = 15 << 4; }},
    {ParseFault::udpHeaderCut, [](Octets& l4) { l4.resize(Nimnet::UdpHdr::minSize / 2); }},
    {ParseFault::udpLengthTooShort, [](Octets& l4) { l4[5] = Nimnet::UdpHdr::minSize - 1; }},
    {ParseFault::sctpHeaderCut, [](Octets& l4) { l4.resize(Nimnet::SctpHdr::minSize / 2); }},
    {ParseFault::icmpHeaderCut, [](Octets& l4) { l4.resize(Nimnet::IcmpHdr::minSize / 2); }},
    {ParseFault::icmp6HeaderCut, [](Octets& l4) { l4.resize(Nimnet::Icmp6Hdr::minSize / 2); }},
};

void damage(Octets& header, ParseFault fault, std::span<const Damage> damages) {
  for (const Damage& each : damages) {
    if (each.fault == fault) each.done(header);
  }
}

}  // namespace

void damageIp4(Octets& header, ParseFault fault) { damage(header, fault, ip4Damages); }
void damageIp6(Octets& header, ParseFault fault) { damage(header, fault, ip6Damages); }
void damageL4(Octets& header, ParseFault fault) { damage(header, fault, l4Damages); }

}  // namespace Agent
