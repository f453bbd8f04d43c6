#include <Acl/RuleKinds.h>
#include <agent/change/Apply.h>
#include <agent/change/SourceEntities.h>

#include <variant>
#include <vector>

namespace Agent {

namespace {

void applyList(const Config::List& model, const IdOfNewRule& idOfNewRule, Acl::AclSubConfig& list) {
  Acl::withRuleKind(model.type, [&](auto kind) {
    using Draft = typename decltype(kind)::Rule::Draft;
    const auto& wanted = model.rules;
    const auto& rules = kind.rules(list);
    std::vector<Kiv::UniqueId> gone;
    for (const auto* known : rules.ordered()) {
      auto at = wanted.find(known->value.sequence());
      if (at == wanted.end() || !known->value.isSameRule(std::get<Draft>(at->second)))
        gone.push_back(known->key);
    }
    for (const Kiv::UniqueId& id : gone) kind.remove(list, id);
    for (const auto& [sequence, rule] : wanted) {
      const auto* known = rules.atSequence(sequence);
      kind.write(list, known ? known->key : idOfNewRule(model, rule), std::get<Draft>(rule));
    }
  });
}

}  // namespace

void applyLists(const Config::Model& model, const Kelp::Ptr<Acl::Input::Config>& source,
                const IdOfNewRule& idOfNewRule) {
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
      applyList(wanted, idOfNewRule, *current);
    } else {
      const auto fresh = MemSlab::make<Acl::AclSubConfig>();
      applyList(wanted, idOfNewRule, *fresh);
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
    applyLists(model, entities.lists, [&](const Config::List& list, const Config::Rule& rule) {
      const Kiv::UniqueId known = memory ? memory(source, list, rule) : Kiv::UniqueId();
      return known.empty() ? freshId(list, rule) : known;
    });
    applyBindings(model, entities.bindings);
  });
  return std::nullopt;
}

}  // namespace Agent
