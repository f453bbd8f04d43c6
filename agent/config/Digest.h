#pragma once

#include <Acl/Filter.h>

#include <bit>
#include <cstdint>

namespace Config {

/// A digest of 64 bits, made of words of 64 bits: FNV-1a with a rotation, so that no bit stays at one place.
/// State files have such digests: another way to make them needs another version of those files.
class Digest {
 public:
  void add(uint64_t word) { value_ = (std::rotl(value_, 29) ^ word) * 0x100000001b3; }
  uint64_t value() const { return value_; }

 private:
  uint64_t value_ = 0xcbf29ce484222325;
};

inline void addTo(Digest& digest, const Nimnet::IpAddr& address) { digest.add(address.value); }
inline void addTo(Digest& digest, const Nimnet::Ip6Addr& address) {
  digest.add(address.high), digest.add(address.low);
}

/// What a member of an object-group can say.
template <class IpOrIp6Filter>
void addMemberTo(Digest& digest, const IpOrIp6Filter& filter) {
  addTo(digest, filter.source), addTo(digest, filter.sourceMask);
  addTo(digest, filter.destination), addTo(digest, filter.destinationMask);
  digest.add(uint64_t{filter.protocolNamed} << 8 | filter.protocol);
  digest.add(uint64_t{filter.icmpTypeNamed} << 32 | uint64_t{filter.icmpType} << 16 |
             uint64_t{filter.icmpCodeNamed} << 8 | filter.icmpCode);
  digest.add(static_cast<uint64_t>(filter.destinationPort.op) << 8 | filter.destinationPort.count);
  for (const uint16_t port : filter.destinationPort.ports) digest.add(port);
}

/// A digest by which filters are looked up: those that are equal have the same.
template <class IpOrIp6Filter>
void addTo(Digest& digest, const IpOrIp6Filter& filter) {
  addMemberTo(digest, filter);
  digest.add(uint64_t{filter.vlan.id} << 16 | filter.vlan.wildcard);
  digest.add(static_cast<uint64_t>(filter.sourcePort.op) << 8 | filter.sourcePort.count);
  for (const uint16_t port : filter.sourcePort.ports) digest.add(port);
  digest.add(uint64_t{filter.established} << 32 | uint64_t{filter.fragments} << 24 |
             uint64_t{filter.tcpFlags} << 16 | uint64_t{filter.trafficClass} << 8 | filter.trafficClassMask);
  digest.add(static_cast<uint64_t>(filter.hops.op) << 8 | filter.hops.value);
  if (!filter.alternatives.given()) return;
  for (const auto& member : filter.alternatives.all()) addMemberTo(digest, member);
}

inline void addTo(Digest& digest, const Acl::MacFilter& filter) {
  for (const auto& address : {filter.source, filter.sourceMask, filter.destination, filter.destinationMask})
    digest.add(address.value());
  digest.add(uint64_t{filter.vlan.id} << 16 | filter.vlan.wildcard);
  digest.add(uint64_t{filter.etherTypeNamed} << 16 | filter.etherType);
}

}  // namespace Config
