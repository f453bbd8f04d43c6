#pragma once

#include <Acl/AclConfigAggregatorSm.h>
#include <Acl/Counters.h>
#include <Acl/IntfConfigSm.h>
#include <Acl/Model.h>
#include <Acl/Status.h>
#include <Velo/VeloPlugin.h>

#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace Agent {

/// What packets are judged by now: what the loaded plugin merged out of all sources, and what it publishes of
/// it. Null and empty while no plugin is loaded that has such things. Reads the plugin's registries at every
/// call, so nothing of a plugin is kept here.
///
/// Part of the core.
class InForce {
 public:
  /// `status`: where a plugin publishes.
  InForce(const Velo::PluginManager& manager, Kelp::Ptr<const Acl::StatusDp> status)
      : manager_(manager), published_(std::move(status)) {}

  /// The merged lists, which the plugin shares with others under the name "AclConfig".
  Kelp::Ptr<const Acl::Config> lists() const { return shared(); }
  /// One of them, to be looked after while it changes; null when there is none.
  Kelp::Ptr<Acl::AclConfig> list(Acl::AclType type, const Kelp::String& name) const;
  /// The published status; null when the plugin shares no lists, or publishes elsewhere.
  Kelp::Ptr<const Acl::StatusDp> status() const { return shared() ? published_ : nullptr; }
  std::vector<Kelp::Ptr<Velo::Counter::VeloDpAclCounterColl>> counters() const;

  // What the plugin works with and does not share: found by the names of its reflected attributes.
  Kelp::Ptr<const Acl::IntfConfig> bindings() const;
  Kelp::Ptr<const Acl::AclConfigAggregatorSm> listSources() const;
  Kelp::Ptr<const AclAgent::IntfConfigSm> bindingSources() const;
  /// See Acl::AclConfigAggregatorSm.
  bool takeOver(Acl::AclType type, const Kelp::String& name, size_t most) const;

  /// The first list or binding that the status does not show, or shows without an implicit rule; nothing when
  /// all are there, and for a plugin that publishes no status.
  std::optional<std::string> unpublished() const;

 private:
  Kelp::Ptr<Acl::Config> shared() const;
  template <class T>
  Kelp::Ptr<T> attribute(std::string_view name) const;
  std::optional<std::string> unpublishedList() const;
  std::optional<std::string> unpublishedBinding() const;

  const Velo::PluginManager& manager_;
  const Kelp::Ptr<const Acl::StatusDp> published_;
};

}  // namespace Agent
