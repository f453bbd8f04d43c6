#include <agent/replay/Report.h>

#include <algorithm>
#include <set>

namespace Agent {

namespace {

using Velo::Counter::VeloDpAclCounterKey;

class Builder {
 public:
  explicit Builder(const Core& core) : core_(core), counters_(core.counters()) {}

  MatchCount matches(Acl::AclType type, const Kelp::String& list, Kiv::UniqueId id) const {
    MatchCount count;
    for (const auto direction : {Acl::AclDirection::in, Acl::AclDirection::out}) {
      uint64_t& sum = direction == Acl::AclDirection::in ? count.in : count.out;
      for (const auto& collection : counters_) {
        const auto* counter = collection->counterCollection().find({direction, type, list, id});
        if (!counter) continue;
        sum += counter->get()->packets();
        count.last = std::max(count.last.value_or(0), counter->get()->lastUpdateTime().seconds());
      }
    }
    return count;
  }

  template <class Rule>
  void addRules(ListReport& report, const Kelp::String& list, const Acl::RuleMap<Rule>& rules) const {
    for (const auto* entry : rules.ordered()) {
      const Rule& rule = entry->value;
      report.rules.push_back({rule.sequence, rule.text.str(), rule.remark.str(), entry->key.str(),
                              matches(report.type, list, entry->key)});
    }
  }

  ListReport list(Acl::AclType type, const Kelp::String& name, const Acl::AclConfig& config) const {
    ListReport report;
    report.type = type;
    report.name = name.str();
    if (const auto sources = core_.listSources()) {
      for (const auto& source : sources->sources(type, name)) report.sources.push_back(source.str());
    }
    report.bindings = bindings(type, name);
    if (const auto rules = config.currCfg()) {
      switch (type) {
        case Acl::AclType::ip: addRules(report, name, rules->ipRuleById()); break;
        case Acl::AclType::ipv6: addRules(report, name, rules->ip6RuleById()); break;
        case Acl::AclType::mac: addRules(report, name, rules->macRuleById()); break;
      }
    }
    if (const auto id = implicitId(type, name)) report.implicitDrop = matches(type, name, *id);
    return report;
  }

  std::vector<BindingReport> bindings(Acl::AclType type, const Kelp::String& list) const {
    std::vector<BindingReport> found;
    forEachBinding(type, [&](Acl::AclDirection direction, const Nimnet::IntfId& intf, const Kelp::String& bound) {
      if (bound == list) found.push_back({intf.name().str(), direction});
    });
    std::sort(found.begin(), found.end(), [](const auto& a, const auto& b) {
      return std::tie(a.interface, a.direction) < std::tie(b.interface, b.direction);
    });
    return found;
  }

  template <class Visit>
  void forEachBinding(Acl::AclType type, const Visit& visit) const {
    const auto all = core_.bindings();
    const auto directions = all ? all->config(type) : nullptr;
    if (!directions) return;
    for (auto direction = directions->intf().begin(); direction; direction.next()) {
      for (auto intf = direction.value()->intf().begin(); intf; intf.next()) {
        visit(direction.key(), intf.key(), intf.value());
      }
    }
  }

 private:
  std::optional<Kiv::UniqueId> implicitId(Acl::AclType type, const Kelp::String& name) const {
    const auto status = core_.status();
    const auto lists = status ? status->status(type) : nullptr;
    const auto list = lists ? lists->acl(name) : nullptr;
    const auto* id = list ? list->implicitRuleId(Acl::ImplicitRuleType::drop) : nullptr;
    if (!id || id->empty()) return std::nullopt;
    return *id;
  }

  const Core& core_;
  const std::vector<Kelp::Ptr<Velo::Counter::VeloDpAclCounterColl>> counters_;
};

}  // namespace

Report makeReport(const Core& core, const Forwarder& forwarder) {
  const Builder builder(core);
  Report report;
  for (const auto type : {Acl::AclType::ip, Acl::AclType::ipv6, Acl::AclType::mac}) {
    std::set<Kelp::String> defined;
    const auto all = core.lists();
    if (const auto lists = all ? all->config(type) : nullptr) {
      for (auto at = lists->acl().begin(); at; at.next()) defined.insert(at.key());
      for (const Kelp::String& name : defined) report.lists.push_back(builder.list(type, name, *lists->acl(name)));
    }
    std::set<Kelp::String> undefined;
    builder.forEachBinding(type, [&](Acl::AclDirection, const Nimnet::IntfId&, const Kelp::String& bound) {
      if (!defined.contains(bound)) undefined.insert(bound);
    });
    for (const Kelp::String& name : undefined) {
      ListReport list;
      list.type = type;
      list.name = name.str();
      list.bindings = builder.bindings(type, name);
      report.undefined.push_back(std::move(list));
    }
  }
  for (auto at = core.namedCounters()->counter().begin(); at; at.next()) {
    report.drops[at.key().category.str()][at.key().facility.str()][at.key().reason.str()] = at.value();
  }
  for (const auto& [id, port] : forwarder.ports()) report.ports[id.name().str()] = *port;
  return report;
}

}  // namespace Agent
