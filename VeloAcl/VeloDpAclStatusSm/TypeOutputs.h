#pragma once

#include <VeloAcl/VeloDpAclStatusSm/PerListOutput.h>

#include <optional>
#include <vector>

namespace Velo::VeloAcl {

/// An output that writes into the status of each kind of list, with the full path of an entry as its key.
template <class Key>
class TypeOutput : public ReconciledOutput {
 public:
  using ReconciledOutput::ReconciledOutput;

  bool seenHas(const Key& key) const { return seen_.has(key); }
  void seenIs(const Key& key) { seen_.add(key); }
  /// An event about an entry, whatever it says, has the entry stay through the reconciliation.
  void seenIfPending(const Key& key) {
    if (pending()) seenIs(key);
  }

 protected:
  /// The walk over what the output writes in the status of one kind of list, from a key on when that is not
  /// null. Keeps in cursor_ where it stopped.
  virtual WalkEnd walkType(DeletionRun& run, Acl::AclType aclType, Acl::AclTypeStatus& status,
                           const Key* from) = 0;

  bool forget(SmallSteps& steps) override {
    cursor_.reset();
    return seen_.forget([&] { return steps.timeIsUp(); });
  }

  std::optional<Key> cursor_;  ///< where the walk goes on

 private:
  WalkEnd walk(DeletionRun& run) final;

  SeenSet<Key> seen_;
};

/// The lists themselves. The status of a list has entries of other outputs, which are told of each list that
/// comes.
class ListOutput final : public TypeOutput<AclStatusStatusAclOutputKeyType> {
 public:
  using Key = AclStatusStatusAclOutputKeyType;
  ListOutput(MachineFrame& machine, OutputSpec spec, std::vector<PerListOutputBase*> within)
      : TypeOutput(machine, std::move(spec)), within_(std::move(within)) {}

  const std::vector<PerListOutputBase*>& within() const { return within_; }
  /// What is in a list's status is written from here on.
  void recordIfPending(const Kelp::Ptr<Acl::AclStatus>& status) {
    for (PerListOutputBase* output : within_) output->recordIfPending(status);
  }
  /// A status that an earlier run left of a list that is configured only now, when the walk over what is in
  /// the lists is through and nobody would look at what is in this one again. Its own reconciliation, under
  /// way, was to take it away. An output that had no walk to do has nothing in it.
  bool isLeftOver(const Key& key) const;
  /// Takes the status of a list out, while this is pending. What is in it may be much and is taken out of it
  /// later, with what was seen, in slices.
  void drop(Acl::AclTypeStatus& status, const Kelp::String& aclName);

 private:
  WalkEnd walkType(DeletionRun& run, Acl::AclType aclType, Acl::AclTypeStatus& status,
                   const Key* from) override;
  bool forget(SmallSteps& steps) override;

  const std::vector<PerListOutputBase*> within_;
  std::vector<Kelp::Ptr<Acl::AclStatus>> dropped_;
};

/// The bindings.
class BindingOutput final : public TypeOutput<AclStatusStatusIntfIntfOutputKeyType> {
 public:
  using Key = AclStatusStatusIntfIntfOutputKeyType;
  using TypeOutput::TypeOutput;

 private:
  WalkEnd walkType(DeletionRun& run, Acl::AclType aclType, Acl::AclTypeStatus& status,
                   const Key* from) override;
};

}  // namespace Velo::VeloAcl
