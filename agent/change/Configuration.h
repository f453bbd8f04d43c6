#pragma once

#include <agent/change/Commit.h>
#include <agent/change/ConfigFiles.h>
#include <agent/change/DirectoryFiles.h>
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
  /// What became of new texts for the command line's source.
  struct Outcome {
    /// The first hundred, each with FILE:LINE:COLUMN, or why the texts as a whole cannot be in force.
    std::vector<std::string> mistakes;
    /// The document of difference(), as pieces of one line; empty when there are mistakes.
    std::deque<std::string> difference;
    bool applied = false;
    double prepareSeconds = 0;
    double commitSeconds = 0;  ///< how long packets waited at most
  };
  using Done = std::function<void(Outcome outcome)>;

  /// `files` are the texts that the core was given. `dir` is the directory that is watched, or empty, and
  /// `limits` are those of its files. `applied` is called after every change, and may be empty.
  Configuration(Core& core, Forwarder& forwarder, EventLoop& loop, ConfigFiles files, std::string dir,
                TextLimits limits, std::function<void()> applied);
  ~Configuration();

  /// Replaces the command line's source by these texts; with `dryRun` it only finds out what would change.
  /// False when another change is being carried out. `done` is called from the loop later, unless this object
  /// is destroyed first.
  bool apply(std::vector<Config::Source> texts, bool dryRun, Done done);
  bool busy() const { return background_.busy() || commit_.underWay() || !changes_.empty(); }
  /// Whether the directory is being looked at, or is about to be, which may lead to a change. That is not
  /// busy(): apply() works meanwhile.
  bool looking() const { return files_.looking(); }

  /// The sources with their sizes and times, and the files that are bad: for the status.
  nlohmann::ordered_json report() const;
  /// The sources that are in force.
  const Sources& sources() const { return commit_.sources(); }

 private:
  struct Texts;
  struct Next;

  void handlePrepared(const std::shared_ptr<Texts>& texts);
  void answer(Texts& texts);

  void handleFound(DirectoryFiles::Found found);
  void commitNext();
  void handleNext(Next& next, std::optional<std::string> failed);

  std::vector<NewContent> changes_;  // of files, to be carried out one after the other
  const Kelp::Ptr<Kiv::TimerTask> task_;
  Commit commit_;
  Background background_;
  DirectoryFiles files_;
};

}  // namespace Agent
