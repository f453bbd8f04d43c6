#pragma once

#include <Velo/ParsedPacket.h>

#include <cstdint>

namespace Velo {

/// A number that is the same for all packets of a flow. For IP packets it is made from addresses, protocol
/// and ports; for fragments without the ports (and for IPv6 without the protocol), so that all fragments of a
/// datagram have the same number. For other packets it is made from the MAC addresses. Call after the full
/// parse.
uint32_t flowHash(const ParsedPacket& packet);

}  // namespace Velo
