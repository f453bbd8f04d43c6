#pragma once

#include <Velo/ParseFault.h>

#include <cstdint>
#include <vector>

namespace Agent {

// Each takes a correct header and damages it so that a parser finds the fault. Some faults are not in the
// header: the frame is too short, has a third tag, or has zeros in place of an IP header. Then the header
// stays as it is.
void damageIp4(std::vector<uint8_t>& header, Velo::ParseFault fault);
void damageIp6(std::vector<uint8_t>& header, Velo::ParseFault fault);
/// TCP, UDP, SCTP, ICMP or ICMPv6.
void damageL4(std::vector<uint8_t>& header, Velo::ParseFault fault);

}  // namespace Agent
