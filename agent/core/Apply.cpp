#include <Acl/RuleKinds.h>
#include <agent/core/Apply.h>

#include <set>
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
  std::vector<std::pair<Acl::AclType, Kelp::String>> gone;
  for (auto type = source->config().begin(); type; type.next()) {
    for (auto list = type.value()->acl().begin(); list; list.next()) {
      if (!model.lists.contains({type.key(), list.key().str()})) gone.emplace_back(type.key(), list.key());
    }
  }
  for (const auto& [type, name] : gone) {
    const auto lists = source->config(type);
    lists->aclDel(name);
    if (lists->acl().empty()) source->configDel(type);
  }
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
  for (const auto& key : gone) {
    const auto directions = source->config(key.type);
    const auto bindings = directions->intf(key.direction);
    bindings->intfDel(Nimnet::IntfId(key.interface));
    if (bindings->intf().empty()) directions->intfDel(key.direction);
    if (directions->intf().empty()) source->configDel(key.type);
  }
  for (const auto& [key, list] : model.bindings) {
    source->configIs(key.type)->intfIs(key.direction)->intfIs(Nimnet::IntfId(key.interface), list);
  }
}

}  // namespace Agent
