#pragma once

#include <agent/change/ChangeEvents.h>
#include <agent/change/DirectoryScan.h>
#include <agent/change/DirectoryWatch.h>
#include <agent/core/Background.h>

#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <vector>

namespace Agent {

/// The files of the configuration directory while the agent runs: finds out which of them have to be read,
/// what is new in them, and which of them are bad. They are read on a thread, one look at a time. A look
/// comes a moment after files were written, and once a second, because the watch does not see everything (a
/// link may lead anywhere). It reads the files that differ from what was seen before. A file that cannot be
/// read is bad, and is tried again at the next look.
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

  /// `seen`: the content of the files that are in force. `changed` is called with the result of each look,
  /// and `mayLook` is asked before a look begins. `dir` empty: there are no files.
  DirectoryFiles(EventLoop& loop, std::string dir, TextLimits limits, std::map<std::string, FileContent> seen,
                 MayLook mayLook, Changed changed, TellLog tell = {});

  /// Begins a look if one is due and none is going on.
  void look();
  /// True while a look is due or going on.
  bool looking() const { return lookIsDue_ || background_.busy(); }

  /// The content of a file is in force now. `changes`: it was not before, and the log is told of that.
  void taken(const std::string& name, bool changes);
  /// The content of a file cannot be in force together with the others; or (`goes`) the file has gone, and
  /// its content cannot go while the others are as they are. It may be possible when those change: then call
  /// conflictsAreDue(), and it is tried again. `summary`: what it would change.
  void conflictIs(const std::string& name, const std::string& why, bool goes, const std::string& summary);
  /// Whether the content of a file that has gone is kept because of a conflict.
  bool isRefusedToGo(const std::string& name) const {
    const auto known = conflicts_.find(name);
    return known != conflicts_.end() && known->second;
  }
  void conflictsAreDue();
  /// There was no memory for the content of a file. It is tried again some looks later.
  void failed(const std::string& name, std::string why);

  const std::string& dir() const { return dir_; }
  /// What a bad file is, for a sentence: "has mistakes".
  std::string_view kindOf(const std::string& name) const;
  /// What is wrong with each bad file.
  const std::map<std::string, std::vector<std::string>>& bad() const { return bad_; }
  /// What is wrong with the directory itself.
  const std::vector<std::string>& unreadable() const { return unreadable_; }

 private:
  void handleTold(const std::set<std::string>& names, bool all);
  void handleScanned(DirectoryScan& scan, const std::optional<std::string>& failed);
  void take(const std::string& name, DirectoryScan::File& file, Found& found);
  /// Keeps what is wrong with a file. False when the log knows it.
  bool badIs(const std::string& name, std::vector<std::string> wrong, bool goes = false);
  void forgetGone(const std::set<std::string>& there);
  void memoryIsShortFor(const std::string& name);

  const std::string dir_;
  const TextLimits limits_;
  const MayLook mayLook_;
  const Changed changed_;
  const TellLog tell_;

  // For the next look.
  bool lookIsDue_ = false;
  bool all_ = false;
  std::set<std::string> due_;
  std::set<std::string> forgotten_;  // to be removed from seen_ before the next look

  // Contents that were read; empty while a look is going on, which has them.
  std::map<std::string, FileContent> seen_;
  std::vector<std::string> unreadable_;
  std::map<std::string, std::vector<std::string>> bad_;
  /// What the log was told last of a file that is bad, or is being tried.
  struct Told {
    std::vector<std::string> wrong{};
    bool goes = false;
    bool isBad = false;
    uint64_t hash = 0;  // of the file's content; 0: it could not be had
  };
  std::map<std::string, Told> told_;
  std::map<std::string, bool> conflicts_;  // bad files that have no mistake, but conflict with others; goes
  std::set<std::string> shortOfMemory_;    // bad files for which there was no memory
  int looksUntilMemory_ = 0;               // how many looks until these are tried again

  Background background_;
  std::unique_ptr<DirectoryWatch> watch_;
};

}  // namespace Agent
