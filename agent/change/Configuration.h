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
/// A change is prepared on a thread of its own (texts are read and compared with what is in force) while the
/// old configuration holds and packets flow; then it is carried out (see Commit). There is one change at a
/// time. A text with a mistake changes nothing: of a file of the directory the last good content stays in
/// force, and report() tells.
///
/// Owner: the control plane. The core, the forwarder and the loop outlive it.
class Configuration {
 public:
  /// What became of new texts for the command line's input.
  struct Outcome {
    std::vector<std::string> mistakes;  ///< FILE:LINE:COLUMN, or why the whole cannot be; the first hundred
    /// The document of Difference.h, as pieces of one line; empty with mistakes.
    std::deque<std::string> difference;
    bool applied = false;
    double prepareSeconds = 0;
    double commitSeconds = 0;  ///< how long packets waited at most
  };
  using Done = std::function<void(Outcome outcome)>;

  /// Begins with what the core was given, `dir` empty: no directory; `limits` are those of its files.
  /// `applied` is called behind every commit, and may be empty.
  Configuration(Core& core, Forwarder& forwarder, EventLoop& loop, ConfigFiles files, std::string dir,
                TextLimits limits, std::function<void()> applied);
  ~Configuration();

  /// Replaces the command line's input by these texts; with `dryRun` only says what would change. False when
  /// another change is under way. `done` is called from the loop, later, unless this object goes first.
  bool apply(std::vector<Config::Source> texts, bool dryRun, Done done);
  bool busy() const { return background_.busy() || commit_.underWay() || !changes_.empty(); }
  /// Whether it may still become busy by what is known of the directory: a look is no change, and an apply
  /// may come meanwhile.
  bool looking() const { return files_.looking(); }

  /// The sources with their sizes and times, and the files that are bad: for the status.
  nlohmann::ordered_json report() const;
  /// What the sources in force say.
  const Sources& sources() const { return commit_.sources(); }

 private:
  struct Texts;
  struct Next;

  void handlePrepared(const std::shared_ptr<Texts>& texts);
  void answer(Texts& texts);

  void handleFound(DirectoryFiles::Found found);
  void commitNext();
  void handleNext(Next& next, std::optional<std::string> failed);

  std::vector<NewContent> changes_;  // of files, to be committed one a turn
  const Kelp::Ptr<Kiv::TimerTask> task_;
  Commit commit_;
  Background background_;
  DirectoryFiles files_;
};

}  // namespace Agent
