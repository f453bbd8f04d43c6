#include <Nimnet/IntfId.h>
#include <agent/run/AskedPorts.h>

namespace Agent {

AskedPorts::AskedPorts(const RunOptions& options) : options_(options) {
  for (const auto& [name, text] : options.ports) {
    std::string wrong;
    ports_.emplace_back(name, portTextOf(text, wrong));
  }
}

PortNames AskedPorts::names() const {
  PortNames names;
  for (const auto& [name, port] : ports_) {
    names.insert(name);
    if (port.kind && port.kind->followed && port.what.device != name)
      names.byDevice.emplace(port.what.device, name);
  }
  return names;
}

std::vector<std::string> AskedPorts::devices() const {
  std::vector<std::string> devices;
  for (const auto& [name, port] : ports_)
    if (port.kind && port.kind->followed) devices.push_back(port.what.device);
  return devices;
}

std::vector<std::string> AskedPorts::devicesOfHost() const {
  std::vector<std::string> devices;
  for (const auto& [name, port] : ports_)
    if (port.kind && port.kind->ofHost) devices.push_back(port.what.device);
  return devices;
}

PortSetup AskedPorts::setup() const {
  PortSetup setup = options_.setup;
  setup.workers = options_.workers;
  if (options_.worker.size() < 2) return setup;
  setup.worker = static_cast<uint32_t>(options_.worker[1]);
  for (size_t i = 0; i + 2 < options_.worker.size() && i < ports_.size(); ++i) {
    const PortText& port = ports_[i].second;
    if (port.kind && options_.worker[i + 2] >= 0)
      setup.handed.emplace(port.what.device, options_.worker[i + 2]);
  }
  return setup;
}

Joined AskedPorts::joined(const Core& core) const {
  Joined joined;
  for (const auto& [a, b] : options_.patches) joined.ends.push_back({a, b});
  joined.ends.insert(joined.ends.end(), options_.bridges.begin(), options_.bridges.end());
  for (const auto& [name, members] : core.portChannels().all()) {
    for (const auto& member : members) joined.portChannels[name.name().str()].push_back(member.name().str());
  }
  return joined;
}

}  // namespace Agent
