#include <agent/config/Addresses.h>
#include <agent/config/Nearest.h>
#include <fmt/format.h>

#include <algorithm>

namespace Config {

namespace {

using Nimnet::EthAddr;
using Nimnet::Ip6Addr;
using Nimnet::IpAddr;

constexpr uint64_t ethBits = 0xffffffffffff;

IpAddr inverse(IpAddr a) { return {~a.value}; }
Ip6Addr inverse(Ip6Addr a) { return {~a.high, ~a.low}; }
EthAddr inverse(EthAddr a) { return EthAddr::fromValue(~a.value() & ethBits); }

IpAddr both(IpAddr a, IpAddr b) { return {a.value & b.value}; }
Ip6Addr both(Ip6Addr a, Ip6Addr b) { return {a.high & b.high, a.low & b.low}; }
EthAddr both(EthAddr a, EthAddr b) { return EthAddr::fromValue(a.value() & b.value()); }

/// A number of `bits` bits in which the highest `length` are set. (To shift by the whole width is undefined.)
uint64_t highBits(unsigned length, unsigned bits) {
  if (length == 0) return 0;
  return (~uint64_t{0} << (64 - length)) >> (64 - bits);
}

/// Where the kinds of address differ.
template <class Addr>
struct Kind;

template <>
struct Kind<IpAddr> {
  static constexpr bool hasPrefixes = true;
  static constexpr unsigned bits = 32;
  static constexpr auto forms = "any, host A.B.C.D, A.B.C.D/LENGTH or A.B.C.D WILDCARD";
  static constexpr auto memberForms =
      "host ADDRESS, ADDRESS/LENGTH, ADDRESS WILDCARD, range LOW HIGH or group-object NAME";
  static constexpr auto plain = "an IPv4 address";
  static constexpr auto wildcard =
      "a wildcard for the address, such as 0.0.0.255 (one address is host A.B.C.D)";
  static constexpr auto prefixForm = "a prefix length of 0 to 32 behind an IPv4 address";
  static IpAddr prefix(unsigned length) { return {static_cast<uint32_t>(highBits(length, 32))}; }
};

template <>
struct Kind<Ip6Addr> {
  static constexpr bool hasPrefixes = true;
  static constexpr unsigned bits = 128;
  static constexpr auto forms = "any, host A:B::C, A:B::C/LENGTH or A:B::C WILDCARD";
  static constexpr auto memberForms = Kind<IpAddr>::memberForms;
  static constexpr auto plain = "an IPv6 address";
  static constexpr auto wildcard = "a wildcard for the address, such as ::ffff (one address is host A:B::C)";
  static constexpr auto prefixForm = "a prefix length of 0 to 128 behind an IPv6 address";
  static Ip6Addr prefix(unsigned length) {
    return {highBits(std::min(length, 64u), 64), highBits(length - std::min(length, 64u), 64)};
  }
};

template <>
struct Kind<EthAddr> {
  static constexpr bool hasPrefixes = false;
  static constexpr auto forms = "any, host MAC or MAC WILDCARD";
  static constexpr auto plain = "a MAC address";
  static constexpr auto wildcard =
      "a wildcard for the address, such as 0000.0000.00ff (one address is host MAC)";
};

template <class Addr>
bool readPrefix(Cursor& at, size_t slash, Addr* address, Addr* mask) {
  const auto word = at.peek();
  const auto parsed = Addr::parse(word.substr(0, slash));
  const auto length = decimal(word.substr(slash + 1));
  if (!parsed || !length || *length > Kind<Addr>::bits) return at.fail(Kind<Addr>::prefixForm);
  *mask = Kind<Addr>::prefix(*length);
  *address = both(*parsed, *mask);
  if (*address != *parsed) {
    at.warn(at.position(), "ignored-bits",
            fmt::format("{} has bits beyond its length: it is {}/{}", word, address->str(), *length));
  }
  at.take();
  return true;
}

/// Whether the bits that are set are the last ones, or none.
bool areLastBits(uint64_t bits) { return (bits & (bits + 1)) == 0; }
bool areLastBits(IpAddr a) { return areLastBits(uint64_t{a.value}); }
bool areLastBits(EthAddr a) { return areLastBits(a.value()); }
bool areLastBits(const Ip6Addr& a) {
  return a.high == 0 ? areLastBits(a.low) : ~a.low == 0 && areLastBits(a.high);
}

/// Whether the bits that are set are the first ones, or none.
template <class Addr>
bool isPrefixMask(const Addr& mask) {
  return areLastBits(inverse(mask));
}

/// Where a wildcard says something else than it seems to. One warning an address.
template <class Addr>
void warnOfWildcard(Cursor& at, size_t position, const Addr& typed, const Addr& wildcard) {
  const Addr compared = both(typed, inverse(wildcard));
  const bool any = typed == Addr() && wildcard == inverse(Addr());
  const bool host = wildcard == Addr() && typed != Addr();
  if (isPrefixMask(wildcard) && !any && !host) {
    const char* compares = wildcard == Addr()            ? "all bits"
                           : wildcard == inverse(Addr()) ? "no bit"
                                                         : "only the last bits";
    at.warn(position + 1, "netmask",
            fmt::format("{} looks like a netmask: as a wildcard it compares {}", at.wordAt(position + 1),
                        compares));
  } else if (compared != typed) {
    at.warn(
        position, "ignored-bits",
        fmt::format("{} has bits that the wildcard ignores: it is {}", at.wordAt(position), compared.str()));
  }
}

template <class Addr>
bool read(Cursor& at, Addr* address, Addr* mask) {
  if (at.takeIf("any")) {
    *address = *mask = Addr();
    return true;
  }
  if (at.takeIf("host")) {
    const auto parsed = Addr::parse(at.peek());
    if (!parsed) return at.fail(Kind<Addr>::plain);
    at.take();
    *address = *parsed;
    *mask = inverse(Addr());
    return true;
  }
  if constexpr (Kind<Addr>::hasPrefixes) {
    const auto slash = at.peek().find('/');
    if (slash != std::string_view::npos) return readPrefix(at, slash, address, mask);
  }
  const auto parsed = Addr::parse(at.peek());
  if (!parsed)
    return Kind<Addr>::hasPrefixes
               ? failNear(at, Kind<Addr>::forms,
                          {"any", "host", "object-group", "eq", "neq", "lt", "gt", "range"})
               : failNear(at, Kind<Addr>::forms, {"any", "host"});
  at.take();
  const auto wildcard = Addr::parse(at.peek());
  if (!wildcard) return at.fail(Kind<Addr>::wildcard);
  at.take();
  *mask = inverse(*wildcard);
  *address = both(*parsed, *mask);
  warnOfWildcard(at, at.position() - 2, *parsed, *wildcard);
  return true;
}

uint64_t low(IpAddr a) { return a.value; }
uint64_t high(IpAddr) { return 0; }
uint64_t low(const Ip6Addr& a) { return a.low; }
uint64_t high(const Ip6Addr& a) { return a.high; }

template <class Addr>
bool isBelow(const Addr& a, const Addr& b) {
  return high(a) != high(b) ? high(a) < high(b) : low(a) < low(b);
}

IpAddr either(IpAddr a, IpAddr b) { return {a.value | b.value}; }
Ip6Addr either(const Ip6Addr& a, const Ip6Addr& b) { return {a.high | b.high, a.low | b.low}; }

/// Adds the prefixes below `first`/`length` that make up the range.
template <class Addr>
void addRange(const Addr& first, unsigned length, const Addr& from, const Addr& to,
              std::vector<AddressMatch<Addr>>* all) {
  const Addr mask = Kind<Addr>::prefix(length), last = either(first, inverse(mask));
  if (isBelow(last, from) || isBelow(to, first)) return;
  if (!isBelow(first, from) && !isBelow(to, last)) return all->push_back({first, mask});
  addRange(first, length + 1, from, to, all);
  const Addr bit = both(Kind<Addr>::prefix(length + 1), inverse(mask));
  addRange(either(first, bit), length + 1, from, to, all);
}

template <class Addr>
bool readRange(Cursor& at, std::vector<AddressMatch<Addr>>* all) {
  const auto from = Addr::parse(at.peek());
  if (!from) return at.fail(Kind<Addr>::plain);
  at.take();
  const auto to = Addr::parse(at.peek());
  if (!to) return at.fail(Kind<Addr>::plain);
  if (isBelow(*to, *from)) return at.fail("an address that is not below the first one");
  at.take();
  addRange(Addr(), 0, *from, *to, all);
  return true;
}

template <class Addr>
bool readMember(Cursor& at, std::vector<AddressMatch<Addr>>* all) {
  if (at.takeIf("range")) return readRange(at, all);
  const auto wildcard = Addr::parse(at.peek(1));
  if (at.peek() == "any" ||
      (!Addr::parse(at.peek()) && at.peek() != "host" && at.peek().find('/') == std::string_view::npos)) {
    return failNear(at, Kind<Addr>::memberForms, {"host", "range", "group-object"});
  }
  if (at.peek() != "host" && wildcard && isPrefixMask(*wildcard)) {
    return at.failAt(at.position() + 1, "a wildcard, whose set bits are ignored, or ADDRESS/LENGTH",
                     "that may be meant as a netmask");
  }
  AddressMatch<Addr> one;
  if (!read(at, &one.address, &one.mask)) return false;
  all->push_back(one);
  return true;
}

}  // namespace

bool readAddresses(Cursor& at, std::vector<AddressMatch<IpAddr>>* all) { return readMember(at, all); }
bool readAddresses(Cursor& at, std::vector<AddressMatch<Ip6Addr>>* all) { return readMember(at, all); }

bool readAddress(Cursor& at, IpAddr* address, IpAddr* mask) { return read(at, address, mask); }
bool readAddress(Cursor& at, Ip6Addr* address, Ip6Addr* mask) { return read(at, address, mask); }
bool readAddress(Cursor& at, EthAddr* address, EthAddr* mask) { return read(at, address, mask); }

}  // namespace Config
