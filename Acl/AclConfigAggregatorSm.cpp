#include <Acl/AclConfigAggregatorSm.h>

namespace Acl {

namespace {

template <class Rule>
using RuleFollower = Rix::CollectionFollower<RuleMap<Rule>>;

/// Writes the rules of one source map into one target map, now and as they change.
template <class Rule, class Write, class Remove>
std::unique_ptr<RuleFollower<Rule>> followRules(const Kelp::Ptr<const AclSubConfig>& source,
                                                const Zeb::Attribute& attribute, const RuleMap<Rule>& rules,
                                                const Kelp::Ptr<AclSubConfig>& target, Write write,
                                                Remove remove) {
  return std::make_unique<RuleFollower<Rule>>(
      source, attribute, [&rules]() -> auto& { return rules; },
      [target, write](const Kiv::UniqueId& id, const Rule& rule) { (target.get()->*write)(id, rule); },
      [target, remove](const Kiv::UniqueId& id) { (target.get()->*remove)(id); });
}

}  // namespace

/// Keeps one list of the target equal to the list of the source in force.
class AclConfigAggregatorSm::ListMirror final : public Zeb::Notifiee {
 public:
  ListMirror(Kelp::Ptr<const AclConfig> source, Kelp::Ptr<AclConfig> target)
      : source_(std::move(source)), target_(std::move(target)) {
    source_->publisher().subscribe(*this);
    takeCurrCfg();
  }

  const Kelp::Ptr<const AclConfig>& source() const { return source_; }

  void handleChange(const Zeb::Change& change) override {
    if (change.is(AclConfig::currCfgAttribute())) takeCurrCfg();
  }

 private:
  /// The copy is filled before the target shows it, so that nobody sees it half done.
  void takeCurrCfg() {
    const auto rules = std::as_const(*source_).currCfg();
    if (!rules) {
      ipRules_.reset();
      ip6Rules_.reset();
      macRules_.reset();
      target_->currCfgDel();
      return;
    }
    const auto copy = MemSlab::make<AclSubConfig>();
    using S = AclSubConfig;
    ipRules_ = followRules<IpRuleConfig>(rules, S::ipRuleByIdAttribute(), rules->ipRuleById(), copy,
                                         &S::ipRuleByIdIs, &S::ipRuleByIdDel);
    ip6Rules_ = followRules<Ip6RuleConfig>(rules, S::ip6RuleByIdAttribute(), rules->ip6RuleById(), copy,
                                           &S::ip6RuleByIdIs, &S::ip6RuleByIdDel);
    macRules_ = followRules<MacRuleConfig>(rules, S::macRuleByIdAttribute(), rules->macRuleById(), copy,
                                           &S::macRuleByIdIs, &S::macRuleByIdDel);
    copy->compile();
    target_->currCfgIs(copy);
  }

  const Kelp::Ptr<const AclConfig> source_;
  const Kelp::Ptr<AclConfig> target_;
  std::unique_ptr<RuleFollower<IpRuleConfig>> ipRules_;
  std::unique_ptr<RuleFollower<Ip6RuleConfig>> ip6Rules_;
  std::unique_ptr<RuleFollower<MacRuleConfig>> macRules_;
};

/// Offers the lists of one source.
class AclConfigAggregatorSm::SourceFollower {
  using Lists = Rix::CollectionFollower<AclTypeConfig::aclMap>;
  using Types = Rix::NestedFollower<Config::configMap, Lists>;

