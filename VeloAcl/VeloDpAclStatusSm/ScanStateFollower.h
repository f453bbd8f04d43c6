#pragma once

#include <VeloAcl/VeloDpAclStatusSm/VeloDpAclStatusSm.h>

namespace Velo::VeloAcl {

/// Follows the scan state: when a field changes, it runs whatever waits for the field.
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
