#include <agent/models/Entries.h>

#include <bit>
#include <limits>
#include <type_traits>

namespace Models {

namespace {

using Acl::Compare;
using Acl::PortMatch;

PortMatch range(int low, int high) {
  PortMatch match{Compare::range, 2, {}};
  match.ports[0] = static_cast<uint16_t>(low);
  match.ports[1] = static_cast<uint16_t>(high);
  return match;
}

/// Conditions of which a port meets one when it meets `match`.
std::vector<PortMatch> portParts(const PortMatch& match, bool withNotEqual) {
  constexpr int last = 65535;
  const auto& ports = match.ports;
  switch (match.op) {
    case Compare::any:
      return {match};
    case Compare::range:
      return {range(ports[0], ports[1])};
    case Compare::lt:
      if (ports[0] == 0) return {};
      return {range(0, ports[0] - 1)};
    case Compare::gt:
      if (ports[0] == last) return {};
      return {range(ports[0] + 1, last)};
    case Compare::eq:
    case Compare::neq:
      break;
  }
  if (match.op == Compare::neq && match.count == 1 && withNotEqual) return {match};
  std::vector<PortMatch> parts;
  int next = 0;  // of those that are not excluded yet; the ports ascend
  for (int i = 0; i < match.count; ++i) {
    if (match.op == Compare::eq) {
      parts.push_back(range(ports[i], ports[i]));
    } else if (next < ports[i]) {
      parts.push_back(range(next, ports[i] - 1));
    }
    next = ports[i] + 1;
  }
  if (match.op == Compare::neq && next <= last) parts.push_back(range(next, last));
  return parts;
}

template <class Rule>
bool addParts(const Rule& rule, bool withNotEqual, std::vector<Config::Rule>& parts) {
  return Acl::visitFilters(rule.filter, [&](const auto& filter) {
    Rule part = rule;
    part.filter = filter;
    if constexpr (std::is_same_v<Rule, Acl::MacRule>) {
      parts.push_back(part);
    } else {
      for (const auto& source : portParts(filter.sourcePort, withNotEqual)) {
        for (const auto& destination : portParts(filter.destinationPort, withNotEqual)) {
          part.filter.sourcePort = source;
          part.filter.destinationPort = destination;
          parts.push_back(part);
        }
      }
    }
    return parts.size() <= mostParts;
  });
}

}  // namespace

std::optional<std::vector<Config::Rule>> partsOf(const Config::Rule& rule, bool withNotEqual) {
  std::vector<Config::Rule> parts;
  const bool few = std::visit([&](const auto& r) { return addParts(r, withNotEqual, parts); }, rule);
  if (!few) return std::nullopt;
  return parts;
}

std::vector<std::vector<uint32_t>> numbersOf(const std::vector<std::pair<uint32_t, size_t>>& rulesAndParts) {
  // The highest number is that of the end of a list.
  constexpr uint64_t end = std::numeric_limits<uint32_t>::max();
  bool room = true;
  for (size_t i = 0; i < rulesAndParts.size(); ++i) {
    const auto [number, parts] = rulesAndParts[i];
    const uint64_t next = i + 1 < rulesAndParts.size() ? rulesAndParts[i + 1].first : end;
    room = room && number + uint64_t{parts} <= std::min(next, end);
  }
  std::vector<std::vector<uint32_t>> all;
  uint32_t last = 0;
  for (const auto& [number, parts] : rulesAndParts) {
    auto& numbers = all.emplace_back();
    for (size_t i = 0; i < parts; ++i) {
      last = room ? number + static_cast<uint32_t>(i) : last + 10;
      numbers.push_back(last);
    }
  }
  return all;
}

std::optional<int> prefixLength(const Nimnet::IpAddr& mask) {
  const int length = std::countl_one(mask.value);
  if (std::popcount(mask.value) != length) return std::nullopt;
  return length;
}

std::optional<int> prefixLength(const Nimnet::Ip6Addr& mask) {
  const int high = std::countl_one(mask.high);
  const int length = high == 64 ? 64 + std::countl_one(mask.low) : high;
  if (std::popcount(mask.high) + std::popcount(mask.low) != length) return std::nullopt;
  return length;
}

}  // namespace Models
