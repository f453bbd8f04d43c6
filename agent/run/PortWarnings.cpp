#include <agent/ports/PortDevice.h>
#include <agent/run/PortWarnings.h>
#include <arpa/inet.h>
#include <fmt/format.h>
#include <ifaddrs.h>
#include <net/if.h>

#include <algorithm>
#include <fstream>
#include <memory>
#include <set>

namespace Agent {

namespace {

std::vector<std::string> portsOf(const std::string& end, const Joined& joined) {
  const auto channel = joined.portChannels.find(end);
  return channel == joined.portChannels.end() ? std::vector{end} : channel->second;
}

void unjoined(const std::vector<PortState>& ports, const Joined& joined, Warnings& warnings) {
  std::set<std::string> known;
  for (const auto& ends : joined.ends) {
    for (const auto& end : ends) {
      for (const auto& port : portsOf(end, joined)) known.insert(port);
    }
  }
  for (const PortState& port : ports) {
    if (known.contains(port.name)) continue;
    warnings.push_back(
        {"port-unjoined",
         {},
         fmt::format("port {}: no patch and no bridge joins it: what comes in there goes nowhere",
                     port.name)});
  }
}

/// A device that is not there has no MTU, and what takes any size has none that counts.
void differentMtus(const std::vector<PortState>& ports, const Joined& joined, Warnings& warnings) {
  for (const auto& ends : joined.ends) {
    const PortState *least = nullptr, *most = nullptr;
    for (const auto& end : ends) {
      for (const auto& name : portsOf(end, joined)) {
        const auto port =
            std::find_if(ports.begin(), ports.end(), [&](const auto& p) { return p.name == name; });
        if (port == ports.end() || !port->present || port->mtu == anySize) continue;
        if (!most || port->mtu > most->mtu) most = &*port;
        if (!least || port->mtu < least->mtu) least = &*port;
      }
    }
    if (!most || most->mtu == least->mtu) continue;
    warnings.push_back(
        {"mtu-differs",
         {},
         fmt::format("ports {} and {} are joined and have MTUs of {} and {}: larger frames are lost",
                     most->name, least->name, most->mtu, least->mtu)});
  }
}

void usedByHost(const std::vector<PortState>& ports, const std::map<std::string, HostUse>& uses,
                Warnings& warnings) {
  for (const PortState& port : ports) {
    const auto use = uses.find(port.device);
    if (use == uses.end()) continue;
    if (const auto& addresses = use->second.addresses; !addresses.empty()) {
      warnings.push_back(
          {"port-has-address",
           {},
           fmt::format(
               "port {}: its device {} has addresses of the host ({}): it answers there, past the lists",
               port.name, port.device, fmt::join(addresses, ", "))});
    }
    if (use->second.ip6) {
      warnings.push_back(
          {"port-has-ipv6",
           {},
           fmt::format(
               "port {0}: IPv6 is on at its device {1}: the host answers there, past the lists (sysctl net.ipv6.conf.{1}.disable_ipv6=1)",
               port.name, port.device)});
    }
  }
}

std::string addressText(const sockaddr& address) {
  char text[INET6_ADDRSTRLEN] = {};
  if (address.sa_family == AF_INET)
    inet_ntop(AF_INET, &reinterpret_cast<const sockaddr_in&>(address).sin_addr, text, sizeof text);
  else
    inet_ntop(AF_INET6, &reinterpret_cast<const sockaddr_in6&>(address).sin6_addr, text, sizeof text);
  return text;
}

/// By the system's setting; where that may not be seen, a device with an address of IPv6 has it on.
bool ip6IsOn(const std::string& device, bool hasAddress) {
  std::ifstream file(fmt::format("/proc/sys/net/ipv6/conf/{}/disable_ipv6", device));
  int disabled = 0;
  return file >> disabled ? disabled == 0 : hasAddress;
}

}  // namespace

Warnings portWarnings(const std::vector<PortState>& ports, const Joined& joined,
                      const std::map<std::string, HostUse>& uses) {
  Warnings warnings;
  unjoined(ports, joined, warnings);
  differentMtus(ports, joined, warnings);
  usedByHost(ports, uses, warnings);
  return warnings;
}

std::map<std::string, HostUse> hostUses(const std::vector<std::string>& devices) {
  std::map<std::string, HostUse> uses;
  for (const std::string& device : devices) {
    if (if_nametoindex(device.c_str()) != 0) uses[device];
  }
  std::set<std::string> withIp6;
  ifaddrs* all = nullptr;
  if (getifaddrs(&all) != 0) all = nullptr;
  const std::unique_ptr<ifaddrs, decltype(&freeifaddrs)> freed(all, freeifaddrs);
  for (const ifaddrs* one = all; one; one = one->ifa_next) {
    const auto use = uses.find(one->ifa_name);
    if (use == uses.end() || !one->ifa_addr) continue;
    const auto family = one->ifa_addr->sa_family;
    if (family == AF_INET6) withIp6.insert(one->ifa_name);
    const bool own = family == AF_INET6 &&
                     IN6_IS_ADDR_LINKLOCAL(&reinterpret_cast<const sockaddr_in6*>(one->ifa_addr)->sin6_addr);
    if (family == AF_INET || (family == AF_INET6 && !own))
      use->second.addresses.push_back(addressText(*one->ifa_addr));
  }
  for (auto& [device, use] : uses) use.ip6 = ip6IsOn(device, withIp6.contains(device));
  return uses;
}

}  // namespace Agent
