#include <agent/config/GroupMembers.h>
#include <agent/config/Mistake.h>
#include <agent/config/Names.h>
#include <agent/config/Nearest.h>
#include <fmt/format.h>

#include <algorithm>
#include <set>
#include <type_traits>

namespace Config {

namespace {

using Acl::AclType;
using Acl::IpFilterBase;

GroupMistake mistakeAt(const NamedGroup& group, std::string_view found, std::string expected) {
  return {{},
          {},
          group.column,
          fmt::format("{}{}{}", quote(group.name), found.empty() ? "" : " ", found),
          std::move(expected)};
}

std::string knownNear(const GroupTable::Groups& groups, const std::string& name) {
  std::vector<std::string_view> names;
  for (const auto& [each, unused] : groups) names.push_back(each);
  return orNearest("an object-group that is defined", name, names);
}

/// How the other kind of groups is told of, and this kind.
std::string_view otherKind(bool service) { return service ? "of networks" : "of services"; }
std::string thisKind(bool service) { return service ? "an object-group service" : "an object-group network"; }

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

/// What may stand at the places of a rule that can name groups; what the rule itself says until a group is
/// put there.
template <class Filter>
class Places {
 public:
  using Addresses = std::vector<AddressMatch<decltype(Filter::source)>>;
  static constexpr AclType list = std::is_same_v<Filter, Acl::IpFilter> ? AclType::ip : AclType::ipv6;

  explicit Places(const Filter& filter)
      : rule_(filter),
        sources_{{filter.source, filter.sourceMask}},
        destinations_{{filter.destination, filter.destinationMask}},
        services_{filter} {}

  /// Puts the members of the service group there.
  std::optional<GroupMistake> servicesAre(const NamedGroup& group, const std::vector<std::string>& members) {
    services_ = servicesOf(members);
    hasService_ = true;
    const auto reason = reasonAgainst(services_, list, rule_);
    if (reason.empty()) return std::nullopt;
    return mistakeAt(group, reason, "an object-group service without that");
  }

  /// The same for a network group.
  std::optional<GroupMistake> addressesAre(bool source, const NamedGroup& group,
                                           const std::vector<std::string>& members) {
    const bool otherAddresses = std::any_of(members.begin(), members.end(), [](const auto& member) {
      return isOfIp6(member) != (list == AclType::ipv6);
    });
    if (otherAddresses) {
      return mistakeAt(
          group, list == AclType::ip ? "of IPv6 addresses" : "of IPv4 addresses",
          list == AclType::ip ? "an object-group of IPv4 addresses" : "an object-group of IPv6 addresses");
    }
    (source ? sources_ : destinations_) = addressesOf<decltype(Filter::source)>(members);
    return std::nullopt;
  }

  size_t combinations() const { return sources_.size() * destinations_.size() * services_.size(); }
  std::vector<Filter> combined() const {
    std::vector<Filter> all;
    all.reserve(combinations());
    for (const auto& source : sources_) {
      for (const auto& destination : destinations_) {
        for (const auto& service : services_) {
          Filter one = rule_;
          one.source = source.address, one.sourceMask = source.mask;
          one.destination = destination.address, one.destinationMask = destination.mask;
          if (hasService_) serviceIs(&one, service);
          all.push_back(std::move(one));
        }
      }
    }
    return all;
  }

