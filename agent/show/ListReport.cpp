#include <Acl/RuleKinds.h>
#include <Kelp/String.h>
#include <Nimnet/IntfId.h>
#include <agent/change/Sources.h>
#include <agent/config/Sentences.h>
#include <agent/show/ListReport.h>
#include <fmt/format.h>

#include <algorithm>
#include <set>
#include <tuple>

namespace Agent {

namespace {

std::vector<std::string> titles(const std::vector<Kelp::String>& sources) {
  std::vector<std::string> all;
  for (const auto& name : sources) all.push_back(sourceTitle(name.str()));
  return all;
}

}  // namespace

bool isDefined(const Core& core, const Kelp::String& name) {
  return std::any_of(std::begin(Acl::aclTypes), std::end(Acl::aclTypes),
                     [&](Acl::AclType type) { return core.inForce().list(type, name) != nullptr; });
}

std::string noSuchList(const Core& core, const std::string& name) {
  const ListReader reader(core);
  std::set<std::string> known;
  for (const auto& keys : {reader.defined(), reader.undefined()}) {
    for (const auto& [type, list] : keys) known.insert(list.str());
  }
  return Config::noSuch("list", name, known);
}

bool isRule(const Acl::AclSubConfig& rules, Acl::AclType type, const Kiv::UniqueId& id) {
  return Acl::withRuleKind(type, [&](auto kind) { return kind.rules(rules).has(id); });
}

ListReader::ListReader(const Core& core, const ZeroLine* zero, Remarks remarks)
    : core_(core),
      zero_(zero),
      remarks_(std::move(remarks)),
      counters_(core.inForce().counters()),
      bindings_(bindings()) {}

std::vector<ListReader::Key> ListReader::defined() const {
  std::vector<Key> keys;
  const auto configured = core_.inForce().lists();
  for (const auto type : Acl::aclTypes) {
    const auto lists = configured ? configured->config(type) : nullptr;
    if (!lists) continue;
    for (auto at = lists->acl().begin(); at; at.next()) keys.emplace_back(type, at.key());
  }
  std::sort(keys.begin(), keys.end());
  return keys;
}

std::vector<ListReader::Key> ListReader::undefined() const {
  const auto known = defined();
  std::vector<Key> keys;
  for (const auto& [key, places] : bindings_) {
    if (!std::binary_search(known.begin(), known.end(), key)) keys.push_back(key);
  }
  return keys;
}

ListReport ListReader::head(const Key& key) const {
  ListReport report;
  report.type = key.first;
  report.name = key.second.str();
  if (const auto sources = core_.inForce().listSources())
    report.sources = titles(sources->sources(key.first, key.second));
  if (const auto bound = bindings_.find(key); bound != bindings_.end()) report.bindings = bound->second;
  if (remarks_ && !report.sources.empty()) report.remarks = remarks_(report.sources.front(), key);
  const auto* id = implicitDropOf(core_.inForce().statusOf(key.first, key.second));
  if (id && !id->empty()) report.implicitDrop = matches(key, *id);
  return report;
}

Kelp::Ptr<const Acl::AclSubConfig> ListReader::rulesOf(const Key& key) const {
  const Kelp::Ptr<const Acl::AclConfig> list = core_.inForce().list(key.first, key.second);
  return list ? list->currCfg() : nullptr;
}

size_t ListReader::ruleCount(const Key& key) const {
  const auto rules = rulesOf(key);
  return rules ? Acl::withRuleKind(key.first, [&](auto kind) { return kind.rules(*rules).ordered().size(); })
               : 0;
}

std::vector<Kiv::UniqueId> ListReader::ruleIds(const Key& key, size_t most) const {
  std::vector<Kiv::UniqueId> ids;
  if (const auto rules = rulesOf(key)) {
    Acl::withRuleKind(key.first, [&](auto kind) {
      const auto& ordered = kind.rules(*rules).ordered();
      ids.reserve(std::min(ordered.size(), most));
      for (auto at = ordered.begin(); at != ordered.end() && ids.size() < most; ++at) ids.push_back(at.id());
    });
  }
  return ids;
}

std::optional<RuleReport> ListReader::rule(const Key& key, const Kiv::UniqueId& id) const {
  const auto rules = rulesOf(key);
  if (!rules) return std::nullopt;
  return Acl::withRuleKind(key.first, [&](auto kind) -> std::optional<RuleReport> {
    const auto* rule = kind.rules(*rules).find(id);
    if (!rule) return std::nullopt;
    const MatchCount met = matches(key, id);
    return RuleReport{rule->sequence(),      rule->text().str(), rule->remark().str(), id.str(), met,
                      mirroredOf(*rule, met)};
  });
}

ListReport ListReader::list(const Key& key) const {
  ListReport report = head(key);
  for (const Kiv::UniqueId& id : ruleIds(key)) {
    if (auto one = rule(key, id)) report.rules.push_back(std::move(*one));
  }
  return report;
}

MatchCount ListReader::matches(const Key& key, const Kiv::UniqueId& id) const {
  MatchCount count;
  for (const auto direction : {Acl::AclDirection::in, Acl::AclDirection::out}) {
    const bool in = direction == Acl::AclDirection::in;
    uint64_t& packets = in ? count.in : count.out;
    uint64_t& bytes = in ? count.bytesIn : count.bytesOut;
    const ZeroLine::RuleKey counterKey{direction, key.first, key.second, id};
    for (const auto& collection : counters_) {
      const auto* counter = collection->counterCollection().find(counterKey);
      if (!counter) continue;
      const ZeroLine::Counted all{counter->get()->packets(), counter->get()->bytes()};
      const ZeroLine::Counted counted = zero_ ? zero_->above(counterKey, *counter->get()) : all;
      packets += counted.packets;
      bytes += counted.bytes;
      const double last = counter->get()->lastUpdateTime().seconds();
      if (!count.last || *count.last < last) count.last = last;
    }
  }
  return count;
}

std::map<ListReader::Key, std::vector<BindingReport>> ListReader::bindings() const {
  std::map<Key, std::vector<BindingReport>> found;
  const auto sources = core_.inForce().bindingSources();
  for (const auto type : Acl::aclTypes) {
    forEachBinding(type,
                   [&](Acl::AclDirection direction, const Nimnet::IntfId& intf, const Kelp::String& bound) {
                     BindingReport binding{intf.name().str(), direction};
                     if (sources) binding.sources = titles(sources->sources(type, direction, intf));
                     found[{type, bound}].push_back(std::move(binding));
                   });
  }
  for (auto& [key, places] : found) {
    std::sort(places.begin(), places.end(), [](const auto& a, const auto& b) {
      return std::tie(a.interface, a.direction) < std::tie(b.interface, b.direction);
    });
  }
  return found;
}

template <class Visit>
void ListReader::forEachBinding(Acl::AclType type, const Visit& visit) const {
  const auto all = core_.inForce().bindings();
  const auto directions = all ? all->config(type) : nullptr;
  if (!directions) return;
  for (auto direction = directions->intf().begin(); direction; direction.next()) {
    for (auto intf = direction.value()->intf().begin(); intf; intf.next())
      visit(direction.key(), intf.key(), intf.value());
  }
}

/// A packet that a rule denies on the way out is dropped without a copy, so only its matches on the way in
/// count.
std::optional<uint64_t> mirroredOf(const Acl::RuleConfig& rule, const MatchCount& met) {
  if (rule.mirrorSession().empty()) return std::nullopt;
  const bool defined = Velo::MirroringStepHelper::singleton()->sessions().contains(rule.mirrorSession());
  return defined ? met.in + (rule.action() == Acl::Action::permit ? met.out : 0) : 0;
}

}  // namespace Agent
