#pragma once

#include <agent/change/FilteredPorts.h>
#include <agent/change/Sources.h>

#include <cstdint>
#include <map>
#include <set>
#include <string>
#include <vector>

namespace Agent {

/// The ports with a device that an agent has, by name.
struct PortNames : std::set<std::string> {
  using std::set<std::string>::set;

  std::map<std::string, std::string> byDevice{};  ///< for hints; a device has one port at most
};

/// What layers of configuration come to: of each thing the definition that is in force. Refers to the models,
/// which must live as long.
struct Effective {
  explicit Effective(const Layers& layers);

  /// The source whose definition of a thing is in force, and what this source says as a whole.
  struct Owner {
    std::string source;
    const Config::Model* model;
  };

  /// The name of the list that is bound at a place; there must be one.
  const std::string& listAt(const Config::BindingKey& key) const;

  std::set<std::string> sources;
  std::set<const Config::Model*> models;  ///< of all sources
  std::map<Config::ListKey, Owner> lists;
  std::map<Config::BindingKey, Owner> bindings;
  std::map<std::string, Owner> portChannels, mirrorSessions;
  std::map<std::string, std::string> channelOf;  ///< by member
};

/// Which places are filtered, by what packets meet there. A list that surely passes all filters nothing (see
/// surelyPassesAll()).
struct Filtering {
  /// Why a binding filters nothing.
  enum class Reason : uint8_t { listUndefined, interfaceUnknown };

  Filtering() = default;  ///< nothing is filtered
  /// `ports` null: it is not known which ports there are, and every interface may be one.
  Filtering(const Effective& effective, const PortNames* ports);

  /// The bindings that filter nothing, because what they name is not there.
  std::map<Config::BindingKey, Reason> open;
  /// The bindings of a list that surely passes all.
  std::set<Config::BindingKey> passing;
  FilteredPorts filtered;
};

/// Whether a name stands for a port, or for a port-channel with a port among its members: `ports` as above.
bool leadsToPort(const Effective& effective, const PortNames* ports, const std::string& name);

}  // namespace Agent
