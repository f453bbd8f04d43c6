#pragma once

#include <Kiv/Clock.h>
#include <Kiv/OwnedTask.h>
#include <agent/change/History.h>

#include <functional>
#include <optional>
#include <string>
#include <vector>

namespace Agent {

/// The change of the command line's source that has to be confirmed. Such a change begins when the journal
/// has kept what was before. That comes into force again when nobody confirms in time, and at a start when
/// the agent ends before. Another change that is to be confirmed may take its place; what was before both of
/// them is what comes back then.
///
/// Part of Configuration. The history and the clock outlive it.
class Confirmation {
 public:
  /// `wrong`: why the journal has not kept it.
  using Kept = std::function<void(const std::optional<std::string>& wrong)>;
  /// Begins the change back to `before`. False: it cannot begin at the moment, and is to be asked for again.
  using TakeBack = std::function<bool(const SharedText& before)>;

  Confirmation(History& history, const Kiv::Clock& clock, TakeBack takeBack);

  /// Whether a change is in force that has to be confirmed.
  bool waits() const { return deadlineAt_.has_value(); }
  /// When it will be taken back, in seconds from now; nothing if none waits.
  std::optional<double> within() const;
  /// What the command line's source will say again if nobody confirms; null if no change waits.
  SharedText before() const { return waits() ? history_.unconfirmed()->before : nullptr; }
  /// Why that could not come back when it was time; empty if it could, or it was not time yet.
  const std::string& whyNotReturned() const { return notReturned_; }

  /// Before a change to the text `now` begins: has the journal keep what the source says, which is `text`
  /// unless another change waits, and then calls `then`, from within or later. If that is told of something
  /// wrong, the change does not begin.
  void keep(SharedText now, const SharedText& text, Kept then);
  /// Whether the journal is being waited for with that.
  bool isBeingKept() const { return then_ != nullptr; }
  /// After keep(): the change was not carried out.
  void isDropped();
  /// After keep(): the change is in force, and has to be confirmed within `seconds`.
  void isInForce(double seconds);

  /// Somebody confirms the change that waits. `done` is called when that is kept.
  void confirm(Kept done);
  /// Another change that need not be confirmed is in force. `returned`: it is the one back to what was
  /// before, and a start takes it back again if the files still say what nobody has confirmed.
  void isOver(bool returned);
  /// The change back to what was before could not be carried out. It is tried again.
  void notReturned(std::string why);

 private:
  double now() const { return clock_.now().seconds(); }
  void handleWait();
  void handleDeadline();

  History& history_;
  const Kiv::Clock& clock_;
  const TakeBack takeBack_;
  Kiv::OwnedTask wait_, deadline_;
  Kept then_;                           // of keep(), until the journal has kept it
  std::optional<Unconfirmed> earlier_;  // what was unconfirmed before keep()
  std::vector<Kept> confirming_;        // wait for the journal, too
  std::optional<double> deadlineAt_;    // by the clock
  std::string notReturned_;
};

}  // namespace Agent
