#include "classbench/Shapes.h"

#include <algorithm>
#include <functional>
#include <iterator>
#include <utility>

#include "classbench/Generate.h"

namespace Bench {

namespace {

using Ip = Acl::IpRule;

Prefix prefixOf(uint32_t address, size_t length) {
  Prefix made{0, static_cast<uint8_t>(length)};
  made.address = address & made.mask();
  return made;
}
PortRange rangeAt(size_t low, size_t length) {
  return {static_cast<uint16_t>(low), static_cast<uint16_t>(std::min<size_t>(65535, low + length))};
}

constexpr uint32_t someSource = 0x0a5a3c96, someDestination = 0xac1e63a5;

Tuples eachRule(const std::function<void(size_t, TupleRule&)>& set) {
  Tuples rules(shapeSize);
  for (size_t i = 0; i < shapeSize; ++i) set(i, rules[i]);
  return rules;
}

/// Prefixes of one pair of addresses, the longest first: all nest, none can be told apart by a few bits.
Tuples nestedPrefixes(Dice&) {
  Tuples rules;
  for (size_t sum = 64; rules.size() < shapeSize; --sum) {
    for (size_t s = std::min<size_t>(32, sum); s + 32 >= sum && rules.size() < shapeSize; --s) {
      TupleRule rule;
      rule.source = prefixOf(someSource, s);
      rule.destination = prefixOf(someDestination, sum - s);
      rules.push_back(rule);
      if (s == 0) break;
    }
  }
  return rules;
}
Tuples crossingRanges(Dice&) {
  return eachRule([](size_t i, TupleRule& r) {
    r.protocolNamed = true, r.protocol = 6;
    r.sourcePort = rangeAt(30 * i, 30000);
    r.destinationPort = rangeAt(30 * (shapeSize - i), 30000);
  });
}
Tuples portsOnly(Dice&) {
  return eachRule([](size_t i, TupleRule& r) {
    r.protocolNamed = true, r.protocol = 17;
    r.destinationPort = rangeAt(60 * i, 29);
  });
}
Tuples lastBits(Dice&) {
  return eachRule([](size_t i, TupleRule& r) {
    r.source = prefixOf(someSource ^ static_cast<uint32_t>(i % 32), 32);
    r.destination = prefixOf(someDestination ^ static_cast<uint32_t>(i / 32), 32);
  });
}
Tuples samePair(Dice&) {
  return eachRule([](size_t i, TupleRule& r) {
    r.source = prefixOf(someSource, 32);
    r.destination = prefixOf(someDestination, 32);
    r.protocolNamed = true, r.protocol = 6;
    r.destinationPort = rangeAt(1000 + 2 * i, 0);
  });
}
/// Half have any source, half any destination: whatever address is looked at, half of the rules stay.
Tuples halfAny(Dice& dice) {
  return eachRule([&](size_t i, TupleRule& r) {
    (i % 2 ? r.source : r.destination) = prefixOf(static_cast<uint32_t>(dice.below(uint64_t{1} << 32)), 32);
  });
}
/// Short prefixes and wide ranges in all fields at once.
Tuples wideBoxes(Dice& dice) {
  return eachRule([&](size_t, TupleRule& r) {
    const auto random = [&] { return static_cast<uint32_t>(dice.below(uint64_t{1} << 32)); };
    r.source = prefixOf(random(), 1 + dice.below(4));
    r.destination = prefixOf(random(), 1 + dice.below(4));
    r.protocolNamed = true, r.protocol = dice.once(2) ? 6 : 17;
    r.sourcePort = rangeAt(dice.below(60000), dice.below(6000));
    r.destinationPort = rangeAt(dice.below(60000), dice.below(6000));
  });
}
Tuples benign(Dice&) { return generateRules(Style::acl, shapeSize, 1); }

/// Wildcards whose bits lie anywhere: no prefix and no range. About ten bits of each address are compared.
void scatteredMasks(Dice& dice, std::vector<Ip>& rules) {
  for (Ip& rule : rules) {
    const auto random = [&dice] { return static_cast<uint32_t>(dice.below(uint64_t{1} << 32)); };
    auto& f = rule.filter;
    for (auto [mask, value] :
         {std::pair(&f.sourceMask, &f.source), std::pair(&f.destinationMask, &f.destination)}) {
      mask->value = random() & random() & (random() | random());
      value->value = random() & mask->value;
    }
  }
}
void tcpFlags(Dice& dice, std::vector<Ip>& rules) {
  for (Ip& rule : rules)
    rule.filter.tcpFlags = static_cast<uint8_t>(1 + dice.below(63)) & ~Nimnet::TcpHdr::ack;
}
/// Ten ports that are excluded: the complement of a range in many pieces.
void excludedPorts(Dice& dice, std::vector<Ip>& rules) {
  for (Ip& rule : rules) {
    auto& ports = rule.filter.sourcePort;
    ports.op = Acl::Compare::neq;
    ports.count = Acl::PortMatch::maxPorts;
    for (uint16_t& port : ports.ports) port = static_cast<uint16_t>(dice.below(65536));
  }
}

constexpr Shape allShapes[] = {{"prefixes of one pair", nestedPrefixes},
                               {"crossing ranges", crossingRanges},
                               {"any any, distinct ports", portsOnly},
                               {"last bits differ", lastBits},
                               {"one pair, distinct ports", samePair},
                               {"half of the addresses any", halfAny},
                               {"wide boxes", wideBoxes},
                               {"scattered wildcards", lastBits, scatteredMasks},
                               {"one pair, TCP flags", samePair, tcpFlags},
                               {"ten excluded ports each", portsOnly, excludedPorts},
                               {"benign", benign}};

}  // namespace

std::span<const Shape> shapes() { return allShapes; }

Headers nearMisses(const Tuples& rules, size_t count, uint64_t seed) {
  Dice dice(seed);
  Headers headers = uniformHeaders(rules, count, seed);
  for (TupleHeader& h : headers) {
    const TupleRule& rule = dice.of(rules);
    h.source = rule.source.address;
    h.destination = rule.destination.address;
    h.sourcePort = rule.sourcePort.low;
    h.destinationPort = rule.destinationPort.low;
    h.protocol = rule.protocolNamed ? rule.protocol : 6;
    const auto lastBit = [](const Prefix& prefix) {
      return prefix.length == 0 ? 0 : uint32_t{1} << (32 - prefix.length);
    };
    switch (dice.below(3)) {
      case 0:
        h.source ^= lastBit(rule.source);
        break;
      case 1:
        h.destination ^= lastBit(rule.destination);
        break;
      case 2:
        h.destinationPort = static_cast<uint16_t>(rule.destinationPort.high + 1);
        break;
    }
  }
  return headers;
}

void addressesAre(Dice& dice, const std::vector<Ip>& rules, std::vector<IpPacket>& packets) {
  for (IpPacket& packet : packets) {
    const auto& f = dice.of(rules).filter;
    const auto inside = [&dice](Nimnet::IpAddr value, Nimnet::IpAddr mask) {
      return value.value | (static_cast<uint32_t>(dice.below(uint64_t{1} << 32)) & ~mask.value);
    };
    write32(packet.ip.bytes + 12, inside(f.source, f.sourceMask));
    write32(packet.ip.bytes + 16, inside(f.destination, f.destinationMask));
  }
}

}  // namespace Bench
