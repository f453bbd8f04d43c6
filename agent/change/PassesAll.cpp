#include <agent/change/PassesAll.h>

#include <algorithm>
#include <bit>
#include <compare>
#include <cstdint>
#include <span>
#include <vector>

namespace Agent {

namespace {

/// The bits of an address of any kind, the first one highest.
struct Bits {
  uint64_t high = 0, low = 0;

  Bits operator&(const Bits& other) const { return {high & other.high, low & other.low}; }
  bool at(int place) const { return place < 64 ? (high >> (63 - place)) & 1 : (low >> (127 - place)) & 1; }
  auto operator<=>(const Bits&) const = default;
};

Bits bitsOf(const Nimnet::IpAddr& address) { return {uint64_t{address.value} << 32, 0}; }
Bits bitsOf(const Nimnet::Ip6Addr& address) { return {address.high, address.low}; }
Bits bitsOf(const Nimnet::EthAddr& address) { return {address.value() << 16, 0}; }

struct Prefix {
  Bits first;
  int length;

  auto operator<=>(const Prefix&) const = default;
};

/// Whether sorted prefixes, which have the first `length` bits in common, leave none of the addresses with
/// these bits out. No deeper than an address is long, and no further than to a half that is empty.
bool coverAll(std::span<const Prefix> prefixes, int length) {
  if (prefixes.empty()) return false;
  if (prefixes.front().length <= length) return true;
  const auto upper = std::partition_point(prefixes.begin(), prefixes.end(),
                                          [length](const Prefix& one) { return !one.first.at(length); });
  return coverAll({prefixes.begin(), upper}, length + 1) && coverAll({upper, prefixes.end()}, length + 1);
}

/// What the permits of a list pass whatever else a packet has.
template <class Filter>
class Passed {
 public:
  void add(const Filter& filter) {
    if (filter == Filter()) all_ = true;
    addTo(sources_, filter, &Filter::source, &Filter::sourceMask);
    addTo(destinations_, filter, &Filter::destination, &Filter::destinationMask);
  }
  bool isAll() { return all_ || areAll(sources_) || areAll(destinations_); }

 private:
  /// Of a filter that asks for nothing but a prefix of this address.
  template <class Address>
  static void addTo(std::vector<Prefix>& prefixes, const Filter& filter, Address Filter::*address,
                    Address Filter::*mask) {
    Filter rest = filter;
    rest.*address = {};
    rest.*mask = {};
    if (rest != Filter()) return;
    const Bits bits = bitsOf(filter.*mask);
    const int ones = std::countl_one(bits.high);
    const int length = ones < 64 ? ones : 64 + std::countl_one(bits.low);
    if (std::popcount(bits.high) + std::popcount(bits.low) == length)
      prefixes.push_back({bitsOf(filter.*address) & bits, length});
  }
  static bool areAll(std::vector<Prefix>& prefixes) {
    std::sort(prefixes.begin(), prefixes.end());
    return coverAll(prefixes, 0);
  }

  bool all_ = false;
  std::vector<Prefix> sources_, destinations_;
};

template <class Rule>
bool passesAll(const Config::List& list) {
  Passed<typename Rule::FilterType> passed;
  for (const auto& [sequence, rule] : list.rules) {
    if (Config::common(rule).action != Acl::Action::permit) break;
    Acl::visitFilters(std::get<Rule>(rule).filter, [&passed](const auto& filter) {
      passed.add(filter);
      return true;
    });
  }
  return passed.isAll();
}

}  // namespace

bool surelyPassesAll(const Config::List& list) {
  if (list.rules.empty()) return false;
  return std::visit([&list](const auto& first) { return passesAll<std::decay_t<decltype(first)>>(list); },
                    list.rules.begin()->second);
}

}  // namespace Agent
