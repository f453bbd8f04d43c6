#pragma once

#include <Acl/Counters.h>
#include <Acl/MergedConfig.h>
#include <Acl/Model.h>
#include <Acl/Status.h>
#include <Velo/VeloPlugin.h>

#include <optional>
#include <string>
#include <vector>

namespace Agent {

/// The status of a list in a status of all lists, which may be null; null when there is none.
template <class Status>
auto statusOf(const Kelp::Ptr<Status>& status, Acl::AclType type, const Kelp::String& name) {
  const auto lists = status ? status->status(type) : nullptr;
  return lists ? lists->acl(name) : nullptr;
}
/// The id of a list's implicit drop; null when there is no status, or no id in it.
inline const Kiv::UniqueId* implicitDropOf(const Kelp::Ptr<const Acl::AclStatus>& status) {
  return status ? status->implicitRuleId(Acl::ImplicitRuleType::drop) : nullptr;
}

/// What packets are judged by now: the configuration that the loaded plugin has merged out of all sources,
/// and the status that it publishes. Everything is null or empty while no plugin is loaded. The registries
/// are read at every call, so that nothing of a plugin is kept here when it goes.
///
/// Part of the core, which owns it.
class InForce {
 public:
  /// `status`: the entity in the state tree that a plugin publishes in.
  InForce(const Velo::PluginManager& manager, Kelp::Ptr<const Acl::StatusDp> status)
      : manager_(manager), published_(std::move(status)) {}

  /// The merged lists and bindings, and the mergers, which know the sources of lists and bindings.
  Kelp::Ptr<const Acl::Config> lists() const;
  Kelp::Ptr<const Acl::IntfConfig> bindings() const;
  Kelp::Ptr<const Acl::AclConfigAggregatorSm> listSources() const;
  Kelp::Ptr<const AclAgent::IntfConfigSm> bindingSources() const;
  /// One of them, for whoever carries out a change of it; null when there is none.
  Kelp::Ptr<Acl::AclConfig> list(Acl::AclType type, const Kelp::String& name) const;
  /// The published status; null when the plugin shares no lists, or publishes elsewhere.
  Kelp::Ptr<const Acl::StatusDp> status() const { return lists() ? published_ : nullptr; }
  /// That of one list; null when there is none.
  Kelp::Ptr<const Acl::AclStatus> statusOf(Acl::AclType type, const Kelp::String& name) const {
    return Agent::statusOf(status(), type, name);
  }
  std::vector<Kelp::Ptr<Velo::Counter::VeloDpAclCounterColl>> counters() const;

  /// See Acl::AclConfigAggregatorSm.
  bool takeOver(Acl::AclType type, const Kelp::String& name, size_t most) const;

  /// Names the first list or binding that is missing in the published status, or that has no implicit rule
  /// there, in a sentence. Nothing when all are there, and when the plugin publishes no status.
  std::optional<std::string> unpublished() const;

 private:
  Kelp::Ptr<Acl::MergedConfig> merged() const;
  std::optional<std::string> unpublishedList() const;
  std::optional<std::string> unpublishedBinding() const;

  const Velo::PluginManager& manager_;
  const Kelp::Ptr<const Acl::StatusDp> published_;
};

}  // namespace Agent
