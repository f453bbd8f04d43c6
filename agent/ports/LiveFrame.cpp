#include <Nimnet/Bytes.h>
#include <Nimnet/EthHdr.h>
#include <agent/ports/LiveFrame.h>

namespace Agent {

bool segmentsFit(const LiveFrame& frame, uint32_t mtu) {
  const Offload& offload = frame.offload;
  if (offload.cut == Offload::notCut) return true;
  constexpr uint32_t udpHeader = 8;
  constexpr uint32_t tcpDataOffset = 12;  // RFC 9293, 3.1: the upper four bits, in words
  uint32_t headers = offload.checksumStart + udpHeader;
  if ((offload.cut & ~Offload::withEcn) != Offload::cutUdp) {
    if (offload.checksumStart + tcpDataOffset >= frame.bytes.size()) return false;
    headers = offload.checksumStart + (frame.bytes[offload.checksumStart + tcpDataOffset] >> 4) * 4u;
  }
  uint32_t ethernet = Nimnet::EthHdr::size;
  constexpr uint32_t tag = 4;
  // The MTU of a device does not count the tag.
  if (Nimnet::EtherType::isTag(Nimnet::read16(&frame.bytes[12]))) ethernet += tag;
  return headers + offload.segmentLength <= mtu + ethernet;
}

}  // namespace Agent
