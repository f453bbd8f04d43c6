#include <Kiv/UniqueIdSeed.h>
#include <agent/config/Reader.h>
#include <agent/state/RuleText.h>
#include <agent/state/Successor.h>
#include <agent/state/Table.h>

namespace Agent {

namespace {

/// The first line of a list of this type.
std::string headOf(Acl::AclType type, bool standard) {
  switch (type) {
    case Acl::AclType::ip:
      return standard ? "ip access-list standard L\n" : "ip access-list L\n";
    case Acl::AclType::ipv6:
      return "ipv6 access-list L\n";
    case Acl::AclType::mac:
      break;
  }
  return "mac access-list L\n";
}

/// Whether a text says the same as a rule in other words. Never of a rule that names groups, which a text
/// alone does not know.
bool says(const std::string& text, Acl::AclType type, const Config::Rule& rule) {
  const uint32_t sequence = Config::common(rule).sequence;
  for (const bool standard : {false, true}) {
    const auto read = Config::read({{"", headOf(type, standard) + fmt::format(" {} {}\n", sequence, text)}});
    if (!read.model || read.model->lists.empty()) continue;
    const auto& rules = read.model->lists.begin()->second.rules;
    if (rules.size() == 1 && Config::isSameRule(rules.begin()->second, rule)) return true;
  }
  return false;
}

Acl::RuleStatus published(uint64_t packets, double lastMatch) { return {0, packets, lastMatch, true}; }

void goOn(Core& core, const Saved::Counter& from, const Kiv::UniqueId& id) {
  const auto collection = Kelp::ptrCast<Velo::Counter::VeloDpAclCounterColl>(
      core.manager().counterHolder()->collection(from.collection));
  if (!collection) return;
  const auto counter = collection->counterCollectionIs({from.direction, from.type, from.list, id});
  counter->countsAre(from.packets, from.bytes);
  counter->lastUpdateTimeIs(Kelp::Duration(from.lastMatch));
}

}  // namespace

Successor::Successor(const Saved::State& state) : state_(state) {
  Kiv::generatedIdsFollow(Kiv::UniqueId(state.highestId));
}

void Successor::publish(const Core& core) const {
  const auto status = core.mountedStatus();
  for (const auto& row : state_.lists) {
    const auto list = status->statusIs(row.type)->aclIs(row.name);
    list->counterUpdateTimeIs(Kelp::Duration(row.counterUpdateTime));
    if (row.implicitId == 0) continue;
    list->implicitRuleIdIs(Acl::ImplicitRuleType::drop, Kiv::UniqueId(row.implicitId));
    list->implicitRuleStatusIs(Acl::ImplicitRuleType::drop, published(row.packets, row.lastMatch));
  }
  for (const auto& row : state_.ruleStatus) {
    status->statusIs(row.type)->aclIs(row.list)->ruleStatusIs(Kiv::UniqueId(row.id),
                                                              published(row.packets, row.lastMatch));
  }
  for (const auto& row : state_.bindings) {
    status->statusIs(row.type)->intfIs(row.direction)->intfIs(Nimnet::IntfId(row.interface), row.list);
  }
}

Kiv::UniqueId Successor::idOf(const std::string& source, const Config::List& list, const Config::Rule& rule) {
  const Acl::RuleBase& common = Config::common(rule);
  const Saved::Rule wanted{source, list.type, list.name, common.sequence, 0, {}};
  const auto known =
      std::lower_bound(state_.rules.begin(), state_.rules.end(), wanted, Saved::keyLess<Saved::Rule>);
  if (known == state_.rules.end() || Saved::key(*known) != Saved::key(wanted)) return {};
  const std::string text =
      std::visit([](const auto& one) { return savedText(one.text.view(), one.filter); }, rule);
  if (text != known->text && !says(known->text, list.type, rule)) return {};
  return given_.insert(known->id).second ? Kiv::UniqueId(known->id) : Kiv::UniqueId();
}

void Successor::countRules(Core& core) const {
  for (const auto& row : state_.counters) {
    if (given_.contains(row.id)) goOn(core, row, Kiv::UniqueId(row.id));
  }
}

void Successor::countImplicitDrops(Core& core) const {
  const auto status = core.mountedStatus();
  std::map<uint64_t, Kiv::UniqueId> now;  // by the old ids
  for (const auto& row : state_.lists) {
    const auto lists = status->status(row.type);
    const auto list = lists ? lists->acl(Kelp::String(row.name)) : nullptr;
    const auto* id = list ? std::as_const(*list).implicitRuleId(Acl::ImplicitRuleType::drop) : nullptr;
    if (!id || row.implicitId == 0 || row.packets == 0) continue;
    now.emplace(row.implicitId, *id);
    // The next poll of the counters would write the same.
    list->implicitRuleStatusIs(Acl::ImplicitRuleType::drop, published(row.packets, row.lastMatch));
  }
  for (const auto& row : state_.counters) {
    if (const auto known = now.find(row.id); known != now.end()) goOn(core, row, known->second);
  }
}

}  // namespace Agent
