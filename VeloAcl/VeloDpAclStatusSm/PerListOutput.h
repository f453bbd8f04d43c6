#pragma once

#include <VeloAcl/VeloDpAclStatusSm/ReconciledOutput.h>
#include <VeloAcl/VeloDpAclStatusSm/SeenSets.h>
#include <VeloAcl/VeloDpAclStatusSm/StatusTrace.h>

#include <optional>

namespace Velo::VeloAcl {

/// A kind of entries in the status of each list: its key, its value, and how it is read, written and taken
/// out. A row a kind.
struct RuleStatusEntries {
  using Key = Kiv::UniqueId;
  using Value = Acl::RuleStatus;
  static const auto& of(const Acl::AclStatus& status) { return status.ruleStatus(); }
  static void put(Acl::AclStatus& status, const Key& key, const Value& value) {
    status.ruleStatusIs(key, value);
  }
  static void del(Acl::AclStatus& status, const Key& key) { status.ruleStatusDel(key); }
};
struct ImplicitRuleIdEntries {
  using Key = Acl::ImplicitRuleType;
  using Value = Kiv::UniqueId;
  static const auto& of(const Acl::AclStatus& status) { return status.implicitRuleId(); }
  static void put(Acl::AclStatus& status, Key key, const Value& value) {
    status.implicitRuleIdIs(key, value);
  }
  static void del(Acl::AclStatus& status, Key key) { status.implicitRuleIdDel(key); }
};
struct ImplicitRuleStatusEntries {
  using Key = Acl::ImplicitRuleType;
  using Value = Acl::RuleStatus;
  static const auto& of(const Acl::AclStatus& status) { return status.implicitRuleStatus(); }
  static void put(Acl::AclStatus& status, Key key, const Value& value) {
    status.implicitRuleStatusIs(key, value);
  }
  static void del(Acl::AclStatus& status, Key key) { status.implicitRuleStatusDel(key); }
};

/// The trace texts for a stream's writes of entries. Each stream has both, whether or not its entries can go
/// without their list: only those of rules do.
template <class Entries>
struct Into {
  fmt::format_string<const typename Entries::Key&, const typename Entries::Value&> inserting;
  fmt::format_string<const typename Entries::Key&> deleting;
};

/// An output that writes into the status of each list: the part that does not depend on the kind of entries.
class PerListOutputBase : public ReconciledOutput {
 public:
  using ReconciledOutput::ReconciledOutput;
  /// Records that the status of a list was produced, even if nothing is written into it.
  virtual void recordIfPending(const Kelp::Ptr<Acl::AclStatus>& status) = 0;
  /// Marks the output as pending if the status of a list, left by an earlier run, has entries.
  virtual void pendingIfEntriesIn(const Acl::AclStatus& status) = 0;
  /// Deletes its entries in a status whose list is deleted.
  virtual RunEnd emptied(Acl::AclStatus& status, SmallSteps& steps) const = 0;
};

template <class Entries>
class PerListOutput final : public PerListOutputBase {
  using Key = typename Entries::Key;
  using SeenKey = PerStatusOutputKey<Key>;

 public:
  using PerListOutputBase::PerListOutputBase;

  const PtrSeenMap<SeenKey>& ptrSeen() const { return seen_; }
  void recordIfPending(const Kelp::Ptr<Acl::AclStatus>& status) override {
    if (pending()) seen_.record(status);
  }
  void pendingIfEntriesIn(const Acl::AclStatus& status) override {
    if (!Entries::of(status).empty()) pendingIs(true);
  }
  RunEnd emptied(Acl::AclStatus& status, SmallSteps& steps) const override {
    for (auto entry = Entries::of(status).begin(); entry; entry.next()) {
      Entries::del(status, entry.key());
      if (machine_.stopped()) return RunEnd::stopped;
      if (steps.timeIsUp()) return RunEnd::yielded;
    }
    return RunEnd::complete;
  }

  /// The end of a stream: sets an entry, or deletes it when there is no value.
  void write(const Into<Entries>& into, const Kelp::Ptr<Acl::AclStatus>& status, const Key& key,
             const std::optional<typename Entries::Value>& value, int line = __builtin_LINE()) {
    if (pending()) seen_.add(status, {key});
    if (value) {
      traceStatusAt(line, 7, into.inserting, key, *value);
      Entries::put(*status, key, *value);
    } else {
      traceStatusAt(line, 7, into.deleting, key);
      Entries::del(*status, key);
    }
  }

 private:
  /// Where the walk continues: the index of a recorded status, and a key in there or its beginning.
  struct Cursor {
    size_t status = 0;
    std::optional<Key> key;
  };

  RunEnd walk(DeletionRun& run) override {
    const Cursor from = cursor_;
    for (size_t at = from.status; at < seen_.size(); ++at) {
      if (run.mustStopBeforeStatus()) {
        cursor_ = {at, std::nullopt};
        return RunEnd::yielded;
      }
      const Kelp::Ptr<Acl::AclStatus> status = seen_.status(at);
      const RunEnd end = deleteUnseen(
          run, Entries::of(*status), at == from.status && from.key ? &*from.key : nullptr,
          [&](const Key& key) { return seen_.has(at, {key}); },
          [&](const Key& key) { Entries::del(*status, key); },
          [&](const Key& key) {
            cursor_ = {at, key};
          });
      if (end != RunEnd::complete) return end;
    }
    return RunEnd::complete;
  }
  RunEnd forget(SmallSteps& steps) override {
    cursor_ = {};
    return seen_.forget([&] { return steps.timeIsUp(); }) ? RunEnd::complete : RunEnd::yielded;
  }

  PtrSeenMap<SeenKey> seen_;
  Cursor cursor_;
};

}  // namespace Velo::VeloAcl
