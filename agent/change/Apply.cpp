#include <Acl/RuleKinds.h>
#include <MemSlab/Slab.h>
#include <agent/change/Apply.h>
#include <agent/change/SourceEntities.h>
#include <agent/config/RulePairs.h>
#include <agent/config/Sayings.h>

#include <map>
#include <variant>
#include <vector>

namespace Agent {

namespace {

void writeNewList(const Config::List& model, const IdsOfNewList& idsOf, Acl::AclSubConfig& list) {
  const std::vector<Kiv::UniqueId> known = idsOf ? idsOf(model) : std::vector<Kiv::UniqueId>();
  ListRules rules(model.type, Kelp::Ptr<Acl::AclSubConfig>(&list));
  size_t at = 0;
  for (const auto& [sequence, rule] : model.rules) {
    const Kiv::UniqueId id = at < known.size() ? known[at] : Kiv::UniqueId();
    rules.write(id.empty() ? Kiv::UniqueId::generateUniqueId() : id, rule);
    ++at;
  }
}

void applyList(const Config::List& model, Acl::AclSubConfig& list) {
  Acl::withRuleKind(model.type, [&](auto kind) {
    using Draft = typename decltype(kind)::Rule::Draft;
    Config::Sayings<typename Draft::FilterType> sayings;
    std::vector<Config::NumberedRule> before, after;
    std::map<uint32_t, Kiv::UniqueId> ids;
    for (const auto* known : kind.rules(list).ordered()) {
      const auto& rule = known->value;
      before.push_back({rule.sequence(), sayings.of(rule.base(), rule.filter())});
      ids[rule.sequence()] = known->key;
    }
    for (const auto& [sequence, rule] : model.rules) {
      const auto& draft = std::get<Draft>(rule);
      after.push_back({sequence, sayings.of(draft, draft.filter)});
    }
    const Config::RulePairs pairs = Config::pairRules(before, after);
    for (const uint32_t gone : pairs.gone) kind.remove(list, ids.at(gone));
    const auto write = [&](const Kiv::UniqueId& id, uint32_t number) {
      kind.write(list, id, std::get<Draft>(model.rules.at(number)));
    };
    for (const auto& pair : pairs.stay) write(ids.at(pair.before), pair.after);
    for (const uint32_t come : pairs.come) write(Kiv::UniqueId::generateUniqueId(), come);
  });
}

}  // namespace

void applyLists(const Config::Model& model, const Kelp::Ptr<Acl::Input::Config>& source,
                const IdsOfNewList& idsOf) {
  std::vector<Config::Model::ListKey> gone;
  for (auto type = source->config().begin(); type; type.next()) {
    for (auto list = type.value()->acl().begin(); list; list.next()) {
      const Config::Model::ListKey key{type.key(), list.key().str()};
      if (!model.lists.contains(key)) gone.push_back(key);
    }
  }
  for (const auto& key : gone) listDel(*source, key);
  for (const auto& [key, wanted] : model.lists) {
    const auto list = source->configIs(key.first)->aclIs(key.second);
    if (const auto current = list->currCfg()) {
      applyList(wanted, *current);
    } else {
      const auto fresh = MemSlab::make<Acl::AclSubConfig>();
      writeNewList(wanted, idsOf, *fresh);
      list->currCfgIs(fresh);
    }
  }
}

void applyBindings(const Config::Model& model, const Kelp::Ptr<Acl::IntfConfig>& source) {
  std::vector<Config::BindingKey> gone;
  for (auto type = source->config().begin(); type; type.next()) {
    for (auto direction = type.value()->intf().begin(); direction; direction.next()) {
      for (auto intf = direction.value()->intf().begin(); intf; intf.next()) {
        Config::BindingKey key{type.key(), direction.key(), intf.key().name().str()};
        if (!model.bindings.contains(key)) gone.push_back(std::move(key));
      }
    }
  }
  for (const auto& key : gone) bindingIs(*source, key, {});
  for (const auto& [key, list] : model.bindings) bindingIs(*source, key, list);
}

std::optional<std::string> putInForce(Core& core, const Sources& sources, const RuleIdMemory& memory) {
  if (auto wrong = core.interfacesAre(sources.interfaces())) return wrong;
  for (const std::string& input : core.inputs()) {
    if (!sources.find(input)) core.sourceDel(input);
  }
  sources.forEach([&](const std::string& name, const Config::Model& model) {
    const std::string source = Core::sourceName(name);
    const Core::Source entities = core.sourceIs(name);
    applyLists(model, entities.lists, [&](const Config::List& list) {
      return memory ? memory(source, list) : std::vector<Kiv::UniqueId>();
    });
    applyBindings(model, entities.bindings);
  });
  return std::nullopt;
}

}  // namespace Agent
