#include "classbench/Generate.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <set>
#include <tuple>

#include "classbench/Dice.h"

namespace Bench {

namespace {

template <class T>
struct Weighted {
  T value;
  unsigned weight;
};

template <class T, size_t N>
T pick(Dice& dice, const Weighted<T> (&values)[N]) {
  unsigned all = 0;
  for (const auto& value : values) all += value.weight;
  auto left = static_cast<unsigned>(dice.below(all));
  for (const auto& value : values) {
    if (left < value.weight) return value.value;
    left -= value.weight;
  }
  return values[N - 1].value;
}

using Lengths = std::pair<int, int>;  // a prefix is as long as this, both included

constexpr Weighted<Lengths> aclSources[] = {{{32, 32}, 53}, {{30, 31}, 30}, {{23, 25}, 12},
                                            {{20, 22}, 3},  {{1, 9}, 1},    {{0, 0}, 1}};
constexpr Weighted<Lengths> aclDestinations[] = {{{32, 32}, 51}, {{30, 31}, 23}, {{21, 25}, 18},
                                                 {{15, 18}, 3},  {{1, 12}, 4},   {{0, 0}, 1}};
constexpr Weighted<Lengths> fwSources[] = {{{0, 0}, 40},  {{1, 2}, 22},   {{8, 16}, 3},
                                           {{20, 26}, 5}, {{27, 30}, 10}, {{31, 32}, 20}};
constexpr Weighted<Lengths> fwDestinations[] = {{{0, 0}, 19},  {{1, 2}, 11},  {{20, 23}, 2},
                                                {{25, 28}, 2}, {{29, 30}, 8}, {{31, 32}, 58}};
constexpr Weighted<Lengths> ipcAddresses[] = {{{32, 32}, 21}, {{29, 31}, 11}, {{23, 28}, 45},
                                              {{15, 22}, 13}, {{1, 14}, 3},   {{0, 0}, 7}};

constexpr PortRange exact(uint16_t port) { return {port, port}; }
constexpr PortRange anyPort{};
constexpr PortRange highPorts{1024, 65535};
constexpr PortRange drawnExact{1, 0}, drawnRange{2, 0};  // stand for one that is drawn

constexpr Weighted<PortRange> aclPorts[] = {
    {anyPort, 12},   {exact(1521), 12}, {exact(1526), 5}, {exact(1221), 4}, {exact(1433), 3},
    {exact(135), 3}, {exact(14753), 2}, {exact(80), 2},   {drawnExact, 50}, {drawnRange, 7}};
constexpr Weighted<PortRange> fwPorts[] = {
    {anyPort, 20},   {highPorts, 9},  {exact(22), 11}, {exact(80), 7},   {exact(53), 7}, {exact(25), 7},
    {exact(123), 5}, {exact(750), 3}, {exact(544), 2}, {drawnExact, 20}, {drawnRange, 9}};
constexpr Weighted<PortRange> fwSourcePorts[] = {{anyPort, 72},  {highPorts, 8},  {exact(123), 4},
                                                 {exact(53), 4}, {drawnExact, 9}, {drawnRange, 3}};
constexpr Weighted<PortRange> ipcPorts[] = {
    {anyPort, 48},  {highPorts, 7},   {exact(514), 8}, {exact(69), 6},   {exact(9003), 4},
    {exact(80), 3}, {exact(1433), 2}, {exact(53), 3},  {drawnExact, 14}, {drawnRange, 5}};
constexpr Weighted<PortRange> ipcSourcePorts[] = {
    {anyPort, 75}, {exact(161), 6}, {exact(53), 3}, {drawnExact, 16}};

/// What is named of the protocol; 0 stands for any.
constexpr Weighted<uint8_t> aclProtocols[] = {{6, 86}, {17, 2}, {1, 4}, {0, 8}};
constexpr Weighted<uint8_t> fwProtocols[] = {{6, 58}, {17, 32}, {1, 4}, {47, 5}, {0, 1}};
constexpr Weighted<uint8_t> ipcProtocols[] = {{6, 27}, {17, 39}, {1, 2}, {50, 1}, {0, 31}};

uint16_t port(Dice& dice) {
  return static_cast<uint16_t>(dice.once(3) ? dice.below(65536) : dice.below(9000));
}

PortRange drawn(Dice& dice, PortRange range) {
  if (range == drawnExact) return exact(port(dice));
  if (range != drawnRange) return range;
  const uint16_t low = port(dice);
  const auto most = static_cast<uint64_t>(65535 - low);
  return {low, static_cast<uint16_t>(low + dice.below(std::min<uint64_t>(most, 1u << dice.below(12)) + 1))};
}

/// The addresses of one column: few networks have most of the hosts, as in a company's own address space.
class Networks {
 public:
  Networks(Dice& dice, size_t count) {
    for (size_t i = 0; i < count; ++i) {
      // Half of them close to another one, so that prefixes nest.
      const uint32_t fresh = static_cast<uint32_t>(dice.below(uint64_t{1} << 32));
      if (i == 0 || dice.once(2)) {
        networks_.push_back(fresh);
      } else {
        const auto bits = dice.between(8, 16);
        const uint32_t low = ~uint32_t{0} >> bits;
        networks_.push_back((dice.of(networks_) & ~low) | (fresh & low));
      }
    }
  }
  Prefix prefix(Dice& dice, Lengths lengths) const {
    Prefix made{networks_[dice.popular(networks_.size())],
                static_cast<uint8_t>(dice.between(static_cast<uint64_t>(lengths.first),
                                                  static_cast<uint64_t>(lengths.second)))};
    // Within the network the last ten bits differ, the popular ones most often.
    made.address = (made.address & ~uint32_t{1023}) | static_cast<uint32_t>(dice.popular(1024));
    if (made.length < 12) made.address = static_cast<uint32_t>(dice.below(uint64_t{1} << 32));
    made.address &= made.mask();
    return made;
  }

