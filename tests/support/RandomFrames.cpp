#include "RandomFrames.h"

namespace TestSupport {

namespace {

FrameBuilder someLink(Dice& dice) {
  FrameBuilder made = frame().eth(dice.of(macs), dice.of(macs));
  for (uint64_t tags = dice.below(3); tags > 0; --tags)
    made.vlan(dice.of(vlans), dice.once(2) ? 0x88a8 : 0x8100);
  return made;
}

Bytes someL4(Dice& dice, FrameBuilder made, bool six) {
  switch (dice.of(protocols)) {
    case 6:
      return made.tcp(dice.of(ports), dice.of(ports)).flags(static_cast<uint8_t>(dice.below(256)));
    case 17:
      return made.udp(dice.of(ports), dice.of(ports));
    case 132:
      return made.sctp(dice.of(ports), dice.of(ports));
    case 1:
      return made.icmp(static_cast<uint8_t>(dice.below(4)), static_cast<uint8_t>(dice.below(3)));
    case 58:
      return made.icmp6(static_cast<uint8_t>(dice.below(4)), static_cast<uint8_t>(dice.below(3)));
    default:
      return made.protocol(six && dice.once(3) ? 59 : 99).payload(24, 0x11);
  }
}

}  // namespace

Bytes randomIp4Frame(Dice& dice) {
  FrameBuilder made = someLink(dice).ip4(dice.of(addresses4), dice.of(addresses4));
  made.tos(dice.of(classes)).ttl(dice.of(hops));
  if (dice.once(4)) made.options({1, 1, 1, 1, 1, 1, 1, 1});
  if (dice.once(5)) {
    return made.fragment(static_cast<uint16_t>(2 + dice.below(50)), dice.once(2))
        .protocol(dice.of(protocols))
        .payload(40, 0x50);
  }
  if (dice.once(5)) made.fragment(0, true);
  return someL4(dice, made, false);
}

Bytes randomIp6Frame(Dice& dice) {
  FrameBuilder made = someLink(dice).ip6(dice.of(addresses6), dice.of(addresses6));
  made.trafficClass(dice.of(classes)).hopLimit(dice.of(hops));
  if (dice.once(4)) made.hopByHop(dice.once(2) ? 8 : 16);
  if (dice.once(4)) made.routing();
  if (dice.once(5)) {
    made.fragment(static_cast<uint16_t>(2 + dice.below(50)), dice.once(2));
    return made.protocol(dice.of(protocols)).payload(40, 0x50);
  }
  if (dice.once(5)) made.fragment(0, dice.once(2));
  if (dice.once(4)) made.destinationOptions();
  return someL4(dice, made, true);
}

Bytes randomFrame(Dice& dice) {
  switch (dice.below(3)) {
    case 0:
      return randomIp4Frame(dice);
    case 1:
      return randomIp6Frame(dice);
    default:
      return someLink(dice).arp("192.0.2.1", "192.0.2.2");
  }
}

void damage(Bytes& frame, Dice& dice) {
  for (uint64_t left = 1 + dice.below(3); left > 0; --left) {
    const size_t place = dice.below(frame.size() + 1);
    switch (dice.below(4)) {
      case 0:
        if (place < frame.size()) frame[place] = static_cast<uint8_t>(dice.below(256));
        break;
      case 1:
        if (place < frame.size()) frame[place] ^= static_cast<uint8_t>(1u << dice.below(8));
        break;
      case 2:
        frame.resize(place);
        break;
      default:
        frame.insert(frame.begin() + static_cast<std::ptrdiff_t>(place), dice.below(9),
                     static_cast<uint8_t>(dice.below(256)));
    }
  }
}

}  // namespace TestSupport
