#pragma once

#include <agent/config/Digest.h>
#include <fmt/format.h>

#include <string>
#include <string_view>

namespace Agent {

/// What a state file has of a rule: its text as it was typed; of one that names groups, behind it a digest of
/// what they stand for, as `permit ip object-group A any #0123456789abcdef`. No rule is typed so, and a text
/// that is equal says the same.
template <class Filter>
std::string savedText(std::string_view text, const Filter& filter) {
  if constexpr (requires { filter.alternatives; }) {
    if (filter.alternatives.given()) {
      Config::Digest digest;
      for (const Filter& one : filter.alternatives.all()) Config::addMemberTo(digest, one);
      return fmt::format("{} #{:016x}", text, digest.value());
    }
  }
  return std::string(text);
}

}  // namespace Agent
