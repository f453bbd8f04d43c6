#pragma once

#include <Acl/RuleMap.h>
#include <Nimnet/IntfId.h>
#include <Zeb/Attributes.h>

/// The configuration of access lists: what lists there are, and where they are bound. The same types serve
/// the sources of configuration and the merged result.
namespace Acl {

/// The rules of a list. Only the map for the list's own type is used.
class AclSubConfig : public Zeb::Entity {
  ZEB_ENTITY(AclSubConfig, Zeb::Entity)
 public:
  ~AclSubConfig() override;
  ZEB_COLLECTION(ipRuleById, RuleMap<IpRuleConfig>)
  ZEB_COLLECTION(ip6RuleById, RuleMap<Ip6RuleConfig>)
  ZEB_COLLECTION(macRuleById, RuleMap<MacRuleConfig>)

  /// From now on packets are judged by the compiled form of these rules, see RuleMap. For lists in force.
  void compile(AclType type);
  /// Whether every write to the rules updates the compiled form, if there is one (see CompiledRules).
  void upkeepIs(AclType type, bool on);
  /// True when the compiled form is ready, or when there is none because memory ran out.
  bool compiledReady(AclType type) const;

 private:
  template <class Self, class Visit>
  static auto withRules(Self& self, AclType type, const Visit& visit);
};

/// A list. Without `currCfg` it has no rules in force and is not programmable.
///
/// While `currCfg` is rewritten in several turns of the event loop, other rules can stand in for it when
/// packets ask, so that no packet sees the list half written: the rules as they were or will be; or null, as
/// if the list did not exist. A stand-in is no attribute, and is not announced. Whoever has set it removes it
/// again.
class AclConfig : public Zeb::Entity {
  ZEB_ENTITY(AclConfig, Zeb::Entity)
 public:
  ~AclConfig() override;

  explicit AclConfig(const Kelp::String& aclName) : Entity(aclName) {}
  ZEB_CHILD(AclSubConfig, currCfg)

  void standInIs(Kelp::Ptr<const AclSubConfig> rules) {
    standsIn_ = true;
    standIn_ = std::move(rules);
  }
  void standInDel() {
    standsIn_ = false;
    standIn_ = nullptr;
  }
  bool standsIn() const { return standsIn_; }
  /// The rules that packets are judged by, until the next change; null when there are none.
  const AclSubConfig* judging() const { return standsIn_ ? standIn_.get() : currCfg_.get(); }
  /// True when packets are to pass as if there were no such list.
  bool hidden() const { return standsIn_ && !standIn_; }

 private:
  bool standsIn_ = false;
  Kelp::Ptr<const AclSubConfig> standIn_;
};

/// The lists of one kind, by name.
class AclTypeConfig : public Zeb::Entity {
  ZEB_ENTITY(AclTypeConfig, Zeb::Entity)
 public:
  ~AclTypeConfig() override;

  explicit AclTypeConfig(AclType type) : Entity(stringValue(type)) {}
  ZEB_CHILDREN(acl, Zeb::HashMap2018<Kelp::String, Zeb::Owned<AclConfig>>)
};

/// All lists.
class Config : public Zeb::Entity {
  ZEB_ENTITY(Config, Zeb::Entity)
 public:
  ~Config() override;

  explicit Config(Kelp::String name = {}) : Entity(std::move(name)) {}
  ZEB_CHILDREN(config, Zeb::HashMap2018<AclType, Zeb::Owned<AclTypeConfig>>)
};

/// The bindings of one kind and direction: interface to list name. Used in configuration and status alike.
class AclIntf : public Zeb::Entity {
  ZEB_ENTITY(AclIntf, Zeb::Entity)
 public:
  ~AclIntf() override;

  explicit AclIntf(AclDirection direction) : Entity(stringValue(direction)) {}
  ZEB_COLLECTION(intf, Zeb::HashMap2018<Nimnet::IntfId, Kelp::String>)
};

/// The bindings of one kind of list, by direction.
class IntfTypeConfig : public Zeb::Entity {
  ZEB_ENTITY(IntfTypeConfig, Zeb::Entity)
 public:
  ~IntfTypeConfig() override;

  explicit IntfTypeConfig(AclType type) : Entity(stringValue(type)) {}
  ZEB_CHILDREN(intf, Zeb::HashMap2018<AclDirection, Zeb::Owned<AclIntf>>)
};

/// All bindings.
class IntfConfig : public Zeb::Entity {
  ZEB_ENTITY(IntfConfig, Zeb::Entity)
 public:
  ~IntfConfig() override;

  explicit IntfConfig(Kelp::String name = {}) : Entity(std::move(name)) {}
  ZEB_CHILDREN(config, Zeb::HashMap2018<AclType, Zeb::Owned<IntfTypeConfig>>)

  /// Marks the object as set up; whoever creates a merged one calls it once, before it is filled.
  void initialize() { initializedIs(true); }
  ZEB_VALUE(bool, initialized)
};

Kelp::Ptr<IntfConfig> intfConfigFactory(const Kelp::String& name);

namespace Input {

/// A source of lists. Its name is the name of the source.
class Config : public Acl::Config {
  ZEB_ENTITY(Config, Acl::Config)
 public:
  ~Config() override;

  using Acl::Config::Config;
};

}  // namespace Input

}  // namespace Acl
