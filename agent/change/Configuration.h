#pragma once

#include <Kiv/OwnedTask.h>
#include <agent/change/ConfigFiles.h>
#include <agent/change/Confirmation.h>
#include <agent/change/CurrentConfig.h>
#include <agent/change/FileChanges.h>
#include <agent/change/FleetChanges.h>
#include <agent/change/Restart.h>
#include <agent/core/Background.h>
#include <agent/forward/Forwarder.h>

#include <deque>
#include <functional>
#include <memory>
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
  /// A change of the command line's source that somebody asks for: new texts, or what `make` makes.
  struct Request {
    std::vector<Config::Source> texts{};
    std::vector<std::string> files{};  ///< read first, as further texts in front of the others
    bool dryRun = false;               ///< only find out what would change
    std::string who{};                 ///< for log and history: who asked
    Leave leave{};
    std::string what = "apply";                               ///< for the history, see Change
    std::function<MadeModel(const Sources& inForce)> make{};  ///< called once, on the thread
    std::optional<double> confirm{};  ///< seconds after which it is taken back if nobody confirms it
    bool takesBack = false;           ///< carried out even while another one waits to be confirmed
  };
  /// What became of it.
  struct Outcome {
    /// The first hundred, each with FILE:LINE:COLUMN, or why the texts as a whole cannot be in force.
    std::vector<std::string> mistakes;
    /// Of the configuration after the change.
    Warnings warnings;
    /// Why warnings keep it from being carried out.
    std::optional<std::string> refused;
    std::string summary;  ///< what it comes to, in a few words
    /// The document of difference(), as pieces of one line; empty when there are mistakes.
    std::deque<std::string> difference;
    bool applied = false;
    double prepareSeconds = 0;
    double commitSeconds = 0;  ///< how long packets waited at most
  };
  using Done = std::function<void(Outcome outcome)>;

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
    return background_.busy() || current_.commit.underWay() || files_.busy() || !waiting_.empty() ||
           fleet_.busy() || confirmation_.isBeingKept();
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
  const std::string& text() const { return *text_; }
  const Confirmation& confirmation() const { return confirmation_; }
  const Restart& restart() const { return restart_; }
  /// While it looks, apply() works: that may lead to a change, but is not busy().
  const DirectoryFiles& directory() const { return files_.directory(); }

 private:
  struct Texts;

  void prepare(Request request, Done done);
  void handlePrepared(const std::shared_ptr<Texts>& texts);
  std::optional<std::string> whyNot(const Texts& texts);
  void fail(Texts& texts, const std::string& why);
  void begin(const std::shared_ptr<Texts>& texts);
  void handleRefused(Texts& texts, const std::string& why);
  void handleApplied(Texts& texts);
  void answer(Texts& texts);
  void beginNext();
  bool takeBack(const SharedText& before);

  const TextLimits limits_;
  std::deque<std::pair<Request, Done>> waiting_;
  Kiv::OwnedTask task_;  ///< begins the next change
  CurrentConfig current_;
  SharedText text_;
  Confirmation confirmation_;
  Restart restart_;
  Background background_;
  FileChanges files_;
  FleetChanges fleet_;
};

}  // namespace Agent
