#include <agent/change/Effective.h>
#include <agent/change/PassesAll.h>

#include <algorithm>

namespace Agent {

Effective::Effective(const Layers& layers) {
  for (const auto& [source, model] : layers) {
    const Owner owner{source, model};
    sources.insert(source);
    models.insert(model);
    // What is there already is of higher precedence.
    for (const auto& [key, list] : model->lists) lists.emplace(key, owner);
    for (const auto& [key, list] : model->bindings) bindings.emplace(key, owner);
    for (const auto& [name, destinations] : model->mirrorSessions) mirrorSessions.emplace(name, owner);
    for (const auto& [name, joined] : model->portChannels) {
      if (!portChannels.emplace(name, owner).second) continue;
      for (const std::string& member : joined) channelOf.emplace(member, name);
    }
  }
}

const std::string& Effective::listAt(const Config::BindingKey& key) const {
  return bindings.at(key).model->bindings.at(key);
}

bool leadsToPort(const Effective& effective, const PortNames* ports, const std::string& name) {
  if (!ports || ports->contains(name)) return true;
  const auto channel = effective.portChannels.find(name);
  if (channel == effective.portChannels.end()) return false;
  const auto& ends = channel->second.model->portChannels.at(name);
  return std::any_of(ends.begin(), ends.end(),
                     [ports](const auto& member) { return ports->contains(member); });
}

Filtering::Filtering(const Effective& effective, const PortNames* ports) {
  std::map<Config::ListKey, bool> passesAll;  // of the lists that were looked at
  for (const auto& [key, owner] : effective.bindings) {
    if (!leadsToPort(effective, ports, key.interface)) {
      open.emplace(key, Reason::interfaceUnknown);
      continue;
    }
    const auto list = effective.lists.find({key.type, effective.listAt(key)});
    if (list == effective.lists.end()) {
      open.emplace(key, Reason::listUndefined);
      continue;
    }
    const auto& [source, model] = list->second;
    const auto [known, isNew] = passesAll.emplace(list->first, false);
    if (isNew) known->second = surelyPassesAll(model->lists.at(list->first));
    if (known->second) {
      passing.insert(key);
      continue;
    }
    const auto add = [&, &key = key, &source = source](const std::string& port) {
      if (!ports || ports->contains(port))
        filtered[{key.type, key.direction, port}].push_back({key.interface, list->first.second, source});
    };
    const auto channel = effective.portChannels.find(key.interface);
    if (channel == effective.portChannels.end()) {
      add(key.interface);
    } else {
      for (const std::string& member : channel->second.model->portChannels.at(key.interface)) add(member);
    }
  }
}

}  // namespace Agent