 private:
  const Filter& rule_;
  Addresses sources_, destinations_;
  std::vector<IpFilterBase> services_;
  bool hasService_ = false;
};

}  // namespace

std::optional<GroupMistake> GroupTable::check(const std::string& name) {
  const Flat* flat = nullptr;
  return flatten(name, 0, &flat);
}

std::optional<GroupMistake> GroupTable::flatten(const std::string& name, size_t depth, const Flat** flat) {
  if (const auto known = flat_.find(name); known != flat_.end()) {
    *flat = &known->second;
    return std::nullopt;
  }
  open_[name] = true;
  std::set<std::string> all;
  size_t height = 1;
  std::optional<GroupMistake> mistake;
  for (const auto& member : groups_.at(name).members) {
    if (!isNested(member)) {
      all.insert(member);
      continue;
    }
    const Flat* inner = nullptr;
    if ((mistake = flattenNested(name, member, depth, &inner))) break;
    all.insert(inner->members.begin(), inner->members.end());
    height = std::max(height, inner->height + 1);
  }
  open_[name] = false;
  if (mistake) return mistake;
  *flat = &(flat_[name] = {Members(all.begin(), all.end()), height});
  return std::nullopt;
}

std::optional<GroupMistake> GroupTable::flattenNested(const std::string& name, const std::string& member,
                                                      size_t depth, const Flat** inner) {
  const std::string nested = nestedIn(member);
  const auto wrong = [&](std::string_view found, std::string expected) {
    return GroupMistake{name, member, 0, fmt::format("{}{}", quote(nested), found), std::move(expected)};
  };
  const auto tooDeep = [&] {
    return wrong(" inside too many others",
                 fmt::format("groups at most {} deep in each other", deepestGroup));
  };
  const bool service = groups_.at(name).service;
  const auto known = groups_.find(nested);
  if (known == groups_.end()) return wrong("", knownNear(groups_, nested));
  if (known->second.service != service)
    return wrong(fmt::format(" {}", otherKind(service)), thisKind(service));
  if (open_[nested]) {
    return wrong(nested == name ? " in itself" : fmt::format(" that contains {}", quote(name)),
                 "groups that do not contain themselves");
  }
  if (depth + 1 == deepestGroup) return tooDeep();
  if (auto mistake = flatten(nested, depth + 1, inner)) return mistake;
  if ((*inner)->height >= deepestGroup) return tooDeep();
  return std::nullopt;
}

std::optional<GroupMistake> GroupTable::find(const NamedGroup& group, bool service, const Flat** flat) {
  const auto known = groups_.find(group.name);
  if (known == groups_.end()) return mistakeAt(group, "", knownNear(groups_, group.name));
  if (known->second.service != service) return mistakeAt(group, otherKind(service), thisKind(service));
  flatten(group.name, 0, flat);
  return std::nullopt;
}

std::optional<GroupMistake> GroupTable::count(const GroupNames& names, size_t combinations) {
  const auto* first = &names.service;
  if (first->name.empty()) first = names.source.name.empty() ? &names.destination : &names.source;
  if (combinations > mostCombinations) {
    return mistakeAt(
        *first, fmt::format("in a rule of {} combinations", combinations),
        fmt::format("groups with at most {} combinations of members in a rule", mostCombinations));
  }
  if (combinations_ += combinations; combinations_ > mostCombinationsOfAll) {
    return mistakeAt(
        *first, "",
        fmt::format("rules with at most {} combinations of members of groups in all", mostCombinationsOfAll));
  }
  return std::nullopt;
}

template <class Filter>
std::optional<GroupMistake> GroupTable::expandFilter(const GroupNames& names, Filter* filter) {
  Places<Filter> places(*filter);
  for (const NamedGroup* group : {&names.service, &names.source, &names.destination}) {
    if (group->name.empty()) continue;
    const bool service = group == &names.service;
    const Flat* flat = nullptr;
    auto mistake = find(*group, service, &flat);
    if (mistake || !flat) return mistake;
    mistake = service ? places.servicesAre(*group, flat->members)
                      : places.addressesAre(group == &names.source, *group, flat->members);
    if (mistake) return mistake;
  }
  if (auto mistake = count(names, places.combinations())) return mistake;
  filter->alternatives = Acl::Alternatives<Filter>(places.combined());
  return std::nullopt;
}

std::optional<GroupMistake> GroupTable::expand(const GroupNames& names, Rule* rule) {
  if (auto* ip = std::get_if<Acl::IpRule>(rule)) return expandFilter(names, &ip->filter);
  if (auto* ip6 = std::get_if<Acl::Ip6Rule>(rule)) return expandFilter(names, &ip6->filter);
  return std::nullopt;
}

}  // namespace Config
