#include <Acl/Keys.h>
#include <Classify/Region.h>
#include <Kelp/Assert.h>

#include <algorithm>
#include <array>
#include <bit>
#include <map>
#include <tuple>

namespace Acl {

namespace {

using Classify::Image;
using Classify::Interval;
using Classify::Projection;

/// Up to so many elements, kept in place: a change of a rule should not wait for memory.
template <class Element, size_t most>
class Few {
 public:
  Few() = default;
  Few(std::initializer_list<Element> all) {
    for (const Element& element : all) push_back(element);
  }
  void push_back(const Element& element) {
    KELP_ASSERT(count_ < most, "there is room for all");
    all_[count_++] = element;
  }

  size_t size() const { return count_; }
  bool empty() const { return count_ == 0; }
  Element* begin() { return all_; }
  Element* end() { return all_ + count_; }
  const Element* begin() const { return all_; }
  const Element* end() const { return all_ + count_; }
  const Element& operator[](size_t i) const { return all_[i]; }
  const Element& front() const { return all_[0]; }
  Element& back() { return all_[count_ - 1]; }
  const Element& back() const { return all_[count_ - 1]; }

 private:
  size_t count_ = 0;
  Element all_[most] = {};
};

/// Numbers at which and behind which a condition may change its answer, and 0, in ascending order.
using Turns = Few<uint32_t, 2 * PortMatch::maxPorts + 2>;
using Intervals = Few<Interval, PortMatch::maxPorts + 2>;

template <class Numbers>
Turns turnsAt(const Numbers& numbers) {
  Turns turns{0, 1};
  for (const uint32_t number : numbers) {
    if (number == 0) continue;  // as are operands that are not used
    turns.push_back(number);
    turns.push_back(number + 1);
  }
  std::sort(turns.begin(), turns.end());
  return turns;
}

/// The numbers from 0 to `highest` that meet a condition, as intervals. The condition changes its answer only
/// at some numbers and behind them.
template <class Numbers, class Meets>
Intervals intervalsOf(const Numbers& numbers, uint32_t highest, const Meets& meets) {
  const Turns turns = turnsAt(numbers);
  Intervals intervals;
  for (size_t i = 0; i < turns.size() && turns[i] <= highest; ++i) {
    if (i + 1 < turns.size() && turns[i + 1] == turns[i]) continue;
    if (!meets(turns[i])) continue;
    const uint32_t last = i + 1 < turns.size() ? std::min(turns[i + 1] - 1, highest) : highest;
    if (!intervals.empty() && intervals.back().high + 1 == turns[i]) {
      intervals.back().high = last;
    } else {
      intervals.push_back({turns[i], last});
    }
  }
  return intervals;
}

Intervals intervalsOf(const PortMatch& match) {
  return intervalsOf(match.ports, 0xffff,
                     [&](uint32_t port) { return match.matches(static_cast<uint16_t>(port)); });
}

Intervals intervalsOf(const HopMatch& match) {
  return intervalsOf(std::array{match.value}, 0xff,
                     [&](uint32_t hops) { return match.matches(static_cast<uint8_t>(hops)); });
}

/// The interval around several.
Intervals around(const Intervals& intervals) { return {{intervals.front().low, intervals.back().high}}; }

/// Asks that the bits of a mask are as in a value.
void askBits(Image& image, int word, uint32_t mask, uint32_t value) {
  image.mask[word] |= mask;
  image.value[word] |= value & mask;
}

void askVlan(Image& image, const VlanMatch& vlan, uint32_t known) {
  if (vlan.isAny()) return;
  askBits(image, 2, known | (~uint32_t{vlan.wildcard} & Third::vlanMask), known | vlan.id);
}

/// The numbers of an IP rule that are compared with ranges; any where the rule asks for none.
struct Ranges {
  Intervals upper = {{0, 0xffff}}, lower = {{0, 0xffff}};  ///< of the pair
  Intervals hops = {{0, 0xff}};
  Interval classes{0, 0xff};

