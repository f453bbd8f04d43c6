#include "FrameBytes.h"
#include "Frames.h"

namespace TestSupport {

namespace {

uint32_t partialSum(const Bytes& bytes, size_t from, size_t to, uint32_t sum) {
  for (size_t i = from; i < to; ++i) sum += (i - from) % 2 == 0 ? uint32_t{bytes[i]} << 8 : bytes[i];
  return sum;
}

}  // namespace

uint16_t internetChecksum(const Bytes& bytes, uint32_t sum) {
  sum = partialSum(bytes, 0, bytes.size(), sum);
  while (sum >> 16) sum = (sum & 0xffff) + (sum >> 16);
  return static_cast<uint16_t>(~sum);
}

uint32_t crc32c(const Bytes& bytes) {
  uint32_t crc = 0xffffffff;
  for (uint8_t byte : bytes) {
    crc ^= byte;
    for (int bit = 0; bit < 8; ++bit) crc = (crc >> 1) ^ ((crc & 1) ? 0x82f63b78 : 0);
  }
  crc = ~crc;
  return crc << 24 | (crc & 0xff00) << 8 | (crc >> 8 & 0xff00) | crc >> 24;
}

/// Lays the layers out from the innermost to the outermost, so that every length and checksum is known when
/// it is written.
class FrameLayout {
 public:
  using Kind = FrameBuilder::Kind;
  using Layer = FrameBuilder::Layer;

  explicit FrameLayout(const std::vector<Layer>& layers) : layers_(layers) {}

  Bytes run() {
    for (at_ = layers_.size(); at_-- > 0;) {
      Bytes whole = finished(layers_[at_]);
      append(whole, behind_);
      behind_ = std::move(whole);
    }
    return std::move(behind_);
  }

 private:
  const Layer* inner() const { return at_ + 1 < layers_.size() ? &layers_[at_ + 1] : nullptr; }

  /// What an outer layer calls this one, as an EtherType; 0 for what has none.
  static uint16_t etherType(Kind kind) {
    switch (kind) {
      case Kind::ip4:
        return 0x0800;
      case Kind::arp:
        return 0x0806;
      case Kind::ip6:
        return 0x86dd;
      case Kind::mpls:
        return 0x8847;
      default:
        return 0;
    }
  }

  /// The same as a protocol number; 59, no next header, for what has none.
  static uint8_t protocol(Kind kind) {
    switch (kind) {
      case Kind::hopByHop:
        return 0;
      case Kind::icmp:
        return 1;
      case Kind::ip4:
        return 4;
      case Kind::tcp:
        return 6;
      case Kind::udp:
        return 17;
      case Kind::ip6:
        return 41;
      case Kind::routing:
        return 43;
      case Kind::fragment:
        return 44;
      case Kind::ah:
        return 51;
      case Kind::icmp6:
        return 58;
      case Kind::destination:
        return 60;
      case Kind::sctp:
        return 132;
      default:
        return 59;
    }
  }

  uint16_t nextType(const Layer& layer) const {
    if (layer.next) return *layer.next;
    if (!inner()) return 0;
    if (inner()->kind == Kind::llc) return static_cast<uint16_t>(behind_.size());
    return etherType(inner()->kind);
  }
  uint8_t nextProtocol(const Layer& layer) const {
    if (layer.next) return static_cast<uint8_t>(*layer.next);
    return protocol(inner() ? inner()->kind : Kind::payload);
  }

  /// The part of an L4 checksum that covers addresses, length and protocol (RFC 9293, 3.1 and RFC 8200, 8.1).
  uint32_t pseudoHeaderSum(uint8_t l4Protocol, size_t l4Size) const {
    for (size_t i = at_; i-- > 0;) {
      const Bytes& head = layers_[i].head;
      const auto sum = static_cast<uint32_t>(l4Protocol + l4Size);
      if (layers_[i].kind == Kind::ip4) return partialSum(head, 12, 20, sum);
      if (layers_[i].kind == Kind::ip6) return partialSum(head, 8, 40, sum);
    }
    return 0;
  }

  void l4Checksum(const Layer& layer, Bytes& head, size_t field, bool pseudoHeader) const {
    Bytes all = head;
    append(all, behind_);
    const uint32_t sum = pseudoHeader ? pseudoHeaderSum(protocol(layer.kind), all.size()) : 0;
    uint16_t value = internetChecksum(all, sum);
    if (layer.kind == Kind::udp && value == 0) value = 0xffff;
    set16(head, field, layer.checksum.value_or(value));
  }

  Bytes finished(const Layer& layer) const {
    Bytes head = layer.head;
    switch (layer.kind) {
      case Kind::eth:
      case Kind::vlan:
      case Kind::snap:
        set16(head, head.size() - 2, nextType(layer));
        break;
      case Kind::mpls:
        if (!inner() || inner()->kind != Kind::mpls) head[2] |= 1;
        break;
      case Kind::ip4:
        head[0] = static_cast<uint8_t>((head[0] & 0xf0) |
                                       layer.words.value_or(static_cast<uint8_t>(head.size() / 4)));
        set16(head, 2, layer.length.value_or(static_cast<uint16_t>(head.size() + behind_.size())));
        head[9] = nextProtocol(layer);
        set16(head, 10, layer.checksum.value_or(internetChecksum(head)));
        break;
      case Kind::ip6:
        set16(head, 4, layer.length.value_or(static_cast<uint16_t>(behind_.size())));
        head[6] = nextProtocol(layer);
        break;
      case Kind::hopByHop:
      case Kind::destination:
      case Kind::routing:
      case Kind::ah:
      case Kind::fragment:
        head[0] = nextProtocol(layer);
        break;
      case Kind::tcp:
        head[12] = static_cast<uint8_t>(layer.words.value_or(static_cast<uint8_t>(head.size() / 4)) << 4);
        l4Checksum(layer, head, 16, true);
        break;
      case Kind::udp:
        set16(head, 4, layer.length.value_or(static_cast<uint16_t>(head.size() + behind_.size())));
        l4Checksum(layer, head, 6, true);
        break;
      case Kind::sctp: {
        Bytes all = head;
        append(all, behind_);
        set32(head, 8, layer.checksum.value_or(crc32c(all)));
        break;
      }
      case Kind::icmp:
      case Kind::icmp6:
        l4Checksum(layer, head, 2, layer.kind == Kind::icmp6);
        break;
      case Kind::llc:
      case Kind::arp:
      case Kind::payload:
        break;
    }
    return head;
  }

  const std::vector<Layer>& layers_;
  size_t at_ = 0;
  Bytes behind_;
};

Bytes FrameBuilder::bytes() const {
  Bytes whole = FrameLayout(layers_).run();
  if (whole.size() < padTo_) whole.resize(padTo_);
  return whole;
}

}  // namespace TestSupport
