#include <Nimnet/Pkt.h>

#include <Kelp/Assert.h>

#include <algorithm>

namespace Nimnet {

void Pkt::assign(std::span<const uint8_t> captured, uint32_t wireLength, double time) {
  frame_.assign(captured.begin(), captured.end());
  wireLength_ = std::max(wireLength, size());
  time_ = time;
  frontOffset_ = 0;
  vlanId_ = 0;
  hasEthernet_ = true;
}

void Pkt::assignBehindType(uint16_t type, std::span<const uint8_t> captured, uint32_t wireLength,
                           double time) {
  assign(captured, wireLength, time);
  typeBefore_ = type;
  hasEthernet_ = false;
}

void Pkt::assign(const Pkt& other) {
  assign(other.frame(), other.wireLength(), other.time());
  typeBefore_ = other.typeBefore_;
  hasEthernet_ = other.hasEthernet_;
}

void Pkt::frontOffsetIs(uint32_t offset) {
  KELP_ASSERT(offset <= size(), "The front of a packet cannot be beyond its end");
  frontOffset_ = offset;
}

}  // namespace Nimnet
