#pragma once

#include <agent/change/Confirmation.h>
#include <agent/change/CurrentConfig.h>
#include <agent/change/DirectoryFiles.h>
#include <agent/change/InputChange.h>
#include <agent/core/Background.h>

#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace Agent {

/// The changes that files of the configuration directory make. The last good content of a file stays in
/// force, and directory() names the bad ones. While a change waits to be confirmed, no file may be an opening
/// in what would come back, either.
///
/// Part of Configuration, which says when a change may begin. What it is made with outlives it.
class FileChanges {
 public:
  struct Options {
    std::string dir;  ///< empty: there are no files
    TextLimits limits{};
    Leave leave{};
  };
  /// `seen`: the content of the files that are in force. `mayLook` says whether no change is under way, and
  /// `next` is called when the next one may begin; it must not begin from within.
  FileChanges(EventLoop& loop, CurrentConfig& current, const Confirmation& confirmation, Options options,
              std::map<std::string, FileContent> seen, DirectoryFiles::MayLook mayLook,
              std::function<void()> next);

  const DirectoryFiles& directory() const { return files_; }
  /// Whether there are changes to be carried out, or one is being prepared.
  bool busy() const { return background_.busy() || !changes_.empty() || !postponed_.empty(); }
  /// Whether one is being prepared.
  bool preparing() const { return background_.busy(); }
  /// Begins the next change. False when there is none.
  bool begin();
  /// Begins a look at the directory if one is due.
  void look() { files_.look(); }
  /// Something else has changed: files that could not be in force may be possible now.
  void conflictsAreDue() { files_.conflictsAreDue(); }

 private:
  void handleFound(DirectoryFiles::Found found);
  void handlePrepared(const std::shared_ptr<InputChange>& next, std::optional<std::string> failed);
  void take(const std::shared_ptr<InputChange>& next);
  void handleTaken(const std::string& name, InputChange& next);
  void postpone(InputChange& next);
  void refusePostponed();
  /// A sentence about a file.
  std::string ofFile(const std::string& name, const std::string& why) const;

  CurrentConfig& current_;
  const Confirmation& confirmation_;
  const Leave leave_;
  const std::function<void()> next_;
  std::vector<NewContent> changes_;  // to be carried out one after the other
  struct Postponed {
    NewContent change;
    std::string why, summary;
  };
  /// Changes that would be an opening: another file of the same look may close it.
  std::vector<Postponed> postponed_;
  bool changedSincePostponed_ = false;
  DirectoryFiles files_;
  Background background_;
};

}  // namespace Agent