  bool empty() const { return upper.empty() || lower.empty() || hops.empty(); }
  size_t combinations() const { return upper.size() * lower.size() * hops.size(); }
};

void askThird(const IpFilterBase& filter, Image& image) {
  askVlan(image, filter.vlan, Third::vlanKnown);
  if (filter.protocolNamed) {
    const uint32_t protocol = uint32_t{filter.protocol} << Third::protocolShift;
    askBits(image, 2, 0xffu << Third::protocolShift | Third::protocolKnown, protocol | Third::protocolKnown);
  }
  if (filter.fragments) askBits(image, 2, Third::laterFragment, Third::laterFragment);
  if (filter.established) askBits(image, 2, Third::established, Third::established);
  const uint32_t flags = Third::flagsOf(filter.tcpFlags);
  askBits(image, 2, flags, flags);
  if (filter.tcpFlags & ~Third::flagsKept) image.exact = false;
}

/// Ports, or ICMP type and code. False when the rule asks for both, which no packet has.
bool askPair(const IpFilterBase& filter, Image& image, Ranges& ranges) {
  const bool ports = !filter.sourcePort.isAny() || !filter.destinationPort.isAny();
  if (ports) {
    askBits(image, 2, Third::hasPorts, Third::hasPorts);
    ranges.upper = intervalsOf(filter.sourcePort);
    ranges.lower = intervalsOf(filter.destinationPort);
  }
  if (!filter.icmpTypeNamed && !filter.icmpCodeNamed) return true;
  if (ports) return false;
  askBits(image, 2, Third::hasIcmp, Third::hasIcmp);
  const uint32_t least = uint32_t{filter.icmpType} << 8 | filter.icmpCode;
  if (filter.icmpTypeNamed) ranges.upper = {{least, filter.icmpCodeNamed ? least : least | 0xff}};
  if (!filter.icmpTypeNamed) image.exact = false;
  return true;
}

void askClassAndHops(const IpFilterBase& filter, bool wide, Image& image, Ranges& ranges) {
  if (!asksQuad(filter)) return;
  // Bits that are no leading ones are no range of numbers.
  const auto mask = filter.trafficClassMask;
  const bool leading = std::countl_one(mask) == std::popcount(mask);
  const uint32_t first = filter.trafficClass & mask;
  if (leading) ranges.classes = {first, first | (~uint32_t{mask} & 0xff)};
  if (!filter.hops.isAny()) ranges.hops = intervalsOf(filter.hops);
  if (!leading || !wide) image.exact = false;
}

/// Widens ranges until their combinations are few. The image is inexact then.
void boundCombinations(Image& image, Ranges& ranges) {
  constexpr size_t manyImages = 8;
  for (auto* several : {&ranges.lower, &ranges.upper, &ranges.hops}) {
    if (ranges.combinations() <= manyImages) break;
    if (several->size() > 1) image.exact = false;
    *several = around(*several);
  }
}

/// Everything of an IP rule but its addresses, which `image` has.
void addIpImages(const IpFilterBase& filter, bool wide, Image image, std::vector<Image>& images) {
  Ranges ranges;
  askThird(filter, image);
  if (!askPair(filter, image, ranges)) return;
  askClassAndHops(filter, wide, image, ranges);
  if (ranges.empty()) return;
  if (!wide) ranges.hops = around(ranges.hops);
  boundCombinations(image, ranges);
  for (const Interval& high : ranges.upper) {
    for (const Interval& low : ranges.lower) {
      for (const Interval& hop : ranges.hops) {
        image.pairLow = high.low << 16 | low.low;
        image.pairHigh = high.high << 16 | low.high;
        if (wide) image.quad = quadIn(ranges.classes.low, ranges.classes.high, hop.low, hop.high);
        images.push_back(image);
        // Any hops, as long as they are known: the quad cannot say that.
        if (!filter.hops.isAny() && hop.low == 0 && hop.high == 0xff) images.back().exact = false;
      }
    }
  }
}

struct Words {
  uint64_t upper, lower;
  auto operator<=>(const Words&) const = default;
};

using ValuesAndMasks = std::vector<std::pair<Words, Words>>;

/// Bits of an address, those first that tell the values apart best. Without bits that no value asks for.
std::vector<int> bestBits(const ValuesAndMasks& values) {
  struct Count {
    uint32_t zeros = 0, ones = 0;
  };
  std::array<Count, 128> counts{};
  for (const auto& [value, mask] : values) {
    for (int bit = 0; bit < 128; ++bit) {
      const uint64_t here = uint64_t{1} << (bit % 64);
      if (!((bit < 64 ? mask.lower : mask.upper) & here)) continue;
      ++((bit < 64 ? value.lower : value.upper) & here ? counts[bit].ones : counts[bit].zeros);
    }
  }
  std::vector<int> bits;
  for (int bit = 0; bit < 128; ++bit) {
    if (counts[bit].zeros + counts[bit].ones > 0) bits.push_back(bit);
  }
  std::sort(bits.begin(), bits.end(), [&](int a, int b) {
    const auto worth = [&](int bit) {
      return std::tuple(std::min(counts[bit].zeros, counts[bit].ones), counts[bit].zeros + counts[bit].ones,
                        -bit);
    };
    return worth(a) > worth(b);
  });
  return bits;
}

/// Has a side compare, beside the bits that it gathers, those of the rest that most values ask for.
void compareRest(Projection::Side& side, const ValuesAndMasks& values) {
  std::map<std::pair<Words, Words>, size_t> rests;
  size_t most = 0;
  for (const auto& [value, mask] : values) {
    const Words rest{mask.upper & ~side.mask[0], mask.lower & ~side.mask[1]};
    if (rest == Words{0, 0}) continue;
    const Words wanted{value.upper & rest.upper, value.lower & rest.lower};
    if (const size_t times = ++rests[{wanted, rest}]; times > most) {
      most = times;
      side.restMask[0] = rest.upper, side.restMask[1] = rest.lower;
      side.restValue[0] = wanted.upper, side.restValue[1] = wanted.lower;
    }
  }
}

/// The side of a projection that tells the values of one address of a list apart best.
Projection::Side sideOf(const ValuesAndMasks& values, uint32_t agrees) {
  constexpr size_t gathered = 32;
  Projection::Side side;
  side.agrees = agrees;
  const std::vector<int> bits = bestBits(values);
  for (size_t i = 0; i < std::min(gathered, bits.size()); ++i)
    side.mask[bits[i] < 64 ? 1 : 0] |= uint64_t{1} << (bits[i] % 64);
  side.shift = static_cast<uint32_t>(std::popcount(side.mask[1]));
  compareRest(side, values);
  return side;
}

void askAddress(Image& image, int word, const Projection::Side& side, const Nimnet::Ip6Addr& value,
                const Nimnet::Ip6Addr& mask) {
  const auto gather = [&side](uint64_t upper, uint64_t lower) {
    return static_cast<uint32_t>(Classify::gatherBits(upper, side.mask[0]) << side.shift |
                                 Classify::gatherBits(lower, side.mask[1]));
  };
  askBits(image, word, gather(mask.high, mask.low), gather(value.high, value.low));
  const Words rest{mask.high & ~side.mask[0], mask.low & ~side.mask[1]};
  if (rest == Words{0, 0}) return;
  const Words wanted{value.high & rest.upper, value.low & rest.lower};
  if (rest == Words{side.restMask[0], side.restMask[1]} &&
      wanted == Words{side.restValue[0], side.restValue[1]}) {
    askBits(image, 2, side.agrees, side.agrees);
  } else {
    image.exact = false;
  }
}

/// The upper 16 bits of a MAC address, as a range where the mask allows it.
Interval upperOctets(const Nimnet::EthAddr& value, const Nimnet::EthAddr& mask, bool& exact) {
  const auto bits = static_cast<uint16_t>(mask.value() >> 32);
  const uint32_t wanted = static_cast<uint32_t>(value.value() >> 32) & bits;
  if (std::countl_one(bits) == std::popcount(bits)) return {wanted, wanted | (~uint32_t{bits} & 0xffff)};
  exact = false;
  return {0, 0xffff};
}

}  // namespace

Projection projectionOf(std::span<const Ip6Filter* const> filters) {
  std::vector<std::pair<Words, Words>> sources, destinations;
  for (const Ip6Filter* filter : filters) {
    visitFilters(*filter, [&](const Ip6Filter& one) {
      sources.push_back({{one.source.high, one.source.low}, {one.sourceMask.high, one.sourceMask.low}});
      destinations.push_back(
          {{one.destination.high, one.destination.low}, {one.destinationMask.high, one.destinationMask.low}});
      return true;
    });
  }
  return {{sideOf(sources, Third::sourceAgrees), sideOf(destinations, Third::destinationAgrees)}};
}

void addImages(const IpFilter& filter, uint32_t slot, bool wide, std::vector<Image>& images) {
  visitFilters(filter, [&](const IpFilter& one) {
    Image image;
    image.slot = slot;
    askBits(image, 0, one.sourceMask.value, one.source.value);
    askBits(image, 1, one.destinationMask.value, one.destination.value);
    addIpImages(one, wide, image, images);
    return true;
  });
}

void addImages(const Ip6Filter& filter, const Projection& projection, uint32_t slot, bool wide,
               std::vector<Image>& images) {
  visitFilters(filter, [&](const Ip6Filter& one) {
    Image image;
    image.slot = slot;
    askAddress(image, 0, projection.sides[0], one.source, one.sourceMask);
    askAddress(image, 1, projection.sides[1], one.destination, one.destinationMask);
    addIpImages(one, wide, image, images);
    return true;
  });
}

void addImages(const MacFilter& filter, uint32_t slot, std::vector<Image>& images) {
  if (!filter.mpls.isAny()) return;  // labels are not looked at
  Image image;
  image.slot = slot;
  askBits(image, 0, static_cast<uint32_t>(filter.sourceMask.value()),
          static_cast<uint32_t>(filter.source.value()));
  askBits(image, 1, static_cast<uint32_t>(filter.destinationMask.value()),
          static_cast<uint32_t>(filter.destination.value()));
  const Interval source = upperOctets(filter.source, filter.sourceMask, image.exact);
  const Interval destination = upperOctets(filter.destination, filter.destinationMask, image.exact);
  image.pairLow = source.low << 16 | destination.low;
  image.pairHigh = source.high << 16 | destination.high;
  askVlan(image, filter.vlan, 0);
  if (filter.etherTypeNamed) askBits(image, 2, 0xffff0000, uint32_t{filter.etherType} << 16);
  images.push_back(image);
}

}  // namespace Acl
