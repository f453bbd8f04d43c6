#pragma once

#include <Kiv/OwnedTask.h>
#include <agent/change/Changeover.h>
#include <agent/change/Discard.h>
#include <agent/change/Partners.h>
#include <agent/change/SourceChange.h>
#include <agent/change/Sources.h>
#include <agent/core/Reserve.h>
#include <agent/forward/Forwarder.h>

#include <functional>
#include <map>
#include <optional>
#include <string>

namespace Agent {

/// Holds the sources that are in force while the agent runs, and changes them, one change at a time. The work
/// is spread over turns of the loop, with one switch in the middle (see Changeover). The model of a source is
/// replaced in that switch.
///
/// Part of Configuration. The core and the forwarder outlive it.
class Commit {
 public:
  /// How a change that has begun ends.
  struct End {
    double longestTurn = 0;                ///< for how many seconds packets waited at most
    std::optional<std::string> refused{};  ///< why a partner cannot carry it out; then nobody has
  };
  using Done = std::function<void(const End& end)>;

  /// `sources` are those that the core has. `applied` is called after every change, and may be empty. Memory
  /// for changes is held back in `reserve`. The partners may be null, and outlive this object.
  Commit(Core& core, Forwarder& forwarder, Reserve& reserve, Sources sources, std::function<void()> applied,
         Partners* partners = nullptr);
  ~Commit();
  Commit(const Commit&) = delete;
  Commit& operator=(const Commit&) = delete;

  const Sources& sources() const { return sources_; }
  /// When a source last changed, in seconds since the epoch; nothing when there is no such source.
  std::optional<double> appliedAt(const std::string& source) const;
  /// Whether a change is being carried out.
  bool underWay() const { return pending_.has_value(); }

  /// Why a change is not carried out.
  struct Refusal {
    std::string why;
    bool memory;  ///< only because there is no memory for it at the moment
  };
  /// Begins a change, and holds back the memory that it will need. `writes` is what has to be written for it.
  /// When it is refused, everything is as it was, and `done` is not called. Otherwise `done` is called from
  /// within, or later. Not while another change is being carried out.
  std::optional<Refusal> begin(NewContent change, SourceChange writes, Done done);
  /// The same in two steps, for one who is a partner himself: only what has got ready is carried out, or
  /// dropped.
  std::optional<Refusal> getReady(NewContent change, SourceChange writes);
  void carryOut(Done done);
  void drop();
  /// Why a change cannot be carried out; nothing if it can.
  std::optional<std::string> whyNot(NewContent& change);
  /// The content of a source stays, but stands elsewhere in its text.
  void noticesAre(const std::string& source, Config::Notices notices);
  /// Frees a model, a slice a turn.
  void discard(std::optional<Config::Model> model);

 private:
  /// A change that is being carried out.
  struct Pending {
    NewContent change;    ///< has the old content from the switch on
    SourceChange writes;  ///< until it is carried out
    Done done{};
    double longestTurn = 0;
    bool partnersOwe = false;  ///< not all of them have it in force
  };

  void handlePartners(const std::optional<std::string>& wrong);
  void carryOn();
  /// Ends the change if it is in force with everybody.
  void finish();
  void handleSwitch();
  /// Exchanges the content of the source and that of the change.
  void exchange(NewContent& change);

  Core& core_;
  Forwarder& forwarder_;
  const std::function<void()> applied_;
  Partners* const partners_;
  Sources sources_;
  std::map<std::string, double> appliedAt_;
  Kiv::OwnedTask task_;
  Reserve& reserve_;
  Kiv::OwnedTask settled_;  ///< runs when everything is done that followed from a change
  Discard discard_;
  Changeover changeover_;
  std::optional<Pending> pending_;
};

}  // namespace Agent
