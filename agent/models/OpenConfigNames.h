#pragma once

#include <agent/config/Names.h>

#include <span>
#include <string_view>

namespace Models {

// The identities of OpenConfig's modules that stand for numbers.

/// Of openconfig-packet-match-types.
std::span<const Config::NamedNumber> openConfigProtocols();
std::span<const Config::NamedNumber> openConfigEtherTypes();
/// TCP flags, as the bits of the header (RFC 9293, 3.1).
std::span<const Config::NamedNumber> openConfigFlags();

/// Of openconfig-icmpv4-types or -icmpv6-types: types, and codes with their types. Those of RFC 792, 1256,
/// 4443, 4861 and the like; of some newer codes the modules do not say the number.
std::span<const Config::IcmpMessage> openConfigIcmp(uint8_t icmpProtocol);

}  // namespace Models
