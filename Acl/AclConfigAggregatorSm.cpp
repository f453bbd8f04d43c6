#include <Acl/AclConfigAggregatorSm.h>
#include <Acl/RuleKinds.h>

#include <optional>

namespace Acl {

/// Keeps one list of the target equal to the list of the source in force.
class AclConfigAggregatorSm::ListMirror final : public Zeb::Notifiee {
 public:
  ListMirror(AclType type, Kelp::Ptr<const AclConfig> source, Kelp::Ptr<AclConfig> target)
      : type_(type), source_(std::move(source)), target_(std::move(target)) {
    source_->publisher().subscribe(*this);
    takeCurrCfg();
  }

  const Kelp::Ptr<const AclConfig>& source() const { return source_; }

  void handleChange(const Zeb::Change& change) override {
    if (change.is(AclConfig::currCfgAttribute())) return takeCurrCfg();
    // A handler that sees the write may end this mirror.
    const auto rules = rules_;
    const auto copy = copy_;
    forEachRuleKind([&](auto kind) {
      if (!change.is(kind.attribute())) return;
      const Kiv::UniqueId id = change.keyAs<Kiv::UniqueId>();
      if (const auto* rule = kind.rules(*rules).find(id)) {
        kind.write(*copy, id, *rule);
      } else {
        kind.remove(*copy, id);
      }
    });
  }

  /// See AclConfigAggregatorSm::takeOver.
  bool takeOver(size_t most) {
    if (!rules_) target_->currCfgDel();
    for (; stage_ < stages; ++stage_) {
      const bool stale = stage_ % 2 == 0;
      withRuleKind(static_cast<AclType>(stage_ / 2), [&](auto kind) {
        const auto& walked = kind.rules(stale ? *copy_ : *rules_);
        auto at = resume_ ? walked.from(*resume_) : walked.begin();
        for (; at && most > 0; at.next(), --most) {
          if (!stale) {
            kind.write(*copy_, at.key(), at.value());
          } else if (!kind.rules(*rules_).find(at.key())) {
            kind.remove(*copy_, at.key());
          }
        }
        resume_ = at ? std::optional(at.key()) : std::nullopt;
      });
      if (resume_) return false;
    }
    return true;
  }

 private:
  /// A list that is taken over piece by piece: for each kind of rule, first the rules that the source does
  /// not have are removed, then those of the source are written.
  static constexpr int stages = 6;

  void takeCurrCfg() {
    if (rules_) rules_->publisher().unsubscribe(*this);
    rules_ = std::as_const(*source_).currCfg();
    stage_ = stages;
    resume_.reset();
    if (!rules_) {
      copy_ = nullptr;
      if (!target_->standsIn()) target_->currCfgDel();
      return;
    }
    rules_->publisher().subscribe(*this);
    copy_ = target_->currCfg();
    if (target_->standsIn() && copy_) {
      stage_ = 0;
      return;
    }
    // The copy is filled before it is put into the target, so that nobody sees it half done.
    copy_ = MemSlab::make<AclSubConfig>();
    forEachRuleKind([this](auto kind) {
      for (auto at = kind.rules(*rules_).begin(); at; at.next()) kind.write(*copy_, at.key(), at.value());
    });
    copy_->compile(type_);
    target_->currCfgIs(copy_);
  }

  const AclType type_;
  const Kelp::Ptr<const AclConfig> source_;
  const Kelp::Ptr<AclConfig> target_;
  Kelp::Ptr<const AclSubConfig> rules_;  // the source's
  Kelp::Ptr<AclSubConfig> copy_;         // the target's
  int stage_ = stages;
  std::optional<Kiv::UniqueId> resume_;  // where the stage goes on
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
  auto mirror = std::make_unique<ListMirror>(type, source, config_->configIs(type)->aclIs(name));
  // A handler that saw the list change may have changed the sources again; then there is another mirror now.
  const auto* now = offers_.inForce(key);
  if (now && *now == source) mirrors_.try_emplace(key, std::move(mirror));
}

bool AclConfigAggregatorSm::takeOver(const ListKey& key, size_t most) {
  const auto known = mirrors_.find(key);
  return known == mirrors_.end() || known->second->takeOver(most);
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
