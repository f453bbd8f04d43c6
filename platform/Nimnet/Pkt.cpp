#include <Nimnet/Pkt.h>

namespace Nimnet {

void Pkt::assign(std::span<const uint8_t> captured, uint32_t wireLength, double time) {
  store_.assign(captured.begin(), captured.end());
  frame_ = store_;
  origin_ = nullptr;
  recordedAre(wireLength, time);
}

void Pkt::assignBehindType(uint16_t type, std::span<const uint8_t> captured, uint32_t wireLength,
                           double time) {
  assign(captured, wireLength, time);
  typeBefore_ = type;
  hasEthernet_ = false;
}

void Pkt::assign(const Pkt& other) {
  assign(other.frame(), other.wireLength(), other.time());
  typeIsOf(other);
}

void Pkt::refer(const Pkt& other) {
  refer(other.frame(), other.wireLength(), other.time(), other.origin());
  typeIsOf(other);
}

}  // namespace Nimnet
