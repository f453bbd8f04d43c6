#include "classbench/Tuples.h"

#include <algorithm>
#include <array>

namespace Bench {

namespace {

/// Rules by column, so that the compiler can compare several with one header at a time.
struct Tile {
  static constexpr size_t size = 512;
  static constexpr size_t step = 32;
  using Column = std::array<uint32_t, size>;
  using Ports = std::array<int32_t, size>;

  Column source, sourceMask, destination, destinationMask, protocol, protocolMask;
  Ports sourceLow, sourceHigh, destinationLow, destinationHigh;

  /// Rules from `first` on; places behind the last one match nothing.
  Tile(const std::vector<TupleRule>& rules, size_t first, Bench::Ports ports) {
    const auto low = [ports](const PortRange& range) {
      return range.isAny() && ports == Bench::Ports::ofProtocolsThatDo ? -1 : int32_t{range.low};
    };
    for (size_t i = 0; i < size; ++i) {
      const bool there = first + i < rules.size();
      const TupleRule rule = there ? rules[first + i] : TupleRule();
      source[i] = rule.source.address & rule.source.mask();
      sourceMask[i] = rule.source.mask();
      destination[i] = rule.destination.address & rule.destination.mask();
      destinationMask[i] = rule.destination.mask();
      protocol[i] = rule.protocol;
      protocolMask[i] = rule.protocolNamed ? 0xff : 0;
      sourceLow[i] = there ? low(rule.sourcePort) : 65536;
      sourceHigh[i] = rule.sourcePort.high;
      destinationLow[i] = low(rule.destinationPort);
      destinationHigh[i] = rule.destinationPort.high;
    }
  }

  /// The place of the first rule that matches, or `size`.
  size_t first(const TupleHeader& h, int32_t sourcePort, int32_t destinationPort) const {
    for (size_t at = 0; at < size; at += step) {
      std::array<uint32_t, step> differs;
      uint32_t all = 1;
      for (size_t k = 0; k < step; ++k) {
        const size_t i = at + k;
        differs[k] = ((h.source ^ source[i]) & sourceMask[i]) |
                     ((h.destination ^ destination[i]) & destinationMask[i]) |
                     ((h.protocol ^ protocol[i]) & protocolMask[i]) |
                     static_cast<uint32_t>(sourcePort < sourceLow[i]) |
                     static_cast<uint32_t>(sourcePort > sourceHigh[i]) |
                     static_cast<uint32_t>(destinationPort < destinationLow[i]) |
                     static_cast<uint32_t>(destinationPort > destinationHigh[i]);
        all &= static_cast<uint32_t>(differs[k] != 0);
      }
      if (all) continue;
      return at + static_cast<size_t>(std::find(differs.begin(), differs.end(), 0u) - differs.begin());
    }
    return size;
  }
};

}  // namespace

std::vector<int32_t> firstRules(const std::vector<TupleRule>& rules, const std::vector<TupleHeader>& headers,
                                Ports ports) {
  std::vector<int32_t> result(headers.size(), noRule);
  std::vector<uint32_t> open;
  for (uint32_t i = 0; i < headers.size(); ++i) {
    if (i == 0 || headers[i] != headers[i - 1]) open.push_back(i);
  }
  for (size_t first = 0; first < rules.size() && !open.empty(); first += Tile::size) {
    const Tile tile(rules, first, ports);
    std::erase_if(open, [&](uint32_t i) {
      const TupleHeader& h = headers[i];
      const bool seen = ports == Ports::ofEveryProtocol || hasPorts(h.protocol);
      const size_t at = tile.first(h, seen ? h.sourcePort : -1, seen ? h.destinationPort : -1);
      if (at == Tile::size) return false;
      result[i] = static_cast<int32_t>(first + at);
      return true;
    });
  }
  for (size_t i = 1; i < headers.size(); ++i) {
    if (headers[i] == headers[i - 1]) result[i] = result[i - 1];
  }
  return result;
}

}  // namespace Bench
