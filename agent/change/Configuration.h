#pragma once

#include <Kiv/OwnedTask.h>
#include <agent/change/ChangeEvents.h>
#include <agent/change/Commit.h>
#include <agent/change/ConfigFiles.h>
#include <agent/change/DirectoryFiles.h>
#include <agent/change/History.h>
#include <agent/change/PreparedChange.h>
#include <agent/change/Restart.h>
#include <agent/core/Background.h>
#include <agent/forward/Forwarder.h>
#include <nlohmann/json.hpp>

#include <deque>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace Agent {

/// The configuration that is in force, and its changes while the agent runs.
///
/// A change is prepared on a thread of its own: texts are read and compared with the configuration in force,
/// while packets flow under it. Then the change is carried out (see Commit). There is one change at a time. A
/// text with a mistake changes nothing; the last good content of a file in the directory stays in force, and
/// report() names the file.
///
/// Every change is remembered (see History). One of the command line's source may have to be confirmed: what
/// was before comes into force again when nobody does in time, and at a start when the agent ends before. So
/// such a change begins when the journal has kept what was before. Until it is confirmed or taken back, only
/// changes that are to be confirmed themselves, or that take back, are carried out, and a file of the
/// directory must be no opening in what would come back, either.
///
/// Owner: the control plane. The core, the forwarder, the loop and the journal outlive it.
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
  };

  /// `files` are the texts that the core was given.
  Configuration(Core& core, Forwarder& forwarder, EventLoop& loop, ConfigFiles files, Options options);

  /// Replaces the command line's source. False when another change is being carried out. `done` is called
  /// from the loop later, unless this object is destroyed first.
  bool apply(Request request, Done done);
  /// The same as soon as no other change is being carried out.
  void applyLater(Request request, Done done);
  bool busy() const {
    return background_.busy() || commit_.underWay() || !changes_.empty() || !postponed_.empty() ||
           !waiting_.empty() || unkept_ != nullptr;
  }
  using Confirmed = std::function<void(const std::optional<std::string>& wrong)>;
  /// Confirms the change that waits for it. `done` is called when that is kept, with what is wrong if there
  /// is something. `who` asks, for the log.
  void confirm(const std::string& who, const Confirmed& done);
  /// Somebody has written the command line's source to a file, or could not.
  void savedIs(const std::string& who, const std::string& file, const std::string& wrong);
  /// When the change that waits to be confirmed will be taken back, in seconds from now; nothing if none
  /// waits.
  std::optional<double> confirmWithin() const;

  /// Whether the directory is being looked at, or is about to be, which may lead to a change. That is not
  /// busy(): apply() works meanwhile.
  bool looking() const { return files_.looking(); }

  /// The sources with their sizes and times, and the files that are bad: for the status.
  nlohmann::ordered_json report() const;
  /// `files` of the command line; whether a restart would make the `same`, and `why` not; `save`: whether
  /// saving would help; `refused`: why an agent would not start, or null; `opens`: what a start would open;
  /// `looking`: for how many seconds the files are being looked at, if that is waited for no more. As the
  /// last look has found the files.
  nlohmann::ordered_json restartReport() const;
  /// What the configuration in force is warned of.
  const Warnings& warnings() const { return warnings_; }
  /// The sources that are in force.
  const Sources& sources() const { return commit_.sources(); }
  const History& history() const { return history_; }
  /// See Restart::look().
  void lookAtFiles(std::function<void()> then) {
    restart_.look({history_.unconfirmed(), history_.filtered(), history_.hasJournal()}, std::move(then));
  }
  /// The files of the command line.
  const std::vector<std::string>& paths() const { return restart_.files(); }

 private:
  struct Texts;
  struct Next;

  PreparedChange::Before before() const;
  void prepare(Request request, Done done);
  void handlePrepared(const std::shared_ptr<Texts>& texts);
  std::optional<std::string> whyNot(const Texts& texts);
  void begin(const std::shared_ptr<Texts>& texts);
  void handleApplied(Texts& texts);
  void answer(Texts& texts);
  void rememberStart();
  void rememberFiles();
  void rememberFile(const std::string& name, const std::optional<uint64_t>& before, const SharedText& text);
  void remember(Change change);

  // Of changes that are to be confirmed.
  void mustBeConfirmed(const std::shared_ptr<Texts>& texts);
  double now() const { return clock_.now().seconds(); }
  void handleWait();
  void handleDeadline();
  void handleReturned(const Outcome& outcome);

  void handleFound(DirectoryFiles::Found found);
  void commitNext();
  void handleNext(const std::shared_ptr<Next>& next, std::optional<std::string> failed);
  void takeNext(const std::shared_ptr<Next>& next);
  void postpone(Next& next);
  void refusePostponed();
  /// A sentence about a file of the directory.
  std::string ofFile(const std::string& name, const std::string& why) const;
  const PortNames* ports() const { return ports_ ? &*ports_ : nullptr; }

  const Leave leave_;
  const TextLimits limits_;
  const std::optional<PortNames> ports_;
  Warnings warnings_;
  SharedFilteredPorts filtered_;  // by what is in force
  const TellLog tell_;
  std::deque<std::pair<Request, Done>> waiting_;
  std::vector<NewContent> changes_;  // of files, to be carried out one after the other
  struct Postponed {
    NewContent change;
    std::string why, summary;
  };
  /// Changes that would be an opening: another file of the same look may close it.
  std::vector<Postponed> postponed_;
  bool changedSincePostponed_ = false;
  const Kiv::Clock& clock_;
  Kiv::OwnedTask task_;
  History history_;
  SharedText text_;  // of the command line's source
  Kiv::OwnedTask wait_, deadline_;
  std::shared_ptr<Texts> unkept_;      // waits for the journal to keep what was before
  std::vector<Confirmed> confirming_;  // the same
  std::optional<double> deadlineAt_;   // by the clock; a change waits to be confirmed until then
  std::string notReturned_;            // why what was before could not come back when it was time
  Commit commit_;
  Restart restart_;
  Background background_;
  DirectoryFiles files_;
};

}  // namespace Agent
