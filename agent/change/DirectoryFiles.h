#pragma once

#include <agent/change/DirectoryScan.h>
#include <agent/change/DirectoryWatch.h>
#include <agent/core/Background.h>

#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <vector>

namespace Agent {

/// The files of the configuration directory while the agent runs: which have to be read, what is new in them,
/// and which of them are bad. They are read on a thread, one look at a time. A look comes a moment after
/// files were written, and once a second, for the watch is not told of everything (a link may lead anywhere);
/// it reads what differs from what was seen. What cannot be read is tried again at the next look, and is bad
/// until then.
///
/// Owner: the configuration. The loop outlives it.
class DirectoryFiles {
 public:
  struct Found {
    std::set<std::string> there;
    std::vector<NewContent> changes;  ///< of files that are there
  };
  using Changed = std::function<void(Found found)>;
  using MayLook = std::function<bool()>;

  /// `seen`: what was in the files that are in force. `changed` is told what a look found, and `mayLook`
  /// asked before one begins. `dir` empty: there are no files.
  DirectoryFiles(EventLoop& loop, std::string dir, TextLimits limits, std::map<std::string, FileContent> seen,
                 MayLook mayLook, Changed changed);

  /// Begins a look if one is due and none is under way.
  void look();
  /// True while a look is due or under way.
  bool looking() const { return lookIsDue_ || background_.busy(); }

  /// A content is in force.
  void taken(const std::string& name) { bad_.erase(name), conflicts_.erase(name); }
  /// A content cannot be in force, and may when others are: those that could not be are tried again.
  void conflictIs(const std::string& name, std::string why);
  void conflictsAreDue();
  /// There was no memory to work on a content: like others of that kind it is tried again, some looks later.
  void failed(const std::string& name, std::string why);

  const std::string& dir() const { return dir_; }
  /// What is wrong, by file.
  const std::map<std::string, std::vector<std::string>>& bad() const { return bad_; }
  /// What is wrong with the directory itself.
  const std::vector<std::string>& unreadable() const { return unreadable_; }

 private:
  void handleTold(const std::set<std::string>& names, bool all);
  void handleScanned(DirectoryScan& scan, const std::optional<std::string>& failed);
  void take(const std::string& name, DirectoryScan::File& file, Found& found);
  void memoryIsShortFor(const std::string& name);

  const std::string dir_;
  const TextLimits limits_;
  const MayLook mayLook_;
  const Changed changed_;

  // For the next look.
  bool lookIsDue_ = false;
  bool all_ = false;
  std::set<std::string> due_;
  std::set<std::string> forgotten_;  // of seen_, which may be with the look that is under way

  std::map<std::string, FileContent> seen_;  // in force, on its way there, or bad; during a look it has them
  std::vector<std::string> unreadable_;
  std::map<std::string, std::vector<std::string>> bad_;
  std::set<std::string> conflicts_;      // of the bad: right, but not together with the others
  std::set<std::string> shortOfMemory_;  // of the bad
  int looksUntilMemory_ = 0;             // until those are tried again

  Background background_;
  std::unique_ptr<DirectoryWatch> watch_;
};

}  // namespace Agent
