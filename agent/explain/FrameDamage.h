#pragma once

#include <Velo/ParseFault.h>

#include <cstdint>
#include <vector>

namespace Agent {

// Damage a header, which is given as it would be right, so that a parser finds a fault in it. A fault that
// needs no damage of this header leaves it as it is: the frame is too short, has a third tag, or has zeros in
// place of an IP header.
void damageIp4(std::vector<uint8_t>& header, Velo::ParseFault fault);
void damageIp6(std::vector<uint8_t>& header, Velo::ParseFault fault);
/// TCP, UDP, SCTP, ICMP or ICMPv6.
void damageL4(std::vector<uint8_t>& header, Velo::ParseFault fault);

}  // namespace Agent
