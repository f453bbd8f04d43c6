#pragma once

#include <Kiv/OwnedTask.h>
#include <agent/change/ChangeEvents.h>
#include <agent/change/Commit.h>
#include <agent/change/ConfigFiles.h>
#include <agent/change/DirectoryFiles.h>
#include <agent/change/Warnings.h>
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
/// Owner: the control plane. The core, the forwarder and the loop outlive it.
class Configuration {
 public:
  /// New content for the command line's source.
  struct Request {
    std::vector<Config::Source> texts;
    std::vector<std::string> files{};  ///< read first, as further texts in front of the others
    bool dryRun = false;               ///< only find out what would change
    std::string who{};                 ///< for the log: who asked
    Leave leave{};
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
    Warnings warnings{};              ///< of the texts that the core was given
    std::function<void()> applied{};  ///< called after every change; may be empty
    TellLog tell{};                   ///< of every change and what kept one from being carried out
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
           !waiting_.empty();
  }
  /// Whether the directory is being looked at, or is about to be, which may lead to a change. That is not
  /// busy(): apply() works meanwhile.
  bool looking() const { return files_.looking(); }

  /// The sources with their sizes and times, and the files that are bad: for the status.
  nlohmann::ordered_json report() const;
  /// What the configuration in force is warned of.
  const Warnings& warnings() const { return warnings_; }
  /// The sources that are in force.
  const Sources& sources() const { return commit_.sources(); }

 private:
  struct Texts;
  struct Next;

  void begin(Request request, Done done);
  void handlePrepared(const std::shared_ptr<Texts>& texts);
  void answer(Texts& texts);

  void handleFound(DirectoryFiles::Found found);
  void commitNext();
  void handleNext(Next& next, std::optional<std::string> failed);
  void takeNext(Next& next);
  void postpone(Next& next, std::string why);
  void refusePostponed();
  const PortNames* ports() const { return ports_ ? &*ports_ : nullptr; }

  const Leave leave_;
  const TextLimits limits_;
  const std::optional<PortNames> ports_;
  Warnings warnings_;
  const TellLog tell_;
  std::deque<std::pair<Request, Done>> waiting_;
  std::vector<NewContent> changes_;  // of files, to be carried out one after the other
  /// Changes that would be an opening, with the reason: another file of the same look may close it.
  std::vector<std::pair<NewContent, std::string>> postponed_;
  bool changedSincePostponed_ = false;
  Kiv::OwnedTask task_;
  Commit commit_;
  Background background_;
  DirectoryFiles files_;
};

}  // namespace Agent
