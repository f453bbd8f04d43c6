#pragma once

#include <Acl/Rule.h>
#include <Acl/Types.h>
#include <agent/config/Cursor.h>

#include <array>
#include <cstdint>
#include <string_view>

namespace Config {

/// The fields of an IP filter that a rule can name, as bits.
namespace Fields {
enum : uint32_t {
  ports = 1u << 0,
  icmp = 1u << 1,
  established = 1u << 2,
  syn = 1u << 3,
  ack = 1u << 4,
  fin = 1u << 5,
  rst = 1u << 6,
  psh = 1u << 7,
  urg = 1u << 8,
  trafficClass = 1u << 9,
  hops = 1u << 10,
  fragments = 1u << 11,
  flags = syn | ack | fin | rst | psh | urg,
  l4 = ports | icmp | established | flags,
};
}  // namespace Fields

/// The fields that a rule has named so far, each with the word that named it. None may be named twice.
class NamedFields {
 public:
  void add(uint32_t fields, std::string_view word);
  /// The word that named one of these fields; empty if no word did.
  std::string_view wordOf(uint32_t fields) const;

 private:
  static constexpr int count = 12;
  std::array<std::string_view, count> words_{};
};

/// Reads the qualifiers of an IP rule, in any order, up to `log`, `mirror` or the end of the line. A table
/// says which qualifiers there are, and which rules may have them.
bool readQualifiers(Cursor& at, Acl::AclType list, NamedFields named, Acl::IpFilterBase* filter);

/// Reads the ports behind an address; without a port condition it changes nothing.
bool readPorts(Cursor& at, const Acl::IpFilterBase& filter, NamedFields* named, Acl::PortMatch* match);

/// Reads the ICMP message behind the destination; without one it changes nothing.
bool readIcmpMessage(Cursor& at, Acl::AclType list, NamedFields* named, Acl::IpFilterBase* filter);

}  // namespace Config
