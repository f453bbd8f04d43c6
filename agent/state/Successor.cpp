#include <Kiv/UniqueIdSeed.h>
#include <Nimnet/IntfId.h>
#include <agent/config/Reader.h>
#include <agent/config/RulePairs.h>
#include <agent/state/RuleText.h>
#include <agent/state/Successor.h>
#include <agent/state/Table.h>

#include <optional>
#include <unordered_map>
#include <utility>

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

/// The rule that a text stands for; nothing if the text alone does not say it, as of one that names groups.
std::optional<Config::Rule> ruleOf(const std::string& text, Acl::AclType type) {
  for (const bool standard : {false, true}) {
    const auto read = Config::read({{"", headOf(type, standard) + fmt::format(" {}\n", text)}});
    if (!read.model || read.model->lists.empty()) continue;
    const auto& rules = read.model->lists.begin()->second.rules;
    if (rules.size() == 1) return rules.begin()->second;
  }
  return std::nullopt;
}

/// The rules that a list had, by number.
using SavedRules = std::map<uint32_t, const Saved::Rule*>;

/// Pairs rules that have the same text.
Config::RulePairs pairByText(const SavedRules& saved, const Config::List& list) {
  std::unordered_map<std::string, uint32_t> texts;
  const auto saysOf = [&texts](std::string text) {
    return texts.try_emplace(std::move(text), static_cast<uint32_t>(texts.size())).first->second;
  };
  std::vector<Config::NumberedRule> before, after;
  for (const auto& [number, row] : saved) before.push_back({number, saysOf(row->text)});
  for (const auto& [number, rule] : list.rules) {
    after.push_back(
        {number,
         saysOf(std::visit([](const auto& one) { return savedText(one.text.view(), one.filter); }, rule))});
  }
  return Config::pairRules(before, after);
}

/// Pairs those that say the same in other words, of the rules that have no text in common.
Config::RulePairs pairByMeaning(const SavedRules& saved, const Config::List& list,
                                const Config::RulePairs& left) {
  Config::List before{list.type, list.name, list.standard, {}, {}}, after = before;
  for (const uint32_t number : left.gone) {
    if (auto rule = ruleOf(saved.at(number)->text, list.type)) before.rules.emplace(number, std::move(*rule));
  }
  for (const uint32_t number : left.come) after.rules.emplace(number, list.rules.at(number));
  return Config::pairRules(before, after);
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

std::vector<Kiv::UniqueId> Successor::idsOf(const std::string& source, const Config::List& list) {
  SavedRules saved;
  const Saved::Rule first{source, list.type, list.name, 0, 0, {}};
  auto row = std::lower_bound(state_.rules.begin(), state_.rules.end(), first, Saved::keyLess<Saved::Rule>);
  for (; row != state_.rules.end(); ++row) {
    if (row->source != source || row->type != list.type || row->list != list.name) break;
    saved.emplace(row->sequence, &*row);
  }
  std::map<uint32_t, uint32_t> from;  // the number before, by that now
  const auto found = [&from](const Config::RulePairs& pairs) {
    for (const auto& pair : pairs.stay) from.emplace(pair.after, pair.before);
  };
  const Config::RulePairs alike = pairByText(saved, list);
  found(alike);
  if (!alike.gone.empty() && !alike.come.empty()) found(pairByMeaning(saved, list, alike));

  std::vector<Kiv::UniqueId> ids;
  for (const auto& [number, rule] : list.rules) {
    const auto known = from.find(number);
    const bool has = known != from.end() && given_.insert(saved.at(known->second)->id).second;
    ids.push_back(has ? Kiv::UniqueId(saved.at(known->second)->id) : Kiv::UniqueId());
  }
  return ids;
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
    const auto list = statusOf(status, row.type, Kelp::String(row.name));
    const auto* id = implicitDropOf(list);
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
