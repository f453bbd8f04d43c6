#pragma once

#include <Acl/Rule.h>
#include <Acl/Types.h>
#include <agent/config/Cursor.h>

#include <array>
#include <cstdint>
#include <string_view>

namespace Config {

/// A field of an IP filter that a rule can name, as a bit.
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

/// The fields that a rule has named so far, with the word that named each: none may be named twice.
class NamedFields {
 public:
  void add(uint32_t fields, std::string_view word);
  /// The word that named one of these fields; empty if none did.
  std::string_view wordOf(uint32_t fields) const;

 private:
  static constexpr int count = 12;
  std::array<std::string_view, count> words_{};
};

/// Reads an IP rule's qualifiers, in any order, up to `log`, `mirror` or the end of the line. Which of them
/// are known, and where, is one table.
bool readQualifiers(Cursor& at, Acl::AclType list, NamedFields named, Acl::IpFilterBase* filter);

/// Reads the ports behind an address, if there are any.
bool readPorts(Cursor& at, const Acl::IpFilterBase& filter, NamedFields* named, Acl::PortMatch* match);

/// Reads the ICMP message behind the destination, if there is one.
bool readIcmpMessage(Cursor& at, Acl::AclType list, NamedFields* named, Acl::IpFilterBase* filter);

}  // namespace Config
