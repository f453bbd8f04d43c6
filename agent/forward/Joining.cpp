// The part of the forwarder that joins interfaces, and keeps track of which ports they have.
#include <agent/forward/Bridge.h>
#include <agent/forward/Forwarder.h>

#include <algorithm>
#include <iterator>

namespace Agent {

std::optional<std::string> Forwarder::patchIs(const std::string& a, const std::string& b, Judged judged) {
  if (auto wrong = whyNotJoined({a, b}, "patched"); wrong && judged == Judged::now) return wrong;
  const auto ends = endsOf({a, b}, judged);
  join(std::make_unique<Patch>(*ends[0], *ends[1]), ends);
  return std::nullopt;
}

std::optional<std::string> Forwarder::bridgeIs(const std::vector<std::string>& names, const Kiv::Clock& clock,
                                               Judged judged) {
  if (auto wrong = whyNotJoined(names, "bridged"); wrong && judged == Judged::now) return wrong;
  const auto ends = endsOf(names, judged);
  auto bridge = std::make_unique<Bridge>(ends, clock);
  bridges_.push_back(bridge.get());
  join(std::move(bridge), ends);
  return std::nullopt;
}

std::optional<std::string> Forwarder::whyNotJoined(const std::vector<std::string>& names,
                                                   std::string_view joined) {
  const Velo::PortChannels& portChannels = core_.portChannels();
  const auto isJoined = [this](const Nimnet::IntfId& id) {
    const auto end = ends_.find(id);
    return end != ends_.end() && end->second.junction;
  };
  for (const std::string& name : names) {
    const Nimnet::IntfId id(name);
    if (std::count(names.begin(), names.end(), name) > 1)
      return fmt::format("{} cannot be {} to itself", name, joined);
    if (isJoined(id)) return fmt::format("{} is {} already", name, ends_.at(id).junction->text(ends_.at(id)));
    // A frame that comes in at a member would belong to two junctions otherwise.
    if (portChannels.has(id)) {
      for (const Nimnet::IntfId& member : portChannels.all().at(id)) {
        if (isJoined(member))
          return fmt::format("{} cannot be {}, its member {} is", name, joined, member.name());
      }
    }
    const Nimnet::IntfId& portChannel = portChannels.portChannelOf(id);
    const bool beside = std::count(names.begin(), names.end(), portChannel.name().str()) != 0;
    if (!portChannel.empty() && (beside || isJoined(portChannel)))
      return fmt::format("{} cannot be {}, its port-channel {} is", name, joined, portChannel.name());
  }
  return std::nullopt;
}

std::vector<End*> Forwarder::endsOf(const std::vector<std::string>& names, Judged judged) {
  std::vector<End*> ends;
  for (const std::string& name : names) {
    const Nimnet::IntfId id(name);
    if (judged == Judged::now && !core_.portChannels().has(id)) portIs(name);
    ends.push_back(&endIs(id));
  }
  return ends;
}

void Forwarder::join(std::unique_ptr<Junction> junction, const std::vector<End*>& ends) {
  for (End* end : ends) end->junction = junction.get();
  junctions_.push_back(std::move(junction));
  resolveEnds();
}

End& Forwarder::endIs(const Nimnet::IntfId& id) {
  End& end = ends_[id];
  end.id = id;
  return end;
}

void Forwarder::resolveEnds() {
  ++wiring_;
  const Velo::PortChannels& portChannels = core_.portChannels();
  for (auto& [id, end] : ends_) end.members.clear();
  for (const auto& [id, port] : ports_) {
    if (!portChannels.has(id)) endIs(id).members = {port.get()};
  }
  for (const auto& [id, members] : portChannels.all()) {
    End& end = endIs(id);
    for (const Nimnet::IntfId& member : members) {
      if (const auto port = ports_.find(member); port != ports_.end())
        end.members.push_back(port->second.get());
    }
  }
  for (auto& [id, end] : ends_) resolveUsable(end);
  for (const auto& [id, port] : ports_) {
    port->portChannel = portChannels.portChannelOf(id);
    End* channel = port->portChannel.empty() ? nullptr : &endIs(port->portChannel);
    port->entry = channel && channel->junction ? channel : &endIs(id);
  }
}

void Forwarder::resolveUsable(End& end) {
  ++wiring_;
  end.usable.clear();
  std::copy_if(end.members.begin(), end.members.end(), std::back_inserter(end.usable),
               [](const Port* port) { return port->up; });
  if (!end.usable.empty()) return;
  end.usable = end.members;
  if (end.junction) end.junction->forget(end);
}

void Forwarder::portUpIs(Port& port, bool up) {
  if (port.up == up) return;
  port.up = up;
  for (auto& [id, end] : ends_) {
    if (std::count(end.members.begin(), end.members.end(), &port) != 0) resolveUsable(end);
  }
}

}  // namespace Agent
