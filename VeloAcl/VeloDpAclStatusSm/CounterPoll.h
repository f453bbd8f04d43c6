#pragma once

#include <Kiv/OwnedTask.h>
#include <VeloAcl/VeloDpAclStatusSm/RunEnd.h>
#include <VeloAcl/VeloDpAclStatusSm/ScanTables.h>
#include <VeloAcl/VeloDpAclStatusSm/Streams.h>

#include <optional>

namespace Velo::VeloAcl {

class MachinePolls;

/// A row of the machine's table of polls: what a poll copies, what it traces, and where its state is.
struct PollSpec {
  int line;  ///< of the row: what all polls trace in one place has it
  const char* inputReadyText;
  const char* inputsText;
  const char* firedText;
  fmt::format_string<size_t> flatteningText;
  fmt::format_string<const Velo::Counter::VeloDpAclCounterKey&, size_t> resumingText;
  const char* taskName;
  const Arguments::Counters& (MachineFrame::*input)() const;
  const PollScan* scan;  ///< its fields of the scan state
  // Its field of the machine: somebody wants the pass to end, and the next one to begin at once.
  const bool& (MachinePolls::*duplicateSeen)() const;
  bool (MachinePolls::*duplicateSeenIs)(bool);
};

/// Copies a collection of counters into the status, again a second after each copy.
class CounterPoll {
 public:
  CounterPoll(MachinePolls& machine, const PollSpec& spec) : machine_(machine), spec_(spec) {}
  CounterPoll(const CounterPoll&) = delete;
  CounterPoll& operator=(const CounterPoll&) = delete;

  /// To be called when something that the poll waits for has changed: schedules its task.
  void handleInputReady();
  /// The work of its task: makes a pass, and schedules the next one. A machine without tasks calls it once.
  void run();
  /// Copies the counters, from where the last pass has yielded. `generation` is the number of the pass that
  /// was asked for; every pass copies what is there.
  RunEnd pass(uint64_t generation);

  /// Asks for one more pass.
  void ask();
  /// Asks for a pass that begins from now on, as soon as possible: at once, instead of a second later; or
  /// right behind the pass that is going on, which has seen only a part of what has changed.
  void askAnew();
  /// Whether a pass was asked for, and the last one that was is completed.
  bool complete() const { return spec_.scan->complete(state()); }

  /// Whether a pass of this poll has ended, when this field of the scan state has changed.
  bool endsWith(const Zeb::Attribute& field) const { return &spec_.scan->doneAttribute() == &field; }
  void taskIs(const MachineFrame::Scheduler& scheduler, int priority, const char* name);
  void taskIs(const MachineFrame::Scheduler& scheduler, int priority) {
    taskIs(scheduler, priority, spec_.taskName);
  }
  void taskDel() { task_.del(); }

 private:
  bool restartIsWanted();
  const InputSmScanState& state() const;
  uint64_t asked() const { return (state().*spec_.scan->asked)(); }
  void askedIs(uint64_t pass);
  void doneIs(uint64_t pass);
  void idleIs(bool idle);

  MachinePolls& machine_;
  const PollSpec spec_;
  Kiv::OwnedTask task_;
  std::optional<Velo::Counter::VeloDpAclCounterKey> bookmark_;  ///< where a pass that has yielded continues
  bool askedAnew_ = false;  ///< another pass is wanted behind the one that is going on
};

}  // namespace Velo::VeloAcl
