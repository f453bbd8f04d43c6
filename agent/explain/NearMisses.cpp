#include <Acl/MatchFields.h>
#include <Kiv/UniqueId.h>
#include <agent/explain/NearMisses.h>

#include <algorithm>

namespace Agent {

namespace {

constexpr size_t nearest = 3;

/// How many conditions of a filter a packet does not meet.
template <class Filter, class Fields>
size_t failures(const Filter& filter, const Fields& packet) {
  size_t failed = 0;
  Acl::visitTests(filter, packet, [&](const auto& test) {
    failed += test.matches(filter, packet) ? 0 : 1;
    return true;
  });
  return failed;
}

/// The alternative of a filter of which a packet meets all but the fewest conditions; the filter itself when
/// it has no alternatives.
template <class Filter, class Fields>
const Filter& nearestOf(const Filter& filter, const Fields& packet) {
  const Filter* best = nullptr;
  Acl::visitFilters(filter, [&](const Filter& each) {
    if (!best || failures(each, packet) < failures(*best, packet)) best = &each;
    return true;
  });
  return best ? *best : filter;
}

template <class Rule, class Fields>
EarlierRules earlier(const Acl::RuleMap<Rule>& rules, const Kiv::UniqueId& decided, const Fields& packet) {
  struct Candidate {
    size_t failed;
    const Rule* rule;
  };
  EarlierRules result;
  std::vector<Candidate> best;  // fewest failed conditions first; among equals the earlier rule
  for (const auto* entry : rules.ordered()) {
    if (entry->key == decided) break;
    ++result.count;
    const size_t failed = failures(nearestOf(entry->value.filter(), packet), packet);
    if (best.size() == nearest && failed >= best.back().failed) continue;
    if (best.size() == nearest) best.pop_back();
    const auto place =
        std::upper_bound(best.begin(), best.end(), failed,
                         [](size_t count, const Candidate& each) { return count < each.failed; });
    best.insert(place, {failed, &entry->value});
  }
  std::sort(best.begin(), best.end(),
            [](const auto& a, const auto& b) { return a.rule->sequence() < b.rule->sequence(); });
  for (const Candidate& each : best) {
    const auto& rule = *each.rule;
    NearMiss miss{rule.sequence(), rule.text().str(), {}};
    const auto& filter = nearestOf(rule.filter(), packet);
    Acl::visitTests(filter, packet, [&](const auto& test) {
      if (!test.matches(filter, packet)) miss.failed.push_back({test.name, test.shown(packet)});
      return true;
    });
    result.near.push_back(std::move(miss));
  }
  return result;
}

template <class Fields>
Fields completed(Fields packet, const Velo::PacketContext& ctx) {
  packet.vlanId = ctx.pkt()->vlanId();
  packet.l4Is(ctx.parsedPacket().l4().hdr());
  return packet;
}

}  // namespace

EarlierRules earlierRules(const Core& core, const Acl::AskedList& asked, const Velo::PacketContext& ctx) {
  const Kelp::Ptr<const Acl::AclConfig> list = core.inForce().list(asked.type, asked.list);
  const auto* rules = list ? list->judging() : nullptr;
  if (!rules) return {};
  const Velo::ParsedPacket& parsed = ctx.parsedPacket();
  const Kiv::UniqueId decided = asked.rule ? asked.ruleId : Kiv::UniqueId::unset();
  switch (asked.type) {
    case Acl::AclType::ip:
      return earlier(rules->ipRuleById(), decided, completed(Acl::IpFields(*parsed.ipHdr()->ipHdr()), ctx));
    case Acl::AclType::ipv6:
      return earlier(rules->ip6RuleById(), decided,
                     completed(Acl::Ip6Fields(*parsed.ipHdr()->ip6Hdr()), ctx));
    case Acl::AclType::mac: {
      const Nimnet::EthHdr& eth = *parsed.ethPacket()->ethHdr();
      const Acl::MacFields packet{eth.source(), eth.destination(), parsed.typeOrLen(), ctx.pkt()->vlanId()};
      return earlier(rules->macRuleById(), decided, packet);
    }
  }
  return {};
}

}  // namespace Agent
