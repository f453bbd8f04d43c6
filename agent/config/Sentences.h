#pragma once

#include <agent/config/Model.h>

#include <cstdint>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace Config {

// Sentences that people are told in more than one place.

/// That something of a kind has not this name, and which of the known names come near.
std::string noSuch(std::string_view kind, std::string_view name, std::span<const std::string_view> known);
template <class Names>
std::string noSuch(std::string_view kind, std::string_view name, const Names& known) {
  const std::vector<std::string_view> names(known.begin(), known.end());
  return noSuch(kind, name, std::span(names));
}

/// That a list has no rule of a number, and the numbers beside it that have one. `list` is what people are
/// told of it, `numbers` those of its rules, in any order.
std::string noSuchRule(std::string_view list, uint32_t number, std::span<const uint32_t> numbers);

/// That a second rule is given the number of this one.
std::string ruleGivenTwice(const Rule& first);

/// Of an interface with the statement `shutdown`.
inline constexpr std::string_view shutdownHasNoEffect = "shutdown is kept and has no effect: traffic goes on";

}  // namespace Config
