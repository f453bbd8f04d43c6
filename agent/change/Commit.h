#pragma once

#include <agent/change/Changeover.h>
#include <agent/change/Discard.h>
#include <agent/change/SourceChange.h>
#include <agent/change/Sources.h>
#include <agent/core/Reserve.h>
#include <agent/forward/Forwarder.h>

#include <functional>
#include <map>
#include <optional>
#include <string>

namespace Agent {

/// The sources in force while the agent runs, and the one way by which what they say comes to be otherwise:
/// one change at a time, a slice a turn around one switch (see Changeover). The models are those in force: a
/// source says something else from the switch on.
///
/// Part of Configuration. The core and the forwarder outlive it.
class Commit {
 public:
  /// Told for how long packets waited at most, in seconds.
  using Done = std::function<void(double longestTurn)>;

  /// Begins with what the core was given. `applied` is called behind every change, and may be empty; memory
  /// for changes is held back in `reserve`.
  Commit(Core& core, Forwarder& forwarder, Reserve& reserve, Sources sources, std::function<void()> applied);
  ~Commit();
  Commit(const Commit&) = delete;
  Commit& operator=(const Commit&) = delete;

  const Sources& sources() const { return sources_; }
  /// Seconds since the epoch at which a source came to say what it says; nothing when it does not exist.
  std::optional<double> appliedAt(const std::string& source) const;
  bool underWay() const { return pending_.has_value(); }

  /// Holds the memory back that carrying a change out will need; why that cannot be.
  std::optional<std::string> reserveFor(const SourceChange& writes);
  /// Begins to carry a change out, whose memory has been reserved; `writes` is what it comes to. Returns why
  /// that cannot be; then everything is as it was, and `done` is not called. Otherwise it is called from
  /// within, or later. Not while one is under way.
  std::optional<std::string> begin(NewContent change, SourceChange writes, Done done);
  /// Why a change could not be carried out, if so.
  std::optional<std::string> whyNot(NewContent& change);
  /// Frees a model that nobody wants, a slice a turn.
  void discard(std::optional<Config::Model> model);

 private:
  /// A change that is being carried out.
  struct Pending {
    NewContent change;  ///< from the switch on with the old content
    Done done;
    double longestTurn;
  };

  void carryOn();
  void handleSwitch();
  /// Puts a content in the place of the source's, and that one into the change.
  void exchange(NewContent& change);

  Core& core_;
  Forwarder& forwarder_;
  const std::function<void()> applied_;
  Sources sources_;
  std::map<std::string, double> appliedAt_;
  const Kelp::Ptr<Kiv::TimerTask> task_;
  Reserve& reserve_;
  const Kelp::Ptr<Kiv::TimerTask> settled_;  ///< runs when all has been done that follows from a change
  Discard discard_;
  Changeover changeover_;
  std::optional<Pending> pending_;
};

}  // namespace Agent
