#pragma once

#include <agent/change/FleetContent.h>
#include <agent/fleet/Etcd.h>
#include <agent/fleet/Rollout.h>

#include <map>
#include <optional>
#include <string>
#include <vector>

namespace Agent {

/// Who an agent is in its fleet.
struct FleetIdentity {
  std::string agent;
  std::vector<std::string> groups;  ///< what counts more first
  /// What the store has of an agent ends so many seconds behind its last word. It says one in half of that
  /// time: seldom, because ten thousand idle agents do that, too.
  int leaseSeconds = 90;
  /// Tells this one from another agent that has the same name by mistake.
  std::string instance{};

  /// Where the texts for it are, what counts more first.
  std::vector<std::string> prefixes() const;
};

/// What a store has below one place, a group's or an agent's own, and what of that an agent is to take: the
/// one answer for agents and for those who look at them.
class FleetPlace {
 public:
  /// `entries`: by key, those of the place among others; it outlives this object.
  FleetPlace(const std::map<std::string, EtcdEntry>& entries, std::string prefix);

  /// The rollout of its texts, if there is one; an agent's own texts have none.
  const std::optional<Rollout>& rollout() const { return rollout_; }
  /// The revision of the last change of its key; 0: there is none.
  int64_t rolloutAt() const;
  bool hasDriver() const { return entries_.contains(driverKey_); }
  /// Its texts: those that are there to stay.
  std::vector<const EtcdEntry*> texts() const { return below(prefix_); }
  /// Those that are on their way.
  std::vector<const EtcdEntry*> newTexts() const;
  /// Those that an agent is to take.
  std::vector<const EtcdEntry*> textsOf(const std::string& agent) const;
  /// By which texts an agent may open something that it filtered, if it takes `texts`; nothing: by none.
  std::optional<FleetContent::MayOpen> mayOpen(const std::vector<const EtcdEntry*>& texts) const;

  /// Of texts their version: that of their keys and revisions.
  static std::string versionOf(const std::vector<const EtcdEntry*>& texts);
  /// Of texts a digest of their names and content, for mayOpenKey().
  static std::string digestOfTexts(const std::map<std::string, std::string>& byName);

 private:
  std::vector<const EtcdEntry*> below(const std::string& prefix) const;

  const std::map<std::string, EtcdEntry>& entries_;
  const std::string prefix_, driverKey_;
  std::optional<Rollout> rollout_;
};

}  // namespace Agent
