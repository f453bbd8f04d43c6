#include <agent/config/GroupMembers.h>
#include <agent/config/Names.h>
#include <agent/config/Nearest.h>
#include <agent/config/Qualifiers.h>

#include <algorithm>
#include <tuple>
#include <type_traits>

namespace Config {

namespace {

using Acl::AclType;
using Acl::IpFilterBase;

constexpr std::string_view groupObject = "group-object";

/// One condition on protocol and destination ports, or ICMP message.
bool readService(Cursor& at, uint8_t protocol, std::vector<IpFilterBase>* services) {
  IpFilterBase service;
  service.protocolNamed = true;
  service.protocol = protocol;
  NamedFields named;
  const auto list = protocol == protocolIcmp ? AclType::ip : AclType::ipv6;
  if (!readPorts(at, service, &named, &service.destinationPort) ||
      !readIcmpMessage(at, list, &named, &service)) {
    return false;
  }
  services->push_back(service);
  return at.atEnd() || at.fail(hasPorts(protocol) ? "eq, neq, lt, gt, range or the end of the line"
                                                  : "the end of the line");
}

bool readServices(Cursor& at, std::vector<IpFilterBase>* services) {
  if (at.takeIf("tcp-udp")) {
    Cursor again = at;
    if (!readService(at, protocolTcp, services)) return false;
    return readService(again, protocolUdp, services) || at.failAs(again.problem());
  }
  const auto number = decimal(at.peek());
  const auto protocol = number && *number <= 255 ? static_cast<uint8_t>(*number) : protocolNumber(at.peek());
  if (at.peek() == "ip" || at.peek() == "ipv4" || at.peek() == "ipv6")
    return at.fail(
        "a protocol: a rule that is for every protocol says so itself and names no group of services");
  if (!protocol) {
    auto names = namesOf(protocolNames());
    names.insert(names.end(), {"tcp-udp", groupObject});
    return at.fail(orNearest(
        "tcp, udp, sctp or tcp-udp with ports, icmp, another protocol name, 0 to 255 or group-object NAME",
        at.peek(), names));
  }
  at.take();
  return readService(at, *protocol, services);
}

bool readMemberAddresses(Cursor& at, std::vector<AddressMatch<Nimnet::IpAddr>>* ip,
                         std::vector<AddressMatch<Nimnet::Ip6Addr>>* ip6) {
  const auto word = at.peek() == "host" || at.peek() == "range" ? at.peek(1) : at.peek();
  return isOfIp6(word) ? readAddresses(at, ip6) : readAddresses(at, ip);
}

}  // namespace

bool isNested(std::string_view member) { return member.starts_with(groupObject); }

std::string nestedIn(const std::string& member) { return member.substr(groupObject.size() + 1); }

bool isOfIp6(std::string_view member) { return member.find(':') != std::string_view::npos; }

template <class Addr>
std::vector<AddressMatch<Addr>> addressesOf(const std::vector<std::string>& members) {
  std::vector<AddressMatch<Addr>> all;
  Cursor at;
  for (const auto& member : members) {
    at.lineIs(member);
    readAddresses(at, &all);
  }
  const auto order = [](const auto& m) {
    if constexpr (std::is_same_v<Addr, Nimnet::IpAddr>) {
      return std::tuple(m.mask.value, m.address.value);
    } else {
      return std::tuple(m.mask.high, m.mask.low, m.address.high, m.address.low);
    }
  };
  std::sort(all.begin(), all.end(), [&](const auto& a, const auto& b) { return order(a) < order(b); });
  all.erase(std::unique(all.begin(), all.end()), all.end());
  return all;
}

template std::vector<AddressMatch<Nimnet::IpAddr>> addressesOf(const std::vector<std::string>& members);
template std::vector<AddressMatch<Nimnet::Ip6Addr>> addressesOf(const std::vector<std::string>& members);

std::vector<IpFilterBase> servicesOf(const std::vector<std::string>& members) {
  std::vector<IpFilterBase> all;
  Cursor at;
  for (const auto& member : members) {
    at.lineIs(member);
    readServices(at, &all);
  }
  const auto order = [](const IpFilterBase& s) {
    return std::tuple(s.protocol, s.destinationPort.op, s.destinationPort.count, s.destinationPort.ports,
                      s.icmpTypeNamed, s.icmpType, s.icmpCodeNamed, s.icmpCode);
  };
  std::sort(all.begin(), all.end(), [&](const auto& a, const auto& b) { return order(a) < order(b); });
  all.erase(std::unique(all.begin(), all.end()), all.end());
  return all;
}

bool readGroupName(Cursor& at, NamedGroup* group) {
  at.take();
  group->column = at.column();
  return at.name("the name of an object-group", &group->name);
}

bool readMember(Cursor& at, const ObjectGroup& group) {
  if (at.takeIf(groupObject)) {
    std::string name;
    return at.name("the name of an object-group", &name) && at.end();
  }
  if (group.service) {
    std::vector<IpFilterBase> services;
    return readServices(at, &services);
  }
  const size_t place = at.position();
  std::vector<AddressMatch<Nimnet::IpAddr>> ip;
  std::vector<AddressMatch<Nimnet::Ip6Addr>> ip6;
  if (!readMemberAddresses(at, &ip, &ip6) || !at.end()) return false;
  const auto other = std::find_if(group.members.begin(), group.members.end(), [&](const auto& member) {
    return !isNested(member) && isOfIp6(member) != ip.empty();
  });
  if (other == group.members.end()) return true;
  return at.failAt(
      place, ip.empty() ? "IPv4 addresses, which the group has" : "IPv6 addresses, which the group has");
}

bool isSameMember(const ObjectGroup& group, const std::string& a, const std::string& b) {
  if (a == b || isNested(a) || isNested(b)) return a == b;
  if (group.service) return servicesOf({a}) == servicesOf({b});
  if (isOfIp6(a) != isOfIp6(b)) return false;
  return isOfIp6(a) ? addressesOf<Nimnet::Ip6Addr>({a}) == addressesOf<Nimnet::Ip6Addr>({b})
                    : addressesOf<Nimnet::IpAddr>({a}) == addressesOf<Nimnet::IpAddr>({b});
}

}  // namespace Config
