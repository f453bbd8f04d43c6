#include <VeloAcl/VeloDpAclStatusSm/TypeOutputs.h>

#include <algorithm>

namespace Velo::VeloAcl {

/// A direction or type that becomes empty is deleted with its last entry.
template <class Key>
RunEnd TypeOutput<Key>::walk(DeletionRun& run) {
  Acl::StatusDp& all = *machine_.aclStatus();
  const auto& types = all.status();
  const std::optional<Key> from = cursor_;
  for (auto type = from ? types.from(from->aclType) : types.begin(); type; type.next()) {
    const Acl::AclType aclType = type.key();
    const auto status = all.status(aclType);
    if (!status) continue;
    const bool here = from && aclType == from->aclType;
    const RunEnd end = walkType(run, aclType, *status, here ? &*from : nullptr);
    if (end != RunEnd::complete) return end;
    if (status->acl().empty() && status->intf().empty()) {
      all.statusDel(aclType);
      ++run.items;
      if (machine_.stopped()) return RunEnd::stopped;
    }
  }
  return RunEnd::complete;
}

bool ListOutput::isLeftOver(const Key& key) const {
  if (!pending() || seenHas(key)) return false;
  if (std::none_of(within_.begin(), within_.end(), [](auto* output) { return output->wasWalked(); })) {
    return false;
  }
  const auto lists = machine_.aclStatus()->status(key.aclType);
  return lists && lists->acl(key.aclName);
}

void ListOutput::drop(Acl::AclTypeStatus& status, const Kelp::String& aclName) {
  if (auto list = status.acl(aclName)) dropped_.push_back(std::move(list));
  status.aclDel(aclName);
}

RunEnd ListOutput::forget(SmallSteps& steps) {
  if (const RunEnd end = TypeOutput::forget(steps); end != RunEnd::complete) return end;
  while (!dropped_.empty()) {
    const Kelp::Ptr<Acl::AclStatus> status = dropped_.back();
    for (const PerListOutputBase* output : within_) {
      if (const RunEnd end = output->emptied(*status, steps); end != RunEnd::complete) return end;
    }
    dropped_.pop_back();
    if (!dropped_.empty() && steps.timeIsUp()) return RunEnd::yielded;
  }
  return RunEnd::complete;
}

RunEnd ListOutput::walkType(DeletionRun& run, Acl::AclType aclType, Acl::AclTypeStatus& status,
                            const Key* from) {
  return deleteUnseen(
      run, status.acl(), from ? &from->aclName : nullptr,
      [&](const Kelp::String& name) {
        return seenHas({aclType, name});
      },
      [&](const Kelp::String& name) { drop(status, name); },
      [&](const Kelp::String& name) {
        cursor_ = {aclType, name};
      });
}

RunEnd BindingOutput::walkType(DeletionRun& run, Acl::AclType aclType, Acl::AclTypeStatus& status,
                               const Key* from) {
  const auto& directions = status.intf();
  for (auto at = from ? directions.from(from->direction) : directions.begin(); at; at.next()) {
    const Acl::AclDirection direction = at.key();
    const auto bindings = status.intf(direction);
    if (!bindings) continue;
    const bool here = from && direction == from->direction;
    const RunEnd end = deleteUnseen(
        run, bindings->intf(), here ? &from->intfId : nullptr,
        [&](const Nimnet::IntfId& intfId) {
          return seenHas({aclType, direction, intfId});
        },
        [&](const Nimnet::IntfId& intfId) { bindings->intfDel(intfId); },
        [&](const Nimnet::IntfId& intfId) {
          cursor_ = {aclType, direction, intfId};
        });
    if (end != RunEnd::complete) return end;
    if (bindings->intf().empty()) status.intfDel(direction);
    if (machine_.stopped()) return RunEnd::stopped;
  }
  return RunEnd::complete;
}

template class TypeOutput<AclStatusStatusAclOutputKeyType>;
template class TypeOutput<AclStatusStatusIntfIntfOutputKeyType>;

}  // namespace Velo::VeloAcl
