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
        const double last = counter->get()->lastUpdateTime().seconds();
        if (!count.last || *count.last < last) count.last = last;
      }
    }
    return count;
  }

  template <class Rule>
  void addRules(ListReport& report, const Kelp::String& list, const Acl::RuleMap<Rule>& rules) const {
    for (const auto* entry : rules.ordered()) {
      const Rule& rule = entry->value;
      const MatchCount met = matches(report.type, list, entry->key);
      report.rules.push_back(
          {rule.sequence, rule.text.str(), rule.remark.str(), entry->key.str(), met, mirrored(rule, met)});
    }
  }

  /// What a rule that denies matches on the way out is dropped without a copy.
  static std::optional<uint64_t> mirrored(const Acl::RuleConfig& rule, const MatchCount& met) {
    if (rule.mirrorSession.empty()) return std::nullopt;
    const bool defined = Velo::MirroringStepHelper::singleton()->sessions().contains(rule.mirrorSession);
    return defined ? met.in + (rule.action == Acl::Action::permit ? met.out : 0) : 0;
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
        case Acl::AclType::ip:
          addRules(report, name, rules->ipRuleById());
          break;
        case Acl::AclType::ipv6:
          addRules(report, name, rules->ip6RuleById());
          break;
        case Acl::AclType::mac:
          addRules(report, name, rules->macRuleById());
          break;
      }
    }
    if (const auto id = implicitId(type, name)) report.implicitDrop = matches(type, name, *id);
    return report;
  }

  std::vector<BindingReport> bindings(Acl::AclType type, const Kelp::String& list) const {
    std::vector<BindingReport> found;
    forEachBinding(type,
                   [&](Acl::AclDirection direction, const Nimnet::IntfId& intf, const Kelp::String& bound) {
                     if (bound != list) return;
                     found.push_back({intf.name().str(), direction, sourcesOf(type, direction, intf)});
                   });
    std::sort(found.begin(), found.end(), [](const auto& a, const auto& b) {
      return std::tie(a.interface, a.direction) < std::tie(b.interface, b.direction);
    });
    return found;
  }

  template <class Visit>
  void forEachBinding(Acl::AclType type, const Visit& visit) const {
    const auto all = core_.status();
    const auto directions = all ? all->status(type) : nullptr;
    if (!directions) return;
    for (auto direction = directions->intf().begin(); direction; direction.next()) {
      for (auto intf = direction.value()->intf().begin(); intf; intf.next()) {
        visit(direction.key(), intf.key(), intf.value());
      }
    }
  }

 private:
  std::vector<std::string> sourcesOf(Acl::AclType type, Acl::AclDirection direction,
                                     const Nimnet::IntfId& intf) const {
    std::vector<std::string> names;
    if (const auto sources = core_.bindingSources()) {
      for (const auto& source : sources->sources(type, direction, intf)) names.push_back(source.str());
    }
    return names;
  }

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
    const auto published = core.status();
    const auto configured = core.lists();
    const auto lists = configured ? configured->config(type) : nullptr;
    if (const auto enforced = published ? published->status(type) : nullptr) {
      for (auto at = enforced->acl().begin(); at; at.next()) {
        const auto list = lists ? lists->acl(at.key()) : nullptr;
        if (!list) continue;
        defined.insert(at.key());
        report.lists.push_back(builder.list(type, at.key(), *list));
      }
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
