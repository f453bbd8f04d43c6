#include <Acl/IntfConfigSm.h>

namespace AclAgent {

using Acl::AclDirection;
using Acl::AclType;

/// Offers the bindings of one source.
class IntfConfigSm::SourceFollower {
  using Bindings = Rix::CollectionFollower<Acl::AclIntf::intfMap>;
  using Directions = Rix::NestedFollower<Acl::IntfTypeConfig::intfMap, Bindings>;
  using Types = Rix::NestedFollower<Acl::IntfConfig::configMap, Directions>;

 public:
  SourceFollower(IntfConfigSm& owner, const Hive::MergeRank& rank,
                 const Kelp::Ptr<const Acl::IntfConfig>& source)
      : types_(
            source, Acl::IntfConfig::configAttribute(),
            [source = source.get()]() -> auto& { return source->config(); },
            [&owner, rank](AclType type, const Zeb::Owned<Acl::IntfTypeConfig>& directions) {
              return std::make_unique<Directions>(
                  directions.ptr(), Acl::IntfTypeConfig::intfAttribute(),
                  [directions = directions.get()]() -> auto& { return directions->intf(); },
                  [&owner, rank, type](AclDirection direction, const Zeb::Owned<Acl::AclIntf>& bindings) {
                    return followBindings(owner, rank, type, direction, bindings.ptr());
                  });
            }) {}

  void withdraw() { types_.withdraw(); }

 private:
  static std::unique_ptr<Bindings> followBindings(IntfConfigSm& owner, const Hive::MergeRank& rank,
                                                  AclType type, AclDirection direction,
                                                  const Kelp::Ptr<const Acl::AclIntf>& intf) {
    const auto remove = [&owner, rank, type, direction](const Nimnet::IntfId& id) {
      const BindingKey key{type, direction, id};
      if (owner.offers_.remove(key, rank)) owner.handleOffer(key);
    };
    return std::make_unique<Bindings>(
        intf, Acl::AclIntf::intfAttribute(), [intf = intf.get()]() -> auto& { return intf->intf(); },
        [&owner, rank, type, direction, remove](const Nimnet::IntfId& id, const Kelp::String& list) {
          const BindingKey key{type, direction, id};
          if (list.empty()) {
            remove(id);
          } else if (owner.offers_.put(key, rank, list)) {
            owner.handleOffer(key);
          }
        },
        remove);
  }

  Types types_;
};

IntfConfigSm::IntfConfigSm(Kelp::Ptr<const Hive::DirMerged> sources, Kelp::Ptr<Acl::IntfConfig> target)
    : target_(std::move(target)) {
  const Hive::DirMerged* view = sources.get();
  follower_ = std::make_unique<Rix::NestedFollower<Hive::DirMerged::entryMap, SourceFollower>>(
      std::move(sources), Hive::DirMerged::entryAttribute(), [view]() -> auto& { return view->entry(); },
      [this](const Hive::MergeRank& rank, const Kelp::Ptr<const Zeb::Entity>& entity) {
        const auto source = Kelp::ptrCast<const Acl::IntfConfig>(entity);
        return source ? std::make_unique<SourceFollower>(*this, rank, source) : nullptr;
      });
}

IntfConfigSm::~IntfConfigSm() = default;

void IntfConfigSm::handleOffer(const BindingKey& key) {
  const auto& [type, direction, intf] = key;
  if (const Kelp::String* list = offers_.inForce(key)) {
    target_->configIs(type)->intfIs(direction)->intfIs(intf, *list);
    return;
  }
  const auto directions = target_->config(type);
  const auto bindings = directions->intf(direction);
  bindings->intfDel(intf);
  // A handler that saw the binding go may have made a new one; then the target has other maps now.
  if (bindings->intf().empty() && directions->intf(direction) == bindings) directions->intfDel(direction);
  if (directions->intf().empty() && target_->config(type) == directions) target_->configDel(type);
}

Kelp::Ptr<IntfConfigSm> intfConfigSmFactory(const Kelp::Ptr<const Hive::DirMerged>& sources,
                                            const Kelp::Ptr<Acl::IntfConfig>& target) {
  return MemSlab::make<IntfConfigSm>(sources, target);
}

}  // namespace AclAgent
