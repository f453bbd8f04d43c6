#pragma once

#include <Acl/Counters.h>
#include <VeloAcl/VeloDpAclStatusSm/Output.h>
#include <VeloAcl/VeloDpAclStatusSm/ScanState.h>

#include <optional>

namespace Velo::VeloAcl {

class VeloDpAclStatusSm;

/// One of the machine's polls: copies a collection of counters into the status, again and again.
struct CounterPoll {
  /// A row of the machine's table of polls: what it traces, and where the poll's state is.
  struct Row {
    const char* inputReadyText;
    const char* inputsText;
    const char* firedText;
    fmt::format_string<size_t> flatteningText;
    fmt::format_string<const Velo::Counter::VeloDpAclCounterKey&, size_t> resumingText;
    const Kelp::Ptr<const Velo::Counter::VeloDpAclCounterColl>& (VeloDpAclStatusSm::*input)() const;
    bool (InputSmScanState::*idleIs)(bool);
    const uint64_t& (InputSmScanState::*doneGen)() const;
    bool (InputSmScanState::*doneGenIs)(uint64_t);
    const uint64_t& (InputSmScanState::*generation)() const;
    bool (InputSmScanState::*generationIs)(uint64_t);
    void (InputSmScanState::*generationInc)();
    const bool& (VeloDpAclStatusSm::*duplicateSeen)() const;
    bool (VeloDpAclStatusSm::*duplicateSeenIs)(bool);
  };

  explicit CounterPoll(Row theRow) : row(theRow) {}

  const Row row;
  MachineTask task;
  /// Where an interrupted pass goes on.
  std::optional<Velo::Counter::VeloDpAclCounterKey> bookmark;
};

}  // namespace Velo::VeloAcl
