#include <Nimnet/Bytes.h>
#include <Nimnet/EthHdr.h>
#include <agent/ports/LiveFrame.h>

namespace Agent {

namespace {

/// Octets of all headers of a frame that is to be cut, from the Ethernet header on; 0 when they are not
/// there.
uint32_t headersOf(const LiveFrame& frame) {
  constexpr uint32_t udpHeader = 8;
  constexpr uint32_t tcpDataOffset = 12;  // RFC 9293, 3.1: the upper four bits, in words
  const Offload& offload = frame.offload;
  if ((offload.cut & ~Offload::withEcn) == Offload::cutUdp) return offload.checksumStart + udpHeader;
  if (offload.checksumStart + tcpDataOffset >= frame.bytes.size()) return 0;
  return offload.checksumStart + (frame.bytes[offload.checksumStart + tcpDataOffset] >> 4) * 4u;
}

}  // namespace

bool segmentsFit(const LiveFrame& frame, uint32_t mtu) {
  if (frame.offload.cut == Offload::notCut) return true;
  const uint32_t headers = headersOf(frame);
  if (headers == 0) return false;
  uint32_t ethernet = Nimnet::EthHdr::size;
  constexpr uint32_t tag = 4;
  // The MTU of a device does not count the tag.
  if (Nimnet::EtherType::isTag(Nimnet::read16(&frame.bytes[12]))) ethernet += tag;
  return headers + frame.offload.segmentLength <= mtu + ethernet;
}

uint64_t segmentsOf(const LiveFrame& frame) {
  if (frame.offload.cut == Offload::notCut) return 1;
  const uint32_t headers = headersOf(frame), length = frame.offload.segmentLength;
  if (headers == 0 || length == 0 || headers >= frame.bytes.size()) return 1;
  return (frame.bytes.size() - headers + length - 1) / length;
}

}  // namespace Agent
