#pragma once

#include <agent/change/Sources.h>

#include <cstdint>
#include <map>
#include <set>
#include <string>
#include <vector>

namespace Agent {

/// The ports with a device that an agent has, by name.
using PortNames = std::set<std::string>;

/// What layers of configuration come to: of each thing the definition that is in force. Refers to the models,
/// which must live as long.
struct Effective {
  explicit Effective(const Layers& layers);

  /// Where a thing that is in force is defined.
  struct Owner {
    std::string source;
    const Config::Model* model;
  };

  /// The name of the list that is bound at a place; there must be one.
  const std::string& listAt(const Config::BindingKey& key) const;

  std::set<std::string> sources;
  std::map<Config::ListKey, Owner> lists;
  std::map<Config::BindingKey, Owner> bindings;
  std::map<std::string, Owner> portChannels, mirrorSessions;
  std::map<std::string, std::string> channelOf;  ///< by member
};

/// Which places are filtered, by what packets meet there.
struct Filtering {
  /// Why a binding filters nothing.
  enum class Reason : uint8_t { listUndefined, interfaceUnknown };

  /// `ports` null: it is not known which ports there are, and every interface may be one.
  Filtering(const Effective& effective, const PortNames* ports);

  /// The bindings that filter nothing.
  std::map<Config::BindingKey, Reason> open;
  /// The ports that are filtered, with the binding that does it: the port's own, or that of its port-channel.
  std::map<Config::BindingKey, Config::BindingKey> filtered;
};

/// Whether a name stands for a port, or for a port-channel with a port among its members: `ports` as above.
bool leadsToPort(const Effective& effective, const PortNames* ports, const std::string& name);

}  // namespace Agent
