#pragma once

#include <cstdint>
#include <optional>
#include <string_view>
#include <vector>

namespace TestSupport {

using Bytes = std::vector<uint8_t>;

/// TCP flags by name (RFC 9293, 3.1), to be or-ed.
enum TcpFlag : uint8_t {
  Fin = 0x01,
  Syn = 0x02,
  Rst = 0x04,
  Psh = 0x08,
  Ack = 0x10,
  Urg = 0x20,
  Ece = 0x40,
  Cwr = 0x80
};

/// Builds one frame from the outside in; bytes() lays it out. What a layer says of what follows it (types,
/// protocol numbers, lengths, checksums) is right unless it is overridden. An override goes to the layer of
/// its kind added last and throws std::logic_error when there is none; a text that is no address throws
/// std::invalid_argument. A builder is a value: keep a half-built one and finish copies of it.
///
///   frame().eth().vlan(100).ip4("192.0.2.1", "198.51.100.7").tcp(1024, 443).flags(Syn).bytes()
///
/// Known simplifications: the checksum of an L4 header covers the addresses in the IP header itself (a
/// routing header does not change them), and that of a fragment what this fragment carries.
class FrameBuilder {
 public:
  // ---- Link. eth() without addresses: 02:00:00:00:00:01 to 02:00:00:00:00:02.
  FrameBuilder& eth(std::string_view source = {}, std::string_view destination = {});
  FrameBuilder& vlan(uint16_t id, uint16_t tpid = 0x8100, uint8_t priority = 0);
  /// The layer before it gets an 802.3 length instead of a type.
  FrameBuilder& llc(uint8_t dsap, uint8_t ssap, uint8_t control);
  /// LLC aa-aa-03 and a SNAP header (RFC 1042) whose type names what follows.
  FrameBuilder& snap(uint32_t oui = 0);
  /// The bottom-of-stack bit is set on the last label only.
  FrameBuilder& mpls(uint32_t label, uint8_t ttl = 64);
  FrameBuilder& arp(std::string_view senderIp, std::string_view targetIp, uint16_t operation = 1);
  /// The type or length field, of the last of eth, vlan and snap.
  FrameBuilder& ethType(uint16_t value);

  // ---- IPv4 (RFC 791). Time to live 64, no options, identification 0.
  FrameBuilder& ip4(std::string_view source, std::string_view destination);
  FrameBuilder& tos(uint8_t value);
  FrameBuilder& ttl(uint8_t value);
  FrameBuilder& options(Bytes options);  ///< filled up with zeros to whole words
  FrameBuilder& ihl(uint8_t words);
  FrameBuilder& totalLength(uint16_t value);

  // ---- IPv6 (RFC 8200) and its extension headers, in the order in which they are added. Hop limit 64.
  FrameBuilder& ip6(std::string_view source, std::string_view destination);
  FrameBuilder& trafficClass(uint8_t value);
  FrameBuilder& flowLabel(uint32_t value);
  FrameBuilder& hopLimit(uint8_t value);
  FrameBuilder& payloadLength(uint16_t value);
  /// Whole headers of `size` octets, a multiple of 8, filled with one padding option.
  FrameBuilder& hopByHop(size_t size = 8);
  FrameBuilder& destinationOptions(size_t size = 8);
  FrameBuilder& routing(size_t size = 8);
  /// An authentication header (RFC 4302) of `size` octets, a multiple of 4; also behind IPv4.
  FrameBuilder& ah(size_t size = 16);
  /// The length octet of the last extension header, in that header's own unit.
  FrameBuilder& extLength(uint8_t value);

  // ---- Of the last IP header, either kind.
  FrameBuilder& version(uint8_t value);
  /// Marks an IPv4 packet a fragment; behind IPv6 adds a fragment header. `offset` counts units of 8 octets.
  FrameBuilder& fragment(uint16_t offset, bool more, uint32_t identification = 0x1234);
  /// The protocol or Next Header field of the last IP or extension header.
  FrameBuilder& protocol(uint8_t value);

  // ---- L4.
  FrameBuilder& tcp(uint16_t sourcePort, uint16_t destinationPort);
  FrameBuilder& flags(uint8_t tcpFlags);
  FrameBuilder& tcpOptions(Bytes options);  ///< filled up with zeros to whole words
  FrameBuilder& dataOffset(uint8_t words);
  FrameBuilder& udp(uint16_t sourcePort, uint16_t destinationPort);
  FrameBuilder& udpLength(uint16_t value);
  FrameBuilder& sctp(uint16_t sourcePort, uint16_t destinationPort);
  /// An 8-octet message: type, code, checksum and four zeros.
  FrameBuilder& icmp(uint8_t type, uint8_t code = 0);
  FrameBuilder& icmp6(uint8_t type, uint8_t code = 0);

  /// The checksum of the last layer that has one (IPv4, TCP, UDP, SCTP, ICMP, ICMPv6).
  FrameBuilder& checksum(uint32_t value);

  // ---- What follows the headers.
  FrameBuilder& payload(size_t size, uint8_t fill = 0);
  FrameBuilder& payload(std::string_view text);
  FrameBuilder& raw(Bytes bytes);
  /// Zeros behind everything until the frame has this size; no length field counts them.
  FrameBuilder& padTo(size_t size);

  Bytes bytes() const;
  operator Bytes() const { return bytes(); }

 private:
  friend class FrameLayout;
  enum class Kind : uint8_t {
    eth,
    vlan,
    llc,
    snap,
    mpls,
    arp,
    ip4,
    ip6,
    hopByHop,
    destination,
    routing,
    ah,
    fragment,
    tcp,
    udp,
    sctp,
    icmp,
    icmp6,
    payload,
  };
  /// One header with its fixed octets; fields that depend on what follows are filled in by bytes(), except
  /// where an override stands.
  struct Layer {
    Kind kind;
    Bytes head;
    std::optional<uint16_t> next;    ///< type, protocol or Next Header
    std::optional<uint16_t> length;  ///< the length field, in its own unit (TCP: data offset)
    std::optional<uint8_t> words;    ///< IPv4 header length
    std::optional<uint32_t> checksum;
  };

  FrameBuilder& add(Kind kind, Bytes head);
  Layer& last(std::initializer_list<Kind> kinds, const char* what);

  std::vector<Layer> layers_;
  size_t padTo_ = 0;
};

inline FrameBuilder frame() { return {}; }

/// The first `size` bytes.
inline Bytes cut(const Bytes& whole, size_t size) {
  return Bytes(whole.begin(), whole.begin() + static_cast<long>(size));
}

/// The Internet checksum (RFC 1071) of a run of bytes added to `sum`; `sum` is a partial sum, 0 to begin
/// with.
uint16_t internetChecksum(const Bytes& bytes, uint32_t sum = 0);
/// CRC32c as SCTP uses it (RFC 9260, appendix A), in the order of transmission as a big-endian number.
uint32_t crc32c(const Bytes& bytes);

}  // namespace TestSupport
