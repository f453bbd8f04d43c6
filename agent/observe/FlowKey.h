#pragma once

#include <Acl/Types.h>
#include <Kelp/Hash.h>
#include <Nimnet/Addr.h>
#include <Nimnet/IntfId.h>
#include <Velo/ParsedPacket.h>

#include <cstdint>
#include <string>
#include <utility>

namespace Agent {

/// What packets that match a rule have in common when they belong to one flow: rule, interface, addresses,
/// and what `kind` says. A plain value, which may be read on any thread.
struct FlowKey {
  /// What `first` and `second` are.
  enum class Kind : uint8_t {
    ports,            ///< of source and destination
    icmp,             ///< type and code
    laterFragment,    ///< nothing: fragments behind the first one have no ports
    protocolOnly,     ///< nothing
    unknownProtocol,  ///< nothing, and `protocol` is nothing either: the chain of headers is malformed
    ethernet,         ///< `first` is the type or length field
  };

  uint64_t source[2]{};  ///< an address as a number, its lower half last
  uint64_t destination[2]{};
  Nimnet::IntfId intf{};
  uint32_t rule = 0;  ///< a number that whoever follows the rule has given it
  uint16_t first = 0;
  uint16_t second = 0;
  Acl::AclType type = Acl::AclType::ip;
  Kind kind = Kind::protocolOnly;
  uint8_t protocol = 0;

  bool operator==(const FlowKey&) const = default;
  /// `seed` keeps senders from choosing flows that have one hash.
  uint64_t hash(uint64_t seed) const {
    uint64_t hash = Kelp::mix64(seed ^ source[1]);
    hash = Kelp::mix64(hash ^ destination[1]);
    hash = Kelp::mix64(hash ^ (uint64_t{rule} << 32 | uint32_t{first} << 16 | second));
    hash ^= intf.hash() ^ (uint64_t{protocol} << 32 | uint64_t{static_cast<uint8_t>(kind)} << 40);
    // The upper halves are those of IPv6 addresses.
    if (type == Acl::AclType::ipv6) hash = Kelp::mix64(Kelp::mix64(hash ^ source[0]) ^ destination[0]);
    return Kelp::mix64(hash);
  }
};

/// The flow of a parsed packet that a list of a type has judged. Rule and interface stay empty.
FlowKey flowOf(Acl::AclType type, const Velo::ParsedPacket& parsed);

// A flow in words.

/// "tcp", "47", "unknown", or the type of an Ethernet frame: "0x0806".
std::string flowProtocol(const FlowKey& flow);
/// Source and destination without ports: "192.0.2.1".
std::pair<std::string, std::string> flowAddresses(const FlowKey& flow);
/// "192.0.2.1(1024)", without ports "192.0.2.1".
std::string flowSource(const FlowKey& flow);
std::string flowDestination(const FlowKey& flow);
/// What belongs behind the addresses: " type 8 code 0", " later fragment", or nothing.
std::string flowRest(const FlowKey& flow);

}  // namespace Agent
