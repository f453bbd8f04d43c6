#pragma once

#include <agent/config/Model.h>

#include <cstdint>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace Models {

/// A rule, or a part of one, with a filter as models have it: no alternatives, and at most one condition on a
/// port. That is `range`, or `neq` with one port where the model has such a thing.
struct Entry {
  uint32_t number = 0;  ///< ascending in a list
  Config::Rule rule;    ///< with the number of the whole rule
};

/// More of one rule are too many.
inline constexpr size_t mostParts = 4096;

/// The parts that make up a rule, in any order: a packet matches it when it matches one of them. Nothing when
/// there are too many. A rule that no packet can match has no parts.
std::optional<std::vector<Config::Rule>> partsOf(const Config::Rule& rule, bool withNotEqual);

/// Numbers for the parts of each rule: those of the rules and what follows them, if there is room, and else
/// 10, 20 and so on.
std::vector<std::vector<uint32_t>> numbersOf(const std::vector<std::pair<uint32_t, size_t>>& rulesAndParts);

/// The length of a prefix; nothing when the set bits of the mask are not all at its beginning.
std::optional<int> prefixLength(const Nimnet::IpAddr& mask);
std::optional<int> prefixLength(const Nimnet::Ip6Addr& mask);

/// "ADDRESS/LENGTH"; nothing without a condition, or one that is no prefix.
template <class Address>
std::optional<std::string> prefixOf(const Address& address, const Address& mask) {
  const auto length = prefixLength(mask);
  if (!length || *length == 0) return std::nullopt;
  return fmt::format("{}/{}", address.str(), *length);
}

}  // namespace Models
