#include <Nimnet/Bytes.h>
#include <Nimnet/EthHdr.h>
#include <agent/ports/Segments.h>

#include <algorithm>
#include <cstring>

namespace Agent {

namespace {

using Nimnet::read16;
using Nimnet::read32;

constexpr uint32_t tagOctets = 4, etherTypeAt = 12;
constexpr uint32_t ip4Least = 20, ip6Header = 40, udpOctets = 8, tcpLeast = 20;
constexpr uint8_t tcpProtocol = 6, udpProtocol = 17;
constexpr uint32_t tcpSequenceAt = 4, tcpFlagsAt = 13, tcpChecksumAt = 16, udpLengthAt = 4, udpChecksumAt = 6;
constexpr uint8_t tcpFin = 0x01, tcpPush = 0x08, tcpWindowReduced = 0x80;

void write16(uint8_t* at, uint32_t value) {
  at[0] = static_cast<uint8_t>(value >> 8);
  at[1] = static_cast<uint8_t>(value);
}

void write32(uint8_t* at, uint32_t value) {
  write16(at, value >> 16);
  write16(at + 2, value);
}

/// The sum of RFC 1071 over octets, on top of another.
uint64_t sumOf(const uint8_t* bytes, size_t size, uint64_t sum) {
  for (; size > 1; bytes += 2, size -= 2) sum += read16(bytes);
  return size == 1 ? sum + (uint64_t{bytes[0]} << 8) : sum;
}

uint16_t checksumOf(uint64_t sum) {
  while (sum >> 16 != 0) sum = (sum & 0xffff) + (sum >> 16);
  return static_cast<uint16_t>(~sum);
}

/// Where the headers of a super-frame lie, and what they are.
struct Layout {
  uint32_t ip = 0, transport = 0, payload = 0;
  bool isIp6 = false, isUdp = false;
};

/// Nothing when the headers are not what the offload says.
bool layoutOf(const LiveFrame& frame, Layout& layout) {
  const auto bytes = frame.bytes;
  uint32_t type = etherTypeAt;
  while (type + tagOctets + 2 <= bytes.size() && Nimnet::EtherType::isTag(read16(&bytes[type])))
    type += tagOctets;
  layout.ip = type + 2;
  layout.transport = frame.offload.checksumStart;
  layout.isUdp = (frame.offload.cut & ~Offload::withEcn) == Offload::cutUdp;
  if (type + 2 + ip4Least > bytes.size()) return false;
  layout.isIp6 = read16(&bytes[type]) == Nimnet::EtherType::ip6;
  if (!layout.isIp6 && read16(&bytes[type]) != Nimnet::EtherType::ip) return false;
  if (layout.transport < layout.ip + (layout.isIp6 ? ip6Header : ip4Least)) return false;
  if (layout.transport + (layout.isUdp ? udpOctets : tcpLeast) > bytes.size()) return false;
  const uint32_t header =
      layout.isUdp ? udpOctets : (bytes[layout.transport + tcpFlagsAt - 1] >> 4) * uint32_t{4};
  layout.payload = layout.transport + header;
  return header >= (layout.isUdp ? udpOctets : tcpLeast) && layout.payload < bytes.size();
}

/// Writes lengths, number and checksum of the IP header of a segment; returns the sum of its pseudo-header.
uint64_t finishIp(uint8_t* segment, const Layout& layout, uint32_t size, uint32_t number) {
  uint8_t* ip = segment + layout.ip;
  const uint32_t behind = size - layout.transport;
  const uint64_t pseudo = (layout.isUdp ? udpProtocol : tcpProtocol) + uint64_t{behind};
  if (layout.isIp6) {
    write16(ip + 4, size - layout.ip - ip6Header);
    return sumOf(ip + 8, 32, pseudo);
  }
  write16(ip + 2, size - layout.ip);
  write16(ip + 4, read16(ip + 4) + number);
  write16(ip + 10, 0);
  write16(ip + 10, checksumOf(sumOf(ip, layout.transport - layout.ip, 0)));
  return sumOf(ip + 12, 8, pseudo);
}

}  // namespace

Segments::Segments() : bytes_(new uint8_t[room]), frames_(new LiveFrame[mostSegments]) {}

std::span<const LiveFrame> Segments::of(const LiveFrame& frame) {
  return frame.offload.cut == Offload::notCut ? completed(frame) : cut(frame);
}

std::span<const LiveFrame> Segments::completed(const LiveFrame& frame) {
  const uint32_t start = frame.offload.checksumStart, field = start + frame.offload.checksumOffset;
  if (frame.bytes.size() > room || field + 2 > frame.bytes.size()) return {};
  std::copy(frame.bytes.begin(), frame.bytes.end(), bytes_.get());
  // The sender has left the sum of the pseudo-header in the field.
  const uint16_t sum = checksumOf(sumOf(&bytes_[start], frame.bytes.size() - start, 0));
  // Zero would say that there is none (RFC 768); with TCP both are the same number.
  write16(&bytes_[field], sum == 0 ? 0xffff : sum);
  frames_[0] = {{bytes_.get(), frame.bytes.size()}};
  return {frames_.get(), 1};
}

std::span<const LiveFrame> Segments::cut(const LiveFrame& frame) {
  Layout layout;
  const uint32_t length = frame.offload.segmentLength;
  if (length == 0 || !layoutOf(frame, layout)) return {};
  const size_t payload = frame.bytes.size() - layout.payload, count = (payload + length - 1) / length;
  if (count > mostSegments || count * layout.payload + payload > room) return {};
  uint8_t* segment = bytes_.get();
  for (uint32_t i = 0; i < count; ++i) {
    const bool first = i == 0, last = i + 1 == count;
    const uint32_t begin = i * length;
    const auto here = static_cast<uint32_t>(std::min<size_t>(length, payload - begin));
    const uint32_t size = layout.payload + here;
    std::memcpy(segment, frame.bytes.data(), layout.payload);
    std::memcpy(segment + layout.payload, &frame.bytes[layout.payload + begin], here);
    const uint64_t pseudo = finishIp(segment, layout, size, i);
    uint8_t* transport = segment + layout.transport;
    uint8_t* field = transport + (layout.isUdp ? udpChecksumAt : tcpChecksumAt);
    if (layout.isUdp) {
      write16(transport + udpLengthAt, size - layout.transport);
    } else {
      write32(transport + tcpSequenceAt, read32(transport + tcpSequenceAt) + begin);
      // A segment in the middle neither ends the connection nor asks to be handed over at once.
      if (!last) transport[tcpFlagsAt] &= static_cast<uint8_t>(~(tcpFin | tcpPush));
      if (!first) transport[tcpFlagsAt] &= static_cast<uint8_t>(~tcpWindowReduced);
    }
    write16(field, 0);
    const uint16_t sum = checksumOf(sumOf(transport, size - layout.transport, pseudo));
    write16(field, sum == 0 ? 0xffff : sum);
    frames_[i] = {{segment, size}};
    segment += size;
  }
  return {frames_.get(), count};
}

}  // namespace Agent
