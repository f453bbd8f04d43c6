#include <agent/change/Openings.h>
#include <agent/change/WarningCollector.h>
#include <agent/config/Nearest.h>
#include <agent/core/Words.h>

#include <string_view>

namespace Agent {

namespace {

using Config::BindingKey;
using Reason = Filtering::Reason;

/// Compares what is filtered before and after a change, and collects what is open.
class Comparison {
 public:
  Comparison(const Effective& before, const Effective& after, const PortNames* ports)
      : before_(before), after_(after), ports_(ports), was_(before, ports), is_(after, ports) {}

  ChangeWarnings run() {
    for (const auto& [key, reason] : is_.open) compareOpen(key, reason);
    for (const auto& [port, by] : was_.filtered) {
      if (!is_.filtered.contains(port) && !isTold(port)) addLost(port, by);
    }
    return {lasting_.take(), opened_.take(), told_.take()};
  }

 private:
  void compareOpen(const BindingKey& key, Reason reason) {
    const Place place = placeOf(key);
    const auto lasting = [&] {
      return reason == Reason::listUndefined ? undefinedText(key) : unknownText(key);
    };
    const WarningCode code =
        reason == Reason::listUndefined ? WarningCode("list-undefined") : "interface-unknown";
    lasting_.add(code, place, lasting);
    if (was_.open.contains(key)) return told_.add(code, place, lasting);
    const bool was = reason == Reason::listUndefined && before_.lists.contains(listOf(key));
    if (!was) return addOpened(code, place, lasting);
    const Effective::Owner& owner = before_.lists.at(listOf(key));
    const bool withFile = owner.source != commandLineName && !after_.sources.contains(owner.source);
    addOpened(withFile ? WarningCode("list-file-gone") : "list-dropped", place, [&] {
      return fmt::format("{} goes{}, but interface {} has it bound {}: everything passes there",
                         listTitle(key.type, after_.listAt(key)),
                         withFile ? fmt::format(" with its file {}", owner.source) : "", key.interface,
                         Acl::stringValue(key.direction));
    });
  }

  /// Whether a binding filters nothing by this change, so that it is among what the change opens.
  bool opens(const BindingKey& key) const { return is_.open.contains(key) && !was_.open.contains(key); }

  /// Whether a port is open because of a binding that this change opens: its own or its port-channel's.
  bool isTold(const BindingKey& port) const {
    const auto channel = after_.channelOf.find(port.interface);
    return opens(port) ||
           (channel != after_.channelOf.end() && opens({port.type, port.direction, channel->second}));
  }

  void addLost(const BindingKey& port, const BindingKey& by) {
    addOpened("filter-lost", {}, [&] {
      const std::string channel = by.interface == port.interface ? "" : fmt::format(" of {}", by.interface);
      return fmt::format("interface {} loses its last {} list {} ({}{}): everything passes there",
                         port.interface, Acl::stringValue(port.type), Acl::stringValue(port.direction),
                         before_.listAt(by), channel);
    });
  }

  template <class Text>
  void addOpened(WarningCode code, const Place& place, const Text& text) {
    opened_.add(code, place, text);
    told_.add(code, place, text);
  }

  std::string undefinedText(const BindingKey& key) const {
    const std::string& list = after_.listAt(key);
    std::vector<std::string_view> names;
    for (const auto& [known, owner] : after_.lists) {
      if (known.first == key.type) names.push_back(known.second);
    }
    return fmt::format("interface {}: {} is bound {} but {}", key.interface, listTitle(key.type, list),
                       Acl::stringValue(key.direction),
                       Config::orNearest(std::string(notDefined), list, names));
  }

  std::string unknownText(const BindingKey& key) const {
    return fmt::format("interface {}: {} filters nothing there", whyUnknown(key.interface),
                       listTitle(key.type, after_.listAt(key)));
  }

  /// What an interface is that is neither a port nor leads to one; the ports are known.
  std::string whyUnknown(const std::string& name) const {
    const auto channel = after_.portChannels.find(name);
    if (channel == after_.portChannels.end())
      return fmt::format("{}{}: it is no port and no port-channel", name, nearest(name));
    std::string ends;
    for (const std::string& member : channel->second.model->portChannels.at(name))
      ends += (ends.empty() ? "" : ", ") + member + nearestPorts(*ports_, member);
    return fmt::format("{}: no port is a member of it, only {}", name, ends);
  }

  /// The nearest interface at which lists filter something.
  std::string nearest(const std::string& name) const {
    PortNames names = *ports_;
    for (const auto& [channel, owner] : after_.portChannels) {
      if (leadsToPort(after_, ports_, channel)) names.insert(channel);
    }
    return nearestPorts(names, name);
  }

  Config::ListKey listOf(const BindingKey& key) const { return {key.type, after_.listAt(key)}; }
  Place placeOf(const BindingKey& key) const {
    const auto& notices = after_.bindings.at(key).model->notices;
    return notices.placeOf(notices.bindings, key);
  }

  const Effective &before_, &after_;
  const PortNames* const ports_;
  const Filtering was_, is_;
  WarningCollector lasting_, opened_, told_;
};

}  // namespace

ChangeWarnings openings(const Effective& before, const Effective& after, const PortNames* ports) {
  return Comparison(before, after, ports).run();
}

std::string nearestPorts(const PortNames& ports, const std::string& name) {
  const std::vector<std::string_view> names(ports.begin(), ports.end());
  return Config::orNearest({}, name, names);
}

}  // namespace Agent
