#pragma once

#include <VeloAcl/VeloDpAclStatusSm/Frame.h>
#include <VeloAcl/VeloDpAclStatusSm/RunEnd.h>
#include <VeloAcl/VeloDpAclStatusSm/ScanTables.h>
#include <VeloAcl/VeloDpAclStatusSm/StatusTrace.h>
#include <fmt/format.h>

#include <functional>
#include <vector>

namespace Velo::VeloAcl {

/// A row of the machine's table of outputs: what an output waits for and what it traces.
struct OutputSpec {
  int line;                           ///< of the row: what all outputs trace in one place has it
  const char* handlerText = nullptr;  ///< what its handler traces first, if anything
  const char* completeText;
  fmt::format_string<bool> reconcilingText = "";  ///< of a reconciled one
  const char* taskName = nullptr;                 ///< of a reconciled one
  const bool& (OutputState::*ready)() const;
  bool (OutputState::*readyIs)(bool);
  std::vector<const StreamScan*> scans;  ///< those that feed it
  bool afterRuleIds = false;             ///< the rule-id index must be ready
  bool afterPolls = false;               ///< every poll must have completed the pass that was asked for last
                                         ///< (not in a machine without tasks)
};

/// A part of the status that streams write, and whether it has everything that the inputs say. Once an output
/// is ready it stays so.
class Output {
 public:
  Output(MachineFrame& machine, OutputSpec spec) : machine_(machine), spec_(std::move(spec)) {}
  virtual ~Output() = default;
  Output(const Output&) = delete;
  Output& operator=(const Output&) = delete;

  bool ready() const { return ((*machine_.outputState()).*spec_.ready)(); }
  bool afterPolls() const { return spec_.afterPolls; }
  /// Whether the output waits for this field of the scan state.
  bool waitsForScan(const Zeb::Attribute& field) const;
  /// Sets a function that is called as soon as the output is ready.
  void whenReady(std::function<void()> run) { whenReady_ = std::move(run); }

  /// To be called when something that the output waits for has changed. Makes the output ready when that was
  /// the last thing, or ends the first pass when only that is missing.
  void handleInputReady();

  // Make and delete the output's task, if it has one.
  virtual void taskIs(const MachineFrame::Scheduler&, int /*priority*/) {}
  virtual void taskDel() {}

 protected:
  /// Deletes everything that the inputs did not produce.
  virtual RunEnd reconcile() { return RunEnd::complete; }

  template <class... Args>
  void trace(fmt::format_string<Args...> text, Args&&... args) const {
    traceStatusAt(spec_.line, 9, text, std::forward<Args>(args)...);
  }

  MachineFrame& machine_;
  const OutputSpec spec_;

 private:
  bool scansAreDone() const;
  bool inputsAreComplete() const;

  std::function<void()> whenReady_;
};

}  // namespace Velo::VeloAcl
