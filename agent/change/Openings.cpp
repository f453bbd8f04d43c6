#include <agent/change/Openings.h>
#include <agent/change/WarningCollector.h>
#include <agent/config/Nearest.h>
#include <agent/core/Words.h>

#include <algorithm>
#include <string_view>
#include <utility>
#include <vector>

namespace Agent {

namespace {

using Config::BindingKey;
using Reason = Filtering::Reason;

/// Compares what is filtered before and after a change, and collects what is open.
class Comparison {
 public:
  Comparison(const Effective& before, const Filtering& was, const Effective& after, Filtering is,
             const PortNames* ports)
      : before_(before), after_(after), ports_(ports), was_(was), is_(std::move(is)) {}

  ChangeWarnings run() {
    for (const auto& [key, reason] : is_.open) compareOpen(key, reason);
    for (const auto& [port, filters] : was_.filtered) {
      const bool isPort = !ports_ || ports_->contains(port.interface);
      if (isPort && !is_.filtered.contains(port) && !isTold(port)) compareLost(port, filters);
    }
    return {lasting_.take(), opened_.take(), told_.take(), std::move(is_.filtered)};
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

  /// Nothing filters at the port any more.
  void compareLost(const BindingKey& port, const std::vector<PortFilter>& filters) {
    const auto lost = std::find_if(filters.begin(), filters.end(),
                                   [&](const PortFilter& one) { return !stays(port, one); });
    if (lost == filters.end()) return comparePassing(port, filters.front());
    addOpened("filter-lost", {}, [&] {
      const std::string channel =
          lost->interface == port.interface ? "" : fmt::format(" of {}", lost->interface);
      return fmt::format("interface {} loses its last {} list {} ({}{}){}: everything passes there",
                         port.interface, Acl::stringValue(port.type), Acl::stringValue(port.direction),
                         lost->list, channel, whatPasses(port));
    });
  }

  /// The lists at the port are those that filtered there, and no packet is dropped by them.
  void comparePassing(const BindingKey& port, const PortFilter& filter) {
    const Config::ListKey list(port.type, filter.list);
    const auto& notices = after_.lists.at(list).model->notices;
    addOpened("filter-lost", notices.placeOf(notices.lists, list), [&] {
      const std::string channel =
          filter.interface == port.interface ? "" : fmt::format(" (of {})", filter.interface);
      return fmt::format(
          "interface {}: {}{} is bound {} and permits everything by now: everything passes there",
          port.interface, listTitle(port.type, filter.list), channel, Acl::stringValue(port.direction));
    });
  }

  /// The bindings that packets of a port meet: its own, and that of its port-channel.
  std::vector<BindingKey> bindingsAt(const BindingKey& port) const {
    std::vector<BindingKey> keys = {port};
    const auto channel = after_.channelOf.find(port.interface);
    if (channel != after_.channelOf.end()) keys.push_back({port.type, port.direction, channel->second});
    std::erase_if(keys, [this](const BindingKey& key) { return !after_.bindings.contains(key); });
    return keys;
  }

  /// Whether a list of this source is still bound where it filtered.
  bool stays(const BindingKey& port, const PortFilter& filter) const {
    for (const BindingKey& key : bindingsAt(port)) {
      if (key.interface != filter.interface || after_.listAt(key) != filter.list) continue;
      const auto list = after_.lists.find(listOf(key));
      return list != after_.lists.end() && list->second.source == filter.source;
    }
    return false;
  }

  /// ", and ip access-list ALL permits everything": of a list that is there and filters nothing.
  std::string whatPasses(const BindingKey& port) const {
    for (const BindingKey& key : bindingsAt(port)) {
      if (after_.lists.contains(listOf(key)))
        return fmt::format(", and {} permits everything", listTitle(key.type, after_.listAt(key)));
    }
    return {};
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
  const Filtering& was_;
  Filtering is_;
  WarningCollector lasting_, opened_, told_;
};

}  // namespace

ChangeWarnings openings(const Effective& before, const Filtering& was, const Effective& after, Filtering is,
                        const PortNames* ports) {
  return Comparison(before, was, after, std::move(is), ports).run();
}

std::string nearestPorts(const PortNames& ports, const std::string& name) {
  if (const auto device = ports.byDevice.find(name); device != ports.byDevice.end())
    return fmt::format(" (the device of port {})", device->second);
  const std::vector<std::string_view> names(ports.begin(), ports.end());
  return Config::orNearest({}, name, names);
}

}  // namespace Agent
