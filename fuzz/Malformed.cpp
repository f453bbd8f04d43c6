#include "Malformed.h"

#include <algorithm>
#include <span>

namespace Fuzz {

namespace {

using Octets = std::span<const uint8_t>;

unsigned word(Octets octets, size_t at) { return octets[at] << 8u | octets[at + 1]; }

/// What IP carries, to its declared end. ICMP has another number in each version of IP.
std::string upper(unsigned protocol, unsigned icmp, Octets rest) {
  constexpr unsigned tcp = 6, udp = 17, sctp = 132;
  if (protocol == tcp) {
    if (rest.size() < 20) return "TCP cut";
    const size_t words = rest[12] >> 4;
    if (words < 5) return "TCP header of too few words";
    return words * 4 > rest.size() ? "TCP options beyond the packet" : "";
  }
  if (protocol == udp) {
    if (rest.size() < 8) return "UDP cut";
    return word(rest, 4) < 8 ? "UDP shorter than its header" : "";
  }
  if (protocol == sctp) return rest.size() < 12 ? "SCTP cut" : "";
  return protocol == icmp && rest.size() < 4 ? "ICMP cut" : "";
}

std::string laterFragment(unsigned protocol, unsigned offset) {
  return protocol == 6 && offset == 1 ? "a fragment over the flags of TCP" : "";
}

std::string ip4(Octets rest) {
  if (rest.size() < 20) return "IPv4 cut";
  if (rest[0] >> 4 != 4) return "IPv4 of another version";
  const size_t header = (rest[0] & 0xfu) * 4, total = word(rest, 2);
  if (header < 20) return "IPv4 header of too few words";
  if (total < header || total > rest.size()) return "IPv4 of a wrong length";
  const unsigned protocol = rest[9], offset = word(rest, 6) & 0x1fffu;
  if (offset != 0) return laterFragment(protocol, offset);
  return upper(protocol, 1, rest.first(total).subspan(header));
}

std::string ip6(Octets rest) {
  if (rest.size() < 40) return "IPv6 cut";
  if (rest[0] >> 4 != 6) return "IPv6 of another version";
  const size_t payload = word(rest, 4);
  unsigned next = rest[6];
  rest = rest.subspan(40);
  if (payload > rest.size()) return "IPv6 longer than the frame";
  rest = rest.first(payload);

  constexpr unsigned fragment = 44, authentication = 51;
  constexpr unsigned extensions[] = {0, 43, 60, fragment, authentication};
  bool fragmented = false;
  for (int headers = 0;
       std::find(std::begin(extensions), std::end(extensions), next) != std::end(extensions);) {
    if (++headers > 8) return "too many IPv6 extension headers";
    if (next == fragment && fragmented) return "two IPv6 fragment headers";
    if (rest.size() < 8) return "an IPv6 extension header cut";
    size_t size = 8 + rest[1] * size_t{8};
    if (next == fragment) size = 8;
    if (next == authentication) size = 8 + rest[1] * size_t{4};
    if (next == authentication && size < 12) return "an IPv6 authentication header of too few words";
    if (size > rest.size()) return "an IPv6 extension header beyond the packet";
    const unsigned offset = next == fragment ? word(rest, 2) >> 3 : 0;
    fragmented = fragmented || next == fragment;
    next = rest[0];
    rest = rest.subspan(size);
    if (offset != 0) return laterFragment(next, offset);
  }
  return upper(next, 58, rest);
}

}  // namespace

std::string whyMalformed(const TestSupport::Bytes& frame) {
  Octets rest(frame);
  if (rest.size() < 14) return "Ethernet cut";
  unsigned type = word(rest, 12);
  rest = rest.subspan(14);
  for (int tags = 0; type == 0x8100 || type == 0x88a8 || type == 0x9100;) {
    if (++tags > 2) return "too many tags";
    if (rest.size() < 4) return "a tag cut";
    type = word(rest, 2);
    rest = rest.subspan(4);
  }
  constexpr uint8_t snap[] = {0xaa, 0xaa, 3, 0, 0, 0};
  if (type >= 8 && type <= 1500 && rest.size() >= 8 &&
      std::equal(std::begin(snap), std::end(snap), rest.begin())) {
    rest = rest.first(std::min<size_t>(type, rest.size()));
    type = word(rest, 6);
    rest = rest.subspan(8);
  }
  return type == 0x0800 ? ip4(rest) : type == 0x86dd ? ip6(rest) : "";
}

}  // namespace Fuzz
