#pragma once

#include <VeloAcl/VeloDpAclStatusSm/MachineTask.h>
#include <VeloAcl/VeloDpAclStatusSm/ScanTables.h>
#include <VeloAcl/VeloDpAclStatusSm/Streams.h>

#include <optional>

namespace Velo::VeloAcl {

class MachinePolls;

/// A row of the machine's table of polls: what a poll copies, what it traces, and where its state is.
struct PollSpec {
  const char* inputReadyText;
  const char* inputsText;
  const char* firedText;
  fmt::format_string<size_t> flatteningText;
  fmt::format_string<const Velo::Counter::VeloDpAclCounterKey&, size_t> resumingText;
  const char* taskName;
  const Arguments::Counters& (MachineFrame::*input)() const;
  const PollState& state;
  const bool& (MachinePolls::*duplicateSeen)() const;
  bool (MachinePolls::*duplicateSeenIs)(bool);
};

/// Copies a collection of counters into the status, again and again: a second after it last came to the end.
class CounterPoll {
 public:
  CounterPoll(MachinePolls& machine, const PollSpec& spec) : machine_(machine), spec_(spec) {}
  CounterPoll(const CounterPoll&) = delete;
  CounterPoll& operator=(const CounterPoll&) = delete;

  /// To be called when something that the poll waits for has changed: has its task run.
  void handleInputReady();
  /// What its task does: a pass, and then it sees to the next. A machine without tasks calls it once.
  void run();
  /// Copies what is there, from where the last pass yielded; false when it yields, or the machine is stopped.
  /// The generation is the pass that was asked for; a pass copies whatever is there.
  bool pass(uint64_t generation);

  /// Has one more pass outstanding.
  void ask();
  /// Has a pass outstanding that is yet to begin, and runs as soon as it can: at once when the last one is
  /// through and the next a second away, behind the one under way when there is one, which has met only part
  /// of what has changed.
  void askAnew();

  /// The poll is the one whose pass is over when this field of the scan state changes.
  bool endsWith(const Zeb::Attribute& field) const { return &spec_.state.doneAttribute() == &field; }
  void taskIs(const MachineFrame::Scheduler& scheduler, int priority, const char* name);
  void taskIs(const MachineFrame::Scheduler& scheduler, int priority) {
    taskIs(scheduler, priority, spec_.taskName);
  }
  void taskDel() { task_.del(); }

 private:
  bool restartIsWanted();

  MachinePolls& machine_;
  const PollSpec spec_;
  MachineTask task_;
  std::optional<Velo::Counter::VeloDpAclCounterKey> bookmark_;  ///< where an interrupted pass goes on
  bool askedAnew_ = false;  ///< another pass is outstanding than the one that is under way
};

}  // namespace Velo::VeloAcl