 public:
  SourceFollower(AclConfigAggregatorSm& owner, Hive::MergeRank rank, Kelp::Ptr<const Input::Config> source)
      : types_(
            source,
            Config::configAttribute(), [source = source.get()]() -> auto& { return source->config(); },
            [&owner, rank](AclType type, const Zeb::Owned<AclTypeConfig>& lists) {
              return std::make_unique<Lists>(
                  lists.ptr(),
                  AclTypeConfig::aclAttribute(), [lists = lists.get()]() -> auto& { return lists->acl(); },
                  [&owner, rank, type](const Kelp::String& name, const Zeb::Owned<AclConfig>& list) {
                    if (owner.offers_.put({type, name}, rank, list.ptr())) owner.handleOffer({type, name});
                  },
                  [&owner, rank, type](const Kelp::String& name) {
                    if (owner.offers_.remove({type, name}, rank)) owner.handleOffer({type, name});
                  });
            }) {}

  void withdraw() { types_.withdraw(); }

 private:
  Types types_;
};

AclConfigAggregatorSm::AclConfigAggregatorSm(Kelp::Ptr<const Zeb::Dir> inputDir,
                                             Kelp::Ptr<const Input::Config> cliInput,
                                             Kelp::Ptr<Config> config)
    : inputDir_(std::move(inputDir)), cliInput_(std::move(cliInput)), config_(std::move(config)) {}

AclConfigAggregatorSm::~AclConfigAggregatorSm() = default;

Kelp::Ptr<AclConfigAggregatorSm> AclConfigAggregatorSm::AclConfigAggregatorSmIs(
    const Kelp::Ptr<const Zeb::Dir>& inputDir, const Kelp::Ptr<const Input::Config>& cliInput,
    const Kelp::Ptr<Config>& config) {
  return MemSlab::make<AclConfigAggregatorSm>(inputDir, cliInput, config);
}

void AclConfigAggregatorSm::hasNotificationActiveIs(bool on) {
  if (on == static_cast<bool>(follower_)) return;
  if (!on) {
    follower_.reset();
    mirrors_.clear();
    offers_ = {};
    dirMergeSm_ = nullptr;
    merged_ = nullptr;
    return;
  }
  merged_ = MemSlab::make<Hive::DirMerged>("aclConfig");
  merged_->addPtr(cliInput_);
  dirMergeSm_ = Hive::DirMergeSm::DirMergeSmIs(merged_);
  dirMergeSm_->addInputDir(inputDir_);
  follower_ = std::make_unique<Source>(
      merged_, Hive::DirMerged::entryAttribute(), [this]() -> auto& { return merged_->entry(); },
      [this](const Hive::MergeRank& rank, const Kelp::Ptr<const Zeb::Entity>& entity) {
        const auto source = Kelp::ptrCast<const Input::Config>(entity);
        return source ? std::make_unique<SourceFollower>(*this, rank, source) : nullptr;
      });
  dropUnoffered();
}

void AclConfigAggregatorSm::handleOffer(const ListKey& key) {
  const auto& [type, name] = key;
  const auto* inForce = offers_.inForce(key);
  if (!inForce) {
    mirrors_.erase(key);
    const auto lists = config_->config(type);
    if (!lists) return;
    lists->aclDel(name);
    if (lists->acl().empty() && config_->config(type) == lists) config_->configDel(type);
    return;
  }
  const Kelp::Ptr<const AclConfig> source = *inForce;
  if (auto known = mirrors_.find(key); known != mirrors_.end()) {
    if (known->second->source() == source) return;
    mirrors_.erase(known);
  }
  auto mirror = std::make_unique<ListMirror>(source, config_->configIs(type)->aclIs(name));
  // Whoever saw the list change may have changed the sources again; then this mirror is not the one any more.
  const auto* now = offers_.inForce(key);
  if (now && *now == source) mirrors_.try_emplace(key, std::move(mirror));
}

void AclConfigAggregatorSm::dropUnoffered() {
  std::vector<ListKey> gone;
  for (auto type = config_->config().begin(); type; type.next()) {
    for (auto list = type.value()->acl().begin(); list; list.next()) {
      if (!offers_.inForce({type.key(), list.key()})) gone.emplace_back(type.key(), list.key());
    }
  }
  for (const ListKey& key : gone) handleOffer(key);
}

}  // namespace Acl
