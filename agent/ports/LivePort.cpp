#include <Nimnet/Bytes.h>
#include <Nimnet/EthHdr.h>
#include <agent/ports/LivePort.h>

#include <cerrno>

namespace Agent {

LivePort::LivePort(Port& port, std::string device, const LiveFrame& inHand)
    : port_(port), device_(std::move(device)), inHand_(inHand) {}

PortState LivePort::state() const {
  PortState state = state_;
  state.name = port_.id.name().str();
  state.device = device_;
  state.present = fd() >= 0;
  state.nowhere = port_.nowhere;
  return state;
}

void countUnsent(PortState& state, int error) { ++(error == EMSGSIZE ? state.tooLarge : state.sendFailed); }

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
  // A tag is not counted by a device's MTU.
  if (Nimnet::EtherType::isTag(Nimnet::read16(&frame.bytes[12]))) ethernet += tag;
  return headers + offload.segmentLength <= mtu + ethernet;
}

}  // namespace Agent
