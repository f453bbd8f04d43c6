#pragma once

#include <Kiv/OwnedTask.h>
#include <agent/change/ConfigFiles.h>
#include <agent/change/Confirmation.h>
#include <agent/change/CurrentConfig.h>
#include <agent/change/FileChanges.h>
#include <agent/change/FleetChanges.h>
#include <agent/change/Restart.h>
#include <agent/change/TypedChanges.h>
#include <agent/forward/Forwarder.h>

#include <functional>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace Agent {

/// The configuration that is in force, and its changes while the agent runs.
///
/// A change is prepared on a thread of its own: texts are read and compared with the configuration in force,
/// while packets flow under it. Then the change is carried out (see Commit). There is one change at a time. A
/// text with a mistake changes nothing.
///
/// Every change is remembered (see History). One of the command line's source may have to be confirmed (see
/// Confirmation). Until it is confirmed or taken back, only changes that are to be confirmed themselves, or
/// that take back, are carried out, and a file of the directory must be no opening in what would come back,
/// either.
///
/// Owner: the control plane. The core, the forwarder, the loop, the journal and the partners outlive it.
class Configuration {
 public:
  using Request = TypedChanges::Request;
  using Outcome = TypedChanges::Outcome;
  using Done = TypedChanges::Done;

  struct Options {
    std::string dir;      ///< watched; empty: none
    TextLimits limits{};  ///< of its files, and of those of a request
    Leave leave{};        ///< for files of the directory
    /// The ports that the agent has; nothing: every interface may be one.
    std::optional<PortNames> ports{};
    Warnings warnings{};               ///< of the texts that the core was given
    SharedFilteredPorts filtered{};    ///< by these texts
    std::function<void()> applied{};   ///< called after every change; may be empty
    TellLog tell{};                    ///< of every change and what kept one from being carried out
    std::vector<std::string> paths{};  ///< of the command line's texts
    Past past{};
    ChangeJournal* journal = nullptr;  ///< null: the past is forgotten with the process
    Partners* partners = nullptr;      ///< null: there are none
  };

  /// `files` are the texts that the core was given.
  Configuration(Core& core, Forwarder& forwarder, EventLoop& loop, ConfigFiles files, Options options);

  /// Replaces the command line's source. False when another change is being carried out. `done` is called
  /// from the loop later, unless this object is destroyed first.
  bool apply(Request request, Done done);
  /// The same as soon as no other change is being carried out.
  void applyLater(Request request, Done done);
  bool busy() const {
    return typed_.busy() || files_.busy() || fleet_.busy() || current_.commit.underWay() ||
           confirmation_.isBeingKept();
  }
  /// Confirms the change that waits for it. `done` is called when that is kept, with what is wrong if there
  /// is something. `who` asks, for the log.
  void confirm(const std::string& who, const Confirmation::Kept& done);
  /// Somebody has written the command line's source to a file, or could not.
  void savedIs(const std::string& who, const std::string& file, const std::string& wrong);
  /// What the fleet has by now, and who is told what becomes of that.
  void fleetIs(SharedFleetContent content) { fleet_.contentIs(std::move(content)); }
  void fleetToldIs(FleetChanges::Told told) { fleet_.toldIs(std::move(told)); }
  const FleetChanges& fleet() const { return fleet_; }
  /// See Restart::look().
  void lookAtFiles(std::function<void()> then);

  /// The sources that are in force.
  const Sources& sources() const { return current_.sources(); }
  /// See Commit.
  std::optional<double> appliedAt(const std::string& source) const {
    return current_.commit.appliedAt(source);
  }
  /// What the configuration in force is warned of.
  const Warnings& warnings() const { return current_.warnings; }
  const History& history() const { return current_.history; }
  /// What the command line's source says.
  const std::string& text() const { return typed_.text(); }
  const Confirmation& confirmation() const { return confirmation_; }
  const Restart& restart() const { return restart_; }
  /// While it looks, apply() works: that may lead to a change, but is not busy().
  const DirectoryFiles& directory() const { return files_.directory(); }

 private:
  void beginNext();

  Kiv::OwnedTask task_;  ///< begins the next change
  CurrentConfig current_;
  Confirmation confirmation_;
  Restart restart_;
  TypedChanges typed_;
  FileChanges files_;
  FleetChanges fleet_;
};

}  // namespace Agent
