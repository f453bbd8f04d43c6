#include <agent/config/Groups.h>
#include <agent/config/Mistake.h>
#include <agent/config/Names.h>
#include <agent/config/Nearest.h>
#include <agent/config/Qualifiers.h>
#include <fmt/format.h>

#include <algorithm>
#include <set>
#include <tuple>
#include <type_traits>

namespace Config {

namespace {

using Acl::AclType;
using Acl::IpFilterBase;

constexpr std::string_view groupObject = "group-object";
constexpr auto notAGroup = "an object-group that is defined";

bool isNested(std::string_view member) { return member.starts_with(groupObject); }

bool isOfIp6(std::string_view member) { return member.find(':') != std::string_view::npos; }

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
    return readService(again, protocolUdp, services) || at.failAs(again);
  }
  const auto number = decimal(at.peek());
  const auto protocol = number && *number <= 255 ? static_cast<uint8_t>(*number) : protocolNumber(at.peek());
  if (!protocol) {
    auto names = namesOf(protocolNames());
    names.insert(names.end(), {"tcp-udp", groupObject});
    return at.fail(
        orNearest("tcp, udp, sctp or tcp-udp with ports, icmp, another protocol name, 0 to 255 or "
                  "group-object NAME",
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

/// The members of a flat group of the kind that is asked for; they have been read before.
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

/// Why services cannot stand in a rule; empty: they can.
std::string reasonAgainst(const std::vector<IpFilterBase>& services, AclType list, const IpFilterBase& rule) {
  for (const auto& service : services) {
    if (service.protocol == protocolIcmp && list == AclType::ipv6) return "that has icmp";
    if (service.protocol == protocolIcmpV6 && list == AclType::ip) return "that has icmpv6";
    if (rule.fragments && service.needsL4()) return "that has ports or messages, beside fragments";
    const bool behindProtocol = rule.protocolNamed;
    if (behindProtocol && (service.protocol != rule.protocol || service.destinationPort.isAny()))
      return "that has more than ports of the rule's protocol";
  }
  return {};
}

template <class Filter>
constexpr AclType filterList = std::is_same_v<Filter, Acl::IpFilter> ? AclType::ip : AclType::ipv6;

/// A filter with what a service asks for.
template <class Filter>
void serviceIs(Filter* filter, const IpFilterBase& service) {
  filter->protocolNamed = true;
  filter->protocol = service.protocol;
  filter->destinationPort = service.destinationPort;
  filter->icmpTypeNamed = service.icmpTypeNamed;
  filter->icmpType = service.icmpType;
  filter->icmpCodeNamed = service.icmpCodeNamed;
  filter->icmpCode = service.icmpCode;
}

}  // namespace

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

std::optional<GroupMistake> GroupTable::check(const std::string& name) {
  const Flat* flat = nullptr;
  return flatten(name, 0, &flat);
}

std::optional<GroupMistake> GroupTable::flatten(const std::string& name, size_t depth, const Flat** flat) {
  if (const auto known = flat_.find(name); known != flat_.end()) {
    *flat = &known->second;
    return std::nullopt;
  }
  const ObjectGroup& group = groups_.at(name);
  open_[name] = true;
  std::set<std::string> all;
  size_t height = 1;
  std::optional<GroupMistake> mistake;
  for (const auto& member : group.members) {
    if (!isNested(member)) {
      all.insert(member);
      continue;
    }
    const std::string nested = member.substr(groupObject.size() + 1);
    const auto wrong = [&](std::string found, std::string expected) {
      mistake = GroupMistake{name, member, 0, quote(nested) + found, std::move(expected)};
    };
    const auto known = groups_.find(nested);
    const Flat* inner = nullptr;
    const auto tooDeep = [&] {
      wrong(" inside too many others", fmt::format("groups at most {} deep in each other", deepestGroup));
    };
    if (known == groups_.end()) {
      std::vector<std::string_view> names;
      for (const auto& [each, unused] : groups_) names.push_back(each);
      wrong("", orNearest(notAGroup, nested, names));
    } else if (known->second.service != group.service) {
      wrong(group.service ? " of networks" : " of services",
            group.service ? "an object-group service" : "an object-group network");
    } else if (open_[nested]) {
      wrong(nested == name ? " in itself" : fmt::format(" that contains {}", quote(name)),
            "groups that do not contain themselves");
    } else if (depth + 1 == deepestGroup) {
      tooDeep();
    } else if (mistake = flatten(nested, depth + 1, &inner); !mistake) {
      all.insert(inner->members.begin(), inner->members.end());
      height = std::max(height, inner->height + 1);
      if (height <= deepestGroup) continue;
      tooDeep();
    }
    break;
  }
  open_[name] = false;
  if (mistake) return mistake;
  *flat = &(flat_[name] = {Members(all.begin(), all.end()), height});
  return std::nullopt;
}

template <class Filter>
std::optional<GroupMistake> GroupTable::expandFilter(const GroupNames& names, Filter* filter) {
  constexpr AclType list = filterList<Filter>;
  using Addr = decltype(filter->source);
  const auto mistakeAt = [](const NamedGroup& group, std::string_view found, std::string expected) {
    return GroupMistake{{},
                        {},
                        group.column,
                        fmt::format("{}{}{}", quote(group.name), found.empty() ? "" : " ", found),
                        std::move(expected)};
  };
  std::vector<AddressMatch<Addr>> sources = {{filter->source, filter->sourceMask}};
  std::vector<AddressMatch<Addr>> destinations = {{filter->destination, filter->destinationMask}};
  std::vector<IpFilterBase> services = {*filter};
  for (const NamedGroup* group : {&names.service, &names.source, &names.destination}) {
    if (group->name.empty()) continue;
    const auto known = groups_.find(group->name);
    if (known == groups_.end()) {
      std::vector<std::string_view> all;
      for (const auto& [each, unused] : groups_) all.push_back(each);
      return mistakeAt(*group, "", orNearest(notAGroup, group->name, all));
    }
    const bool service = group == &names.service;
    if (known->second.service != service) {
      return mistakeAt(*group, service ? "of networks" : "of services",
                       service ? "an object-group service" : "an object-group network");
    }
    const Flat* flat = nullptr;
    if (flatten(group->name, 0, &flat)) return std::nullopt;
    const Members& members = flat->members;
    if (service) {
      services = servicesOf(members);
      const auto reason = reasonAgainst(services, list, *filter);
      if (!reason.empty()) return mistakeAt(*group, reason, "an object-group service without that");
      continue;
    }
    const bool otherKind = std::any_of(members.begin(), members.end(), [](const auto& member) {
      return isOfIp6(member) != (list == AclType::ipv6);
    });
    if (otherKind) {
      return mistakeAt(
          *group, list == AclType::ip ? "of IPv6 addresses" : "of IPv4 addresses",
          list == AclType::ip ? "an object-group of IPv4 addresses" : "an object-group of IPv6 addresses");
    }
    (group == &names.source ? sources : destinations) = addressesOf<Addr>(members);
  }
  const size_t count = sources.size() * destinations.size() * services.size();
  const auto* first = &names.service;
  if (first->name.empty()) first = names.source.name.empty() ? &names.destination : &names.source;
  if (count > mostCombinations) {
    return mistakeAt(
        *first, fmt::format("in a rule of {} combinations", count),
        fmt::format("groups with at most {} combinations of members in a rule", mostCombinations));
  }
  if (combinations_ += count; combinations_ > mostCombinationsOfAll) {
    return mistakeAt(
        *first, "",
        fmt::format("rules with at most {} combinations of members of groups in all", mostCombinationsOfAll));
  }
  std::vector<Filter> all;
  all.reserve(count);
  for (const auto& source : sources) {
    for (const auto& destination : destinations) {
      for (const auto& service : services) {
        Filter one = *filter;
        one.source = source.address, one.sourceMask = source.mask;
        one.destination = destination.address, one.destinationMask = destination.mask;
        if (!names.service.name.empty()) serviceIs(&one, service);
        all.push_back(std::move(one));
      }
    }
  }
  filter->alternatives = Acl::Alternatives<Filter>(std::move(all));
  return std::nullopt;
}

std::optional<GroupMistake> GroupTable::expand(const GroupNames& names, Rule* rule) {
  if (auto* ip = std::get_if<Acl::IpRule>(rule)) return expandFilter(names, &ip->filter);
  if (auto* ip6 = std::get_if<Acl::Ip6Rule>(rule)) return expandFilter(names, &ip6->filter);
  return std::nullopt;
}

}  // namespace Config
