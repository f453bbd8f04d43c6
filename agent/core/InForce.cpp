#include <agent/core/InForce.h>
#include <agent/core/Words.h>

namespace Agent {

Kelp::Ptr<Acl::MergedConfig> InForce::merged() const {
  return Acl::MergedConfig::of(*manager_.sharedObjects());
}

Kelp::Ptr<Acl::AclConfig> InForce::list(Acl::AclType type, const Kelp::String& name) const {
  const auto all = merged();
  const auto lists = all && all->lists() ? all->lists()->config(type) : nullptr;
  return lists ? lists->acl(name) : nullptr;
}

std::vector<Kelp::Ptr<Velo::Counter::VeloDpAclCounterColl>> InForce::counters() const {
  std::vector<Kelp::Ptr<Velo::Counter::VeloDpAclCounterColl>> all;
  for (auto at = manager_.counterHolder()->collection().begin(); at; at.next()) {
    if (auto typed = Kelp::ptrCast<Velo::Counter::VeloDpAclCounterColl>(at.value().object))
      all.push_back(typed);
  }
  return all;
}

Kelp::Ptr<const Acl::Config> InForce::lists() const {
  const auto all = merged();
  return all ? all->lists() : nullptr;
}
Kelp::Ptr<const Acl::IntfConfig> InForce::bindings() const {
  const auto all = merged();
  return all ? all->bindings() : nullptr;
}
Kelp::Ptr<const Acl::AclConfigAggregatorSm> InForce::listSources() const {
  const auto all = merged();
  return all ? all->listMerger() : nullptr;
}
Kelp::Ptr<const AclAgent::IntfConfigSm> InForce::bindingSources() const {
  const auto all = merged();
  return all ? all->bindingMerger() : nullptr;
}

bool InForce::takeOver(Acl::AclType type, const Kelp::String& name, size_t most) const {
  const auto all = merged();
  return !all || !all->listMerger() || all->listMerger()->takeOver({type, name}, most);
}

std::optional<std::string> InForce::unpublished() const {
  if (!status()) return std::nullopt;
  auto missing = unpublishedList();
  if (!missing) missing = unpublishedBinding();
  if (missing) *missing += " was not published by the plugin";
  return missing;
}

std::optional<std::string> InForce::unpublishedList() const {
  for (auto type = lists()->config().begin(); type; type.next()) {
    for (auto list = type.value()->acl().begin(); list; list.next()) {
      if (!implicitDropOf(statusOf(type.key(), list.key()))) return listTitle(type.key(), list.key().view());
    }
  }
  return std::nullopt;
}

std::optional<std::string> InForce::unpublishedBinding() const {
  const auto all = bindings();
  if (!all) return std::nullopt;
  for (auto type = all->config().begin(); type; type.next()) {
    const auto shownType = published_->status(type.key());
    for (auto direction = type.value()->intf().begin(); direction; direction.next()) {
      const auto shown = shownType ? shownType->intf(direction.key()) : nullptr;
      for (auto intf = direction.value()->intf().begin(); intf; intf.next()) {
        const auto* list = shown ? shown->intf(intf.key()) : nullptr;
        if (list && *list == intf.value()) continue;
        const Config::BindingKey place{type.key(), direction.key(), intf.key().name().str()};
        return bindingTitle(place, intf.value().view());
      }
    }
  }
  return std::nullopt;
}

}  // namespace Agent
