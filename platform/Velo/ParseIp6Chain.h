#pragma once

#include <Nimnet/Ip6Hdr.h>
#include <Velo/ParseFault.h>

#include <cstdint>

namespace Velo {

/// Walks the chain (RFC 8200, 4) that begins with a header of the kind `nextHeader` at offset `at` of
/// `frame`; `at` <= `end`, and nothing is read from `end` on. Hop-by-hop, routing, destination options,
/// authentication (RFC 4302) and fragment headers are extension headers, in any order; everything else is
/// upper layer, a mobility header and "no next header" included. The walk ends behind the fragment header of
/// a non-first fragment: what follows there is data.
///
/// Fills in `chain`, which is given empty, and moves `at` to where the walk ended: without a fault that is
/// the upper-layer header, with one the extension header that has it.
ParseFault walkIp6Chain(const uint8_t* frame, uint32_t& at, uint32_t end, uint8_t nextHeader,
                        uint32_t maxHeaders, Nimnet::Ip6Chain& chain);

}  // namespace Velo
