#pragma once

#include <Acl/Counters.h>
#include <Acl/Status.h>

#include <array>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <utility>
#include <vector>

namespace SmTest {

/// What the status must be, told in plain maps from the outside of the machine: it is given the changes of
/// the configuration, the counts, and after each run of a poll how many counters that run was through with.
///
/// It knows when each value is written: a rule that comes, or comes again, stands at zero and the present
/// time until a poll copies a counter of it; a list that comes has a fresh implicit id and a fresh status of
/// it; a poll goes through its counters in the order of (hash of the key, key) and writes each, whatever it
/// finds there, so that the later of two counters of one rule is what is published, and the counter of a rule
/// that is gone is published again. Only the implicit ids themselves it cannot know and takes from the
/// status.
///
/// While the machine starts, what is written when depends on its tasks; the model then collects what each
/// value may be and takes over what it finds (started()).
class StatusModel {
 public:
  using Type = Acl::AclType;
  using Direction = Acl::AclDirection;
  using Uid = Kiv::UniqueId;
  using CounterKey = Velo::Counter::VeloDpAclCounterKey;
  using ListKey = std::pair<Type, std::string>;
  using BindingKey = std::tuple<Type, Direction, std::string>;

  /// The polls in the order in which the machine runs them.
  enum Poll : size_t { ipOut, ip6Out, in, macOut, polls };
  static Poll pollOf(const CounterKey& key);

  void timeIs(double now) { now_ = now; }

  // The configuration. The rules of a list are those of all three maps; nullopt is a list without any set.
  void listIs(Type type, const std::string& name);
  void listDel(Type type, const std::string& name);
  void typeDel(Type type);
  void rulesIs(Type type, const std::string& name, std::optional<std::set<Uid>> rules);
  void ruleIs(Type type, const std::string& name, Uid uid);
  void ruleDel(Type type, const std::string& name, Uid uid);
  void bindingIs(Type type, Direction direction, const std::string& intf, const std::string& name);
  void bindingDel(Type type, Direction direction, const std::string& intf);
  void bindingsDel(Type type, std::optional<Direction> direction);
  void counterIs(const CounterKey& key, uint64_t packets, double time);

  // The machine.
  /// It begins to start, over whatever status there is.
  void starting(const Acl::StatusDp& status);
  /// It is ready: checks the status against what it may be after a start with tasks and goes on from it.
  /// Returns what is wrong, a line each.
  std::string started(const Acl::StatusDp& status);
  /// It has started without tasks: every list and rule came, then each poll copied all its counters once.
  void startedAtOnce();
  void stopped() { live_ = false; }
  /// A run of a poll went through `count` counters; `restarted` when it was told to start over and stopped
  /// behind its first. Returns true when that completes the pass.
  bool polled(Poll poll, size_t count, bool restarted);

  /// Compares; returns what is wrong, a line each. Implicit ids that are new are taken from the status.
  std::string compare(const Acl::StatusDp& status);

  const std::map<ListKey, std::optional<std::set<Uid>>>& lists() const { return config_; }
  const std::map<BindingKey, std::string>& bindings() const { return bindings_; }
  /// The implicit id of a list, empty while it is not known.
  Uid implicitId(Type type, const std::string& name) const;

 private:
  struct CounterValue {
    uint64_t packets = 0;
    double time = 0;
  };
  struct ListStatus {
    std::map<Uid, Acl::RuleStatus> rules;
    Uid implicitId;
    Acl::RuleStatus implicit;
    double updateTime = 0;
  };
  /// In the order of the counter collections.
  using CounterOrder = std::pair<uint32_t, CounterKey>;
  struct PollState {
    std::map<CounterOrder, CounterValue> counters;
    std::optional<CounterOrder> bookmark;
  };

  Acl::RuleStatus fresh() const { return {0, 0, now_, true}; }
  void copy(const CounterKey& key, const CounterValue& counter);
  bool mayBe(const ListKey& list, Uid uid, const Acl::RuleStatus& value, bool configured) const;

  double now_ = 0;
  bool live_ = false;
  std::map<ListKey, std::optional<std::set<Uid>>> config_;
  std::map<BindingKey, std::string> bindings_;
  std::array<PollState, polls> polls_;
  std::map<ListKey, ListStatus> status_;
  std::set<Uid> knownIds_;

  // While the machine starts.
  double startTime_ = 0;
  std::map<std::pair<ListKey, Uid>, std::vector<CounterValue>> copied_;
  std::map<ListKey, double> oldUpdateTimes_;
};

}  // namespace SmTest
