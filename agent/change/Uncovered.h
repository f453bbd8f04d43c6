#pragma once

#include <agent/change/Effective.h>

#include <string>
#include <utility>
#include <vector>

namespace Agent {

/// What other sources define that a change brings into force, because what was above it goes. Each with the
/// name of its source.
struct Uncovered {
  struct Binding {
    Config::BindingKey place;
    std::string list, source;
  };
  std::vector<std::pair<Config::ListKey, std::string>> lists{};
  std::vector<Binding> bindings{};
  std::vector<std::pair<std::string, std::string>> portChannels{}, mirrorSessions{};
};

Uncovered uncovered(const Effective& before, const Effective& after);

}  // namespace Agent
