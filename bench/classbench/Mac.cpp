#include "classbench/Checks.h"
#include "classbench/Dice.h"
#include "classbench/Generate.h"
#include "classbench/Sections.h"

namespace Bench {

namespace {

using Ip = Acl::IpRule;
using Mac = Acl::MacRule;

constexpr uint64_t allBits = 0xffffffffffff, makerBits = 0xffffff000000;
constexpr uint16_t types[] = {0x0800, 0x86dd, 0x0806, 0x88cc, 0x8847};

/// Half are pairs of hosts; the others have a maker's or a site's leading bits in one address or in both.
std::vector<Mac> macRules(size_t count, uint64_t seed) {
  Dice dice(seed);
  std::vector<uint64_t> makers(8 + count / 50);
  for (uint64_t& maker : makers) maker = dice.below(allBits + 1) & makerBits & ~(uint64_t{1} << 40);
  const auto host = [&] { return makers[dice.popular(makers.size())] | dice.popular(1u << 16); };
  std::vector<Mac> rules(count);
  for (size_t i = 0; i < count; ++i) {
    rules[i].sequence = static_cast<uint32_t>(i + 1);
    auto& f = rules[i].filter;
    const auto mask = [&] {
      constexpr uint64_t bits[] = {24, 24, 28, 32, 36, 40};
      return dice.once(2) ? allBits : allBits & ~((uint64_t{1} << (48 - dice.of(bits))) - 1);
    };
    const bool pair = dice.once(2), fromOnly = !pair && dice.once(4), toOnly = !pair && dice.once(4);
    if (!toOnly) {
      f.sourceMask = Nimnet::EthAddr::fromValue(pair ? allBits : mask());
      f.source = Nimnet::EthAddr::fromValue(host() & f.sourceMask.value());
    }
    if (!fromOnly) {
      f.destinationMask = Nimnet::EthAddr::fromValue(pair ? allBits : mask());
      f.destination = Nimnet::EthAddr::fromValue(host() & f.destinationMask.value());
    }
    if (dice.once(2)) f.etherTypeNamed = true, f.etherType = dice.of(types);
  }
  return rules;
}

/// Packets anywhere inside a random rule, one in 16 fully random.
std::vector<MacPacket> macPackets(const std::vector<Mac>& rules, size_t count, uint64_t seed) {
  Dice dice(seed);
  const Mac none;
  std::vector<MacPacket> packets(count);
  for (MacPacket& packet : packets) {
    const auto& f = (dice.once(16) ? none : dice.of(rules)).filter;
    const auto inside = [&](const Nimnet::EthAddr& value, const Nimnet::EthAddr& mask) {
      return Nimnet::EthAddr::fromValue(value.value() | (dice.below(allBits + 1) & ~mask.value()));
    };
    packet.source = inside(f.source, f.sourceMask);
    packet.destination = inside(f.destination, f.destinationMask);
    packet.typeOrLen = f.etherTypeNamed ? f.etherType : dice.of(types);
  }
  return packets;
}

}  // namespace

void measureMac(Run& run, const std::vector<RuleSet>&) {
  Table table("MAC lists against generated IPv4 lists of the same size, uniform traffic, ns a packet",
              {"rules", "MAC", "IPv4 acl", "IPv4 fw", "IPv4 ipc", "MAC / mean"});
  for (const size_t size : {100, 1000, 10000}) {
    run.progress(fmt::format("MAC lists of {} rules", size));
    const auto rules = macRules(size, run.seed);
    const OurList<Mac> mac(rules);
    // Checked in order, so not too many.
    const auto packets = macPackets(rules, std::min<size_t>(run.headers, 20000), run.seed + 1);
    checkInOrder(fmt::format("MAC list of {} rules", size), mac, packets);
    std::vector<std::unique_ptr<OurList<Ip>>> lists;
    std::vector<std::vector<IpPacket>> ipPackets;
    for (const Style style : styles) {
      const auto tuples = generateRules(style, size, run.seed);
      lists.push_back(std::make_unique<OurList<Ip>>(ipRules(tuples)));
      ipPackets.push_back(packetsOf(uniformHeaders(tuples, packets.size(), run.seed + 1), ipPacket));
    }
    Contender macs = lookUpOf(mac, packets);
    std::vector<Contender> ips;
    for (size_t i = 0; i < lists.size(); ++i) ips.push_back(lookUpOf(*lists[i], ipPackets[i]));
    alternate({&macs, &ips[0], &ips[1], &ips[2]}, packets.size(), run.rounds);
    const double ratio =
        macs.ns.median / geometricMean({ips[0].ns.median, ips[1].ns.median, ips[2].ns.median});
    table.rowIs(
        {Number{static_cast<double>(size), 0}, macs.ns, ips[0].ns, ips[1].ns, ips[2].ns, Number{ratio, 2}});
    if (size == 1000) run.goalIs({"MAC lists of 1,000 rules against IPv4", ratio, 1.3, false});
  }
  run.tableIs(table);
}

}  // namespace Bench
