#pragma once

#include <VeloAcl/VeloDpAclStatusSm/VeloDpAclStatusSm.h>

namespace Velo::VeloAcl {

/// Runs what waits for a field of the scan state whenever that changes.
class VeloDpAclStatusSm::ScanStateFollower final : public Zeb::Notifiee {
 public:
  explicit ScanStateFollower(VeloDpAclStatusSm& machine) : machine_(machine) {
    machine.scanState_->publisher().subscribe(*this);
  }
  void handleChange(const Zeb::Change& change) override {
    machine_.withMachine([&] { machine_.handleScanStateChange(change.attribute); });
  }

 private:
  VeloDpAclStatusSm& machine_;
};

}  // namespace Velo::VeloAcl
