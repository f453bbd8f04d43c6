#pragma once

#include <Acl/Types.h>
#include <agent/warnings/Warning.h>

#include <compare>
#include <cstdint>
#include <map>
#include <set>
#include <string>
#include <utility>
#include <vector>

namespace Config {

/// The type and the name of a list.
using ListKey = std::pair<Acl::AclType, std::string>;

/// A place where one list can be bound.
struct BindingKey {
  Acl::AclType type = Acl::AclType::ip;
  Acl::AclDirection direction = Acl::AclDirection::in;
  std::string interface;

  auto operator<=>(const BindingKey&) const = default;
};

/// A place in one of the texts that a model was read from.
struct Spot {
  uint32_t text = 0;  ///< its index in Notices::texts
  int line = 1;       ///< from 1
  int column = 1;     ///< from 1

  auto operator<=>(const Spot&) const = default;
};

/// What the reader noticed beside what the texts say: where things stand, and what looks odd. Two models that
/// say the same are equal wherever it stands, so notices always are.
struct Notices {
  std::vector<std::string> texts;  ///< their names
  // The last statement of each thing. Something may be left of things that have gone.
  std::map<BindingKey, Spot> bindings;
  std::map<ListKey, Spot> lists;
  std::map<std::string, Spot> portChannels, mirrorSessions;
  std::map<std::string, Spot> shutdowns;  ///< by interface
  /// That have a block, whether or not anything stands in it.
  std::set<std::string> interfaces;
  /// Of the rules that name a mirror session or an object-group only, for there may be very many rules; of
  /// all of them if it is asked for before the reading.
  bool ofAllRules = false;
  std::map<std::pair<ListKey, uint32_t>, Spot> rules;

  Agent::Warnings warnings;  ///< the first hundred, in the order of the texts
  size_t moreWarnings = 0;   ///< how many there were besides

  /// The place of a thing; none when it is not known.
  template <class Key>
  Agent::Place placeOf(const std::map<Key, Spot>& spots, const Key& key) const {
    const auto known = spots.find(key);
    return known == spots.end() ? Agent::Place() : placeOf(known->second);
  }
  Agent::Place placeOf(const Spot& spot) const { return {texts.at(spot.text), spot.line, spot.column}; }
  /// Leaves only the names of texts in which things stand, each once.
  void forgetUnusedTexts();
  bool operator==(const Notices&) const { return true; }
};

}  // namespace Config
