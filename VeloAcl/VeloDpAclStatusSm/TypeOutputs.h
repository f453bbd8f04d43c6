#pragma once

#include <VeloAcl/VeloDpAclStatusSm/PerListOutput.h>

#include <optional>
#include <vector>

namespace Velo::VeloAcl {

/// An output that writes into the status of each type of list. The key of an entry is its full path.
template <class Key>
class TypeOutput : public ReconciledOutput {
 public:
  using ReconciledOutput::ReconciledOutput;

  bool seenHas(const Key& key) const { return seen_.has(key); }
  void seenIs(const Key& key) { seen_.add(key); }
  /// Notes that there was an event about an entry. Then the reconciliation leaves the entry, whatever the
  /// event was.
  void seenIfPending(const Key& key) {
    if (pending()) seenIs(key);
  }

 protected:
  /// Walks the entries of the output in the status of one type, from a key on or, when that is null, from the
  /// beginning. Keeps in cursor_ where it stops.
  virtual RunEnd walkType(DeletionRun& run, Acl::AclType aclType, Acl::AclTypeStatus& status,
                          const Key* from) = 0;

  RunEnd forget(SmallSteps& steps) override {
    cursor_.reset();
    return seen_.forget([&] { return steps.timeIsUp(); }) ? RunEnd::complete : RunEnd::yielded;
  }

  std::optional<Key> cursor_;  ///< where the walk continues

 private:
  RunEnd walk(DeletionRun& run) final;

  SeenSet<Key> seen_;
};

/// The output of the lists themselves. The status of a list has entries of other outputs, which are told of
/// each new list.
class ListOutput final : public TypeOutput<AclStatusStatusAclOutputKeyType> {
 public:
  using Key = AclStatusStatusAclOutputKeyType;
  using TypeOutput::TypeOutput;

  /// The outputs that write into the status of each list; to be set before anything else is called.
  void withinIs(std::vector<PerListOutputBase*> within) { within_ = std::move(within); }
  const std::vector<PerListOutputBase*>& within() const { return within_; }
  /// Tells the outputs within that the status of a list is produced, before they write into it.
  void recordIfPending(const Kelp::Ptr<Acl::AclStatus>& status) {
    for (PerListOutputBase* output : within_) output->recordIfPending(status);
  }
  /// Whether the status of a list that is configured only now was left by an earlier run, and its entries
  /// have to be deleted here. That is so while this output is being reconciled, when the walk over the
  /// entries within lists has ended: nobody would look at the entries of this one again. (An output without a
  /// walk has no entries in it.)
  bool isLeftOver(const Key& key) const;
  /// Deletes the status of a list, while this output is pending. The entries in it may be many; they are
  /// deleted later, together with what was seen, in slices.
  void drop(Acl::AclTypeStatus& status, const Kelp::String& aclName);

 private:
  RunEnd walkType(DeletionRun& run, Acl::AclType aclType, Acl::AclTypeStatus& status,
                  const Key* from) override;
  RunEnd forget(SmallSteps& steps) override;

  std::vector<PerListOutputBase*> within_;
  std::vector<Kelp::Ptr<Acl::AclStatus>> dropped_;
};

/// The output of the bindings.
class BindingOutput final : public TypeOutput<AclStatusStatusIntfIntfOutputKeyType> {
 public:
  using Key = AclStatusStatusIntfIntfOutputKeyType;
  using TypeOutput::TypeOutput;

 private:
  RunEnd walkType(DeletionRun& run, Acl::AclType aclType, Acl::AclTypeStatus& status,
                  const Key* from) override;
};

}  // namespace Velo::VeloAcl
