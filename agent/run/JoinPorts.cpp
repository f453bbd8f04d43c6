#include <Nimnet/IntfId.h>
#include <agent/run/JoinPorts.h>
#include <fmt/format.h>

#include <algorithm>

namespace Agent {

namespace {

/// Why names cannot be joined: one is neither a port nor a port-channel, so it is a typing mistake. Nothing
/// if they can.
std::optional<std::string> whyNoEnd(const RunOptions& options, const Core& core, Forwarder::Judged judged,
                                    const std::vector<std::string>& names) {
  if (judged == Forwarder::Judged::before) return std::nullopt;
  for (const std::string& name : names) {
    const bool isPort = std::any_of(options.ports.begin(), options.ports.end(),
                                    [&](const auto& port) { return port.first == name; });
    if (!isPort && !core.portChannels().has(Nimnet::IntfId(name)))
      return fmt::format("{} is neither a --port nor a port-channel of the configuration", name);
  }
  return std::nullopt;
}

}  // namespace

std::optional<std::string> joinPorts(const RunOptions& options, const Core& core, Forwarder& forwarder,
                                     LivePorts& ports, const Kiv::Clock& clock, Forwarder::Judged judged) {
  for (const auto& [name, device] : options.ports) {
    if (auto wrong = ports.portIs(name, device)) return "--port: " + *wrong;
  }
  forwarder.portsOfConfigurationIs();
  for (const auto& [a, b] : options.patches) {
    if (auto wrong = whyNoEnd(options, core, judged, {a, b})) return "--patch: " + *wrong;
    if (auto wrong = forwarder.patchIs(a, b, judged)) return "--patch: " + *wrong;
  }
  for (const auto& names : options.bridges) {
    if (auto wrong = whyNoEnd(options, core, judged, names)) return "--bridge: " + *wrong;
    if (auto wrong = forwarder.bridgeIs(names, clock, judged)) return "--bridge: " + *wrong;
  }
  return std::nullopt;
}

}  // namespace Agent
