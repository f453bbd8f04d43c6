#include <algorithm>
#include <memory>

#include "classbench/Checks.h"
#include "classbench/Dice.h"
#include "classbench/Generate.h"
#include "classbench/Peer.h"
#include "classbench/Sections.h"

namespace Bench {

namespace {

using Ip = Acl::IpRule;

constexpr size_t shapeSize = 1000;

Prefix prefixOf(uint32_t address, size_t length) {
  Prefix made{0, static_cast<uint8_t>(length)};
  made.address = address & made.mask();
  return made;
}
PortRange rangeAt(size_t low, size_t length) {
  return {static_cast<uint16_t>(low), static_cast<uint16_t>(std::min<size_t>(65535, low + length))};
}

using Tuples = std::vector<TupleRule>;
using Headers = std::vector<TupleHeader>;

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

/// Headers that are inside of a rule but for one bit of an address or the next port: few meet anything, and
/// all have to be followed to the end.
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

struct Shape {
  const char* name;
  Tuples (*rules)(Dice&);
  void (*also)(Dice&, std::vector<Ip>&) = nullptr;  ///< what five fields cannot say
};

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
/// Moves packets to where the addresses of rules now are.
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

constexpr Shape shapes[] = {{"prefixes of one pair", nestedPrefixes},
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

struct Traffic {
  const char* name;
  Headers (*headers)(const Tuples&, size_t, uint64_t);
};
constexpr Traffic traffics[] = {{"uniform", uniformHeaders}, {"near misses", nearMisses}};

/// Usual lists, to be timed in turn with each of those above.
class BenignLists {
 public:
  BenignLists(const Run& run, size_t headers) {
    for (const Style style : styles) {
      const auto tuples = generateRules(style, shapeSize, run.seed);
      lists_.push_back(std::make_unique<OurList<Ip>>(ipRules(tuples)));
      packets_.push_back(packetsOf(uniformHeaders(tuples, headers, run.seed + 1), ipPacket));
    }
    for (size_t i = 0; i < lists_.size(); ++i) contenders_.push_back(lookUpOf(*lists_[i], packets_[i]));
  }

  void joinIn(std::vector<Contender*>& all) {
    for (Contender& contender : contenders_) all.push_back(&contender);
  }
  /// What they took in the last measurement: the geometric mean.
  double ns() const {
    return meanOf([](const Contender& contender) { return contender.ns.median; });
  }
  double ratioTo(const Contender& ours) const {
    return meanOf([&ours](const Contender& contender) { return ratioOf(ours, contender); });
  }

 private:
  template <class Figure>
  double meanOf(const Figure& figure) const {
    std::vector<double> all;
    for (const Contender& contender : contenders_) all.push_back(figure(contender));
    return geometricMean(all);
  }

  std::vector<std::unique_ptr<OurList<Ip>>> lists_;
  std::vector<std::vector<IpPacket>> packets_;
  std::vector<Contender> contenders_;
};

}  // namespace

void measureWorst(Run& run, const std::vector<RuleSet>&) {
  const size_t headers = std::min<size_t>(run.headers, 20000);
  run.progress("worst cases: the usual lists");
  BenignLists benignLists(run, headers);
  Table table("1,000 rules and traffic against the structure, and usual lists in turn with them, ns a packet",
              {"rules", "traffic", "look-up", "usual", "ratio", "in order", "ratio", "compiled in ms",
               "bytes a rule", "rte_acl"});
  double worst = 0, slowest = 0;
  for (const Shape& shape : shapes) {
    run.progress(fmt::format("worst cases: {}", shape.name));
    Dice dice(run.seed);
    const Tuples tuples = shape.rules(dice);
    auto rules = ipRules(tuples);
    if (shape.also) shape.also(dice, rules);
    const OurList<Ip> list(rules);
    std::string why;
    const auto peer = shape.also ? nullptr : Peer::make(tuples, std::nullopt, &why);
    for (const Traffic& traffic : traffics) {
      auto packets = packetsOf(traffic.headers(tuples, headers, run.seed + 1), ipPacket);
      if (shape.also) addressesAre(dice, rules, packets);
      checkInOrder(fmt::format("{}, {}", shape.name, traffic.name), list, packets);
      Contender ours = lookUpOf(list, packets), ordered = inOrderOf(list, packets);
      Contender theirs{"rte_acl", [&](Portion portion) { return peer->lookUps(portion); }};
      std::vector<Contender*> all{&ours, &ordered};
      if (peer) {
        peer->packetsAre(packets);
        all.push_back(&theirs);
      }
      benignLists.joinIn(all);
      alternate(all, packets.size(), run.rounds);
      const double over = benignLists.ratioTo(ours), overOrdered = ratioOf(ours, ordered);
      worst = std::max(worst, over);
      slowest = std::max(slowest, overOrdered);
      table.rowIs({std::string(shape.name), std::string(traffic.name), ours.ns, Number{benignLists.ns(), 1},
                   Number{over, 2}, ordered.ns, Number{overOrdered, 2}, Number{list.compileNs() / 1e6, 2},
                   Number{static_cast<double>(list.lookUpBytes()) / static_cast<double>(shapeSize), 0},
                   peer ? Cell(theirs.ns) : Cell()});
    }
  }
  run.tableIs(table);
  run.goalIs({"worst case of 1,000 rules against usual lists", worst, 2, false});
  run.goalIs({"1,000 rules: slowest against the rules in order (0.05 is noise)", slowest, 1.05, false});
}

void measureSmall(Run& run, const std::vector<RuleSet>&) {
  Table table("Lists of a few rules, ns a packet",
              {"rules", "style", "traffic", "look-up", "in order", "look-up / in order"});
  constexpr size_t headers = 5000;
  double slowest = 0;
  for (const size_t size : {1, 2, 4, 8, 16, 32}) {
    for (const Style style : {Style::acl, Style::fw}) {
      run.progress(fmt::format("lists of {} rules", size));
      const auto tuples = generateRules(style, size, run.seed);
      const OurList<Ip> list(ipRules(tuples));
      const auto first = uniformHeaders({tuples.front()}, headers, run.seed);
      const auto last = uniformHeaders({tuples.back()}, headers, run.seed);
      const std::pair<const char*, Headers> all[] = {{"first rule", first},
                                                     {"last rule", last},
                                                     {"any rule", uniformHeaders(tuples, headers, run.seed)},
                                                     {"near misses", nearMisses(tuples, headers, run.seed)}};
      for (const auto& [name, traffic] : all) {
        const auto packets = packetsOf(traffic, ipPacket);
        checkInOrder(fmt::format("{} rules, {}", size, name), list, packets);
        Contender ours = lookUpOf(list, packets), ordered = inOrderOf(list, packets);
        alternate({&ours, &ordered}, packets.size(), 3 * run.rounds);
        const double ratio = ratioOf(ours, ordered);
        slowest = std::max(slowest, ratio);
        table.rowIs({Number{static_cast<double>(size), 0}, std::string(nameOf(style)), std::string(name),
                     ours.ns, ordered.ns, Number{ratio, 2}});
      }
    }
  }
  run.tableIs(table);
  run.goalIs(
      {"lists of 1 to 32 rules: slowest against the rules in order (0.05 is noise)", slowest, 1.05, false});
}

}  // namespace Bench
