#include <agent/change/FileChanges.h>
#include <fmt/format.h>

#include <algorithm>
#include <iterator>
#include <utility>

namespace Agent {

FileChanges::FileChanges(EventLoop& loop, CurrentConfig& current, const Confirmation& confirmation,
                         Options options, std::map<std::string, FileContent> seen,
                         DirectoryFiles::MayLook mayLook, std::function<void()> next)
    : current_(current),
      confirmation_(confirmation),
      leave_(options.leave),
      next_(std::move(next)),
      files_(
          loop, std::move(options.dir), options.limits, std::move(seen), std::move(mayLook),
          [this](DirectoryFiles::Found found) { handleFound(std::move(found)); }, current.tell),
      background_(loop) {}

void FileChanges::handleFound(DirectoryFiles::Found found) {
  std::move(found.changes.begin(), found.changes.end(), std::back_inserter(changes_));
  for (const auto& [name, model] : current_.sources().inputs) {
    if (name == fleetName) continue;
    if (!found.there.contains(name) && !files_.isRefusedToGo(name)) changes_.push_back({name, std::nullopt});
  }
  next_();
}

/// The difference that a file makes depends on the files before it, so it is found out when those are in
/// force.
bool FileChanges::begin() {
  if (changes_.empty()) refusePostponed();
  if (changes_.empty()) return false;
  const auto next = std::make_shared<InputChange>();
  next->content = std::move(changes_.front());
  next->before = confirmation_.before();
  changes_.erase(changes_.begin());
  const InputChange::Asked asked{next->content.model ? "file" : "gone", "the directory", leave_};
  background_.run([this, next, asked] { next->prepare(current_, asked); },
                  [this, next](const std::optional<std::string>& failed) { handlePrepared(next, failed); });
  return true;
}

std::string FileChanges::ofFile(const std::string& name, const std::string& why) const {
  return fmt::format("{}/{}: {}", files_.dir(), name, why);
}

void FileChanges::handlePrepared(const std::shared_ptr<InputChange>& next,
                                 std::optional<std::string> failed) {
  const std::string name = next->content.source;
  next_();
  if (!failed && next->prepared.refused) return postpone(*next);
  if (!failed && !next->same) return take(next);
  if (!failed) next->isSame(current_);
  next->drop(current_);
  if (failed) return files_.failed(name, ofFile(name, *failed));
  files_.taken(name, false);
}

void FileChanges::take(const std::shared_ptr<InputChange>& next) {
  const bool goes = !next->content.model;
  next->carryOut(current_, [this, next, goes](const ContentChange::End& end) {
    const std::string& name = next->content.source;
    if (!end.refused) return handleTaken(name, *next);
    if (end.mayGoLater)
      files_.failed(name, ofFile(name, *end.refused));
    else
      files_.conflictIs(name, *end.refused, goes, summaryText(next->summary));
    next_();
  });
}

void FileChanges::handleTaken(const std::string& name, InputChange& next) {
  next.isInForce(current_, files_.dir() + "/" + name);
  changedSincePostponed_ = true;
  files_.taken(name, true);
  // Files that could not be in force together with the old content may be possible now.
  files_.conflictsAreDue();
  next_();
}

void FileChanges::postpone(InputChange& next) {
  // What is new since the last one may close this one.
  if (postponed_.empty()) changedSincePostponed_ = false;
  postponed_.push_back(
      {std::move(next.content), std::move(*next.prepared.refused), summaryText(next.summary)});
}

/// When no other change is left: tries the postponed ones again if something has changed since, and refuses
/// them otherwise.
void FileChanges::refusePostponed() {
  for (auto& [change, why, summary] : std::exchange(postponed_, {})) {
    if (changedSincePostponed_) {
      changes_.push_back(std::move(change));
      continue;
    }
    files_.conflictIs(change.source, why, !change.model, summary);
    current_.commit.discard(std::move(change.model));
  }
  changedSincePostponed_ = false;
}

}  // namespace Agent