 private:
  std::vector<uint32_t> networks_;
};

TupleRule someRule(Dice& dice, Style style, const Networks& sources, const Networks& destinations) {
  TupleRule rule;
  switch (style) {
    case Style::acl:
      rule.source = sources.prefix(dice, pick(dice, aclSources));
      rule.destination = destinations.prefix(dice, pick(dice, aclDestinations));
      rule.protocol = pick(dice, aclProtocols);
      if (hasPorts(rule.protocol)) rule.destinationPort = drawn(dice, pick(dice, aclPorts));
      break;
    case Style::fw:
      rule.source = sources.prefix(dice, pick(dice, fwSources));
      rule.destination = destinations.prefix(dice, pick(dice, fwDestinations));
      rule.protocol = pick(dice, fwProtocols);
      if (hasPorts(rule.protocol)) {
        rule.sourcePort = drawn(dice, pick(dice, fwSourcePorts));
        rule.destinationPort = drawn(dice, pick(dice, fwPorts));
      }
      break;
    case Style::ipc:
      rule.source = sources.prefix(dice, pick(dice, ipcAddresses));
      rule.destination = destinations.prefix(dice, pick(dice, ipcAddresses));
      rule.protocol = pick(dice, ipcProtocols);
      if (hasPorts(rule.protocol)) {
        rule.sourcePort = drawn(dice, pick(dice, ipcSourcePorts));
        rule.destinationPort = drawn(dice, pick(dice, ipcPorts));
      }
      break;
  }
  rule.protocolNamed = rule.protocol != 0;
  return rule;
}

auto order(const TupleRule& r) {
  return std::tuple(r.source.address, r.source.length, r.destination.address, r.destination.length,
                    r.sourcePort.low, r.sourcePort.high, r.destinationPort.low, r.destinationPort.high,
                    r.protocol);
}

/// How much of all traffic a rule allows, as bits: rules with much come late, or they would hide the others.
unsigned width(const TupleRule& rule) {
  return (rule.source.length < 16) + (rule.destination.length < 16) + (rule.source.length == 0) +
         (rule.destination.length == 0) + !rule.protocolNamed + rule.destinationPort.isAny();
}

}  // namespace

const char* nameOf(Style style) { return style == Style::acl ? "acl" : style == Style::fw ? "fw" : "ipc"; }

std::vector<TupleRule> generateRules(Style style, size_t count, uint64_t seed) {
  Dice dice(seed * 3 + static_cast<uint64_t>(style));
  const auto networks = static_cast<size_t>(8 + std::pow(static_cast<double>(count), 0.75));
  const Networks sources(dice, networks), destinations(dice, networks);
  std::set<decltype(order(TupleRule()))> known;
  std::vector<TupleRule> rules;
  while (rules.size() < count) {
    const TupleRule rule = someRule(dice, style, sources, destinations);
    // Of the widest rules a list has a handful.
    if (width(rule) >= 5 && rules.size() > 40 && !dice.once(64)) continue;
    if (known.insert(order(rule)).second) rules.push_back(rule);
  }
  // About in the order of width, as people write them.
  std::vector<std::pair<double, size_t>> places;
  for (size_t i = 0; i < count; ++i) places.emplace_back(width(rules[i]) + 3 * dice.share(), i);
  std::sort(places.begin(), places.end());
  std::vector<TupleRule> sorted;
  for (const auto& place : places) sorted.push_back(rules[place.second]);
  return sorted;
}

std::vector<TupleHeader> cornerHeaders(const std::vector<TupleRule>& rules, size_t count, uint64_t seed) {
  Dice dice(seed);
  const auto corner = [&dice](const Prefix& prefix) {
    return dice.once(2) ? prefix.address : prefix.address | ~prefix.mask();
  };
  const auto end = [&dice](const PortRange& range) { return dice.once(2) ? range.low : range.high; };
  std::vector<TupleHeader> headers;
  while (headers.size() < count) {
    const TupleRule& rule = dice.of(rules);
    TupleHeader header{corner(rule.source), corner(rule.destination), end(rule.sourcePort),
                       end(rule.destinationPort), rule.protocol};
    if (!rule.protocolNamed) header.protocol = dice.once(2) ? 6 : 17;
    constexpr double a = 1, b = 0.1;
    const double pareto = b / std::pow(1 - dice.share(), 1 / a);
    const auto copies = static_cast<size_t>(std::ceil(std::min(pareto, 10000.0)));
    headers.insert(headers.end(), std::min(copies, count - headers.size()), header);
  }
  return headers;
}

std::vector<TupleHeader> uniformHeaders(const std::vector<TupleRule>& rules, size_t count, uint64_t seed) {
  Dice dice(seed);
  const auto random = [&dice] { return static_cast<uint32_t>(dice.below(uint64_t{1} << 32)); };
  const auto within = [&dice](const PortRange& range) {
    return static_cast<uint16_t>(dice.between(range.low, range.high));
  };
  std::vector<TupleHeader> headers(count);
  for (TupleHeader& header : headers) {
    const TupleRule rule = dice.once(16) ? TupleRule() : dice.of(rules);
    header.source = rule.source.address | (random() & ~rule.source.mask());
    header.destination = rule.destination.address | (random() & ~rule.destination.mask());
    header.sourcePort = within(rule.sourcePort);
    header.destinationPort = within(rule.destinationPort);
    header.protocol = rule.protocolNamed ? rule.protocol : dice.once(2) ? 6 : 17;
  }
  return headers;
}

std::vector<Trace> tracesFor(const std::vector<TupleRule>& rules, size_t headers, uint64_t seed) {
  std::vector<Trace> traces = {{"trace", cornerHeaders(rules, headers, seed + 1), {}},
                               {"uni.trace", uniformHeaders(rules, headers, seed + 2), {}}};
  for (Trace& trace : traces) trace.first = firstRules(rules, trace.headers, Ports::ofEveryProtocol);
  return traces;
}

RuleSet generateSet(Style style, size_t rules, size_t headers, uint64_t seed) {
  RuleSet set;
  const std::string size = rules % 1000 == 0 ? fmt::format("{}k", rules / 1000) : fmt::format("{}", rules);
  set.name = fmt::format("gen_{}_{}.{}", nameOf(style), size, seed);
  set.rules = generateRules(style, rules, seed);
  set.traces = tracesFor(set.rules, headers, seed);
  return set;
}

}  // namespace Bench
