#pragma once

#include <agent/config/Model.h>

#include <compare>
#include <map>
#include <memory>
#include <string>
#include <vector>

namespace Agent {

/// A list that filters at a port.
struct PortFilter {
  std::string interface;  ///< where it is bound: the port, or its port-channel
  std::string list;
  std::string source;  ///< that defines the list

  auto operator<=>(const PortFilter&) const = default;
};

/// The ports that are filtered, each direction and kind of list by itself, with what does it. It is never
/// empty.
using FilteredPorts = std::map<Config::BindingKey, std::vector<PortFilter>>;
/// Those of one moment, which several hold.
using SharedFilteredPorts = std::shared_ptr<const FilteredPorts>;

}  // namespace Agent
