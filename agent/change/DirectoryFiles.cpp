#include <Acl/Workshop.h>
#include <agent/change/DirectoryFiles.h>
#include <fmt/format.h>

#include <algorithm>
#include <utility>

namespace Agent {

namespace {

/// After how many looks a file is read again for which there was no memory: to read it is long work.
constexpr int looksBetweenTrials = 30;

}  // namespace

DirectoryFiles::DirectoryFiles(EventLoop& loop, std::string dir, TextLimits limits,
                               std::map<std::string, FileContent> seen, MayLook mayLook, Changed changed,
                               TellLog tell)
    : dir_(std::move(dir)),
      limits_(limits),
      mayLook_(std::move(mayLook)),
      changed_(std::move(changed)),
      tell_(std::move(tell)),
      seen_(std::move(seen)),
      background_(loop) {
  if (dir_.empty()) return;
  watch_ = std::make_unique<DirectoryWatch>(
      loop, dir_, [this](const std::set<std::string>& names, bool all) { handleTold(names, all); });
}

void DirectoryFiles::handleTold(const std::set<std::string>& names, bool all) {
  due_.insert(names.begin(), names.end());
  all_ = all_ || all;
  lookIsDue_ = true;
  look();
}

void DirectoryFiles::look() {
  if (!lookIsDue_ || background_.busy() || !mayLook_()) return;
  lookIsDue_ = false;
  if (!shortOfMemory_.empty() && --looksUntilMemory_ <= 0) {
    looksUntilMemory_ = looksBetweenTrials;
    forgotten_.insert(shortOfMemory_.begin(), shortOfMemory_.end());
  }
  for (const std::string& name : std::exchange(forgotten_, {})) seen_.erase(name);
  const auto job = std::make_shared<DirectoryScan>();
  job->dir = dir_;
  job->limits = limits_;
  job->time = fileTime();
  job->due = std::exchange(due_, {});
  job->all = std::exchange(all_, false);
  job->seen = std::exchange(seen_, {});
  background_.run([job] { job->run(); },
                  [this, job](const std::optional<std::string>& failed) { handleScanned(*job, failed); });
}

void DirectoryFiles::handleScanned(DirectoryScan& scan, const std::optional<std::string>& failed) {
  seen_ = std::move(scan.seen);
  if (failed) {
    scan.unreadable = {dir_ + ": " + *failed};
    // Freed beside the loop, because it may be much. Nothing in force shares any of it.
    Acl::Workshop::singleton().dispose(std::move(scan.found));
  }
  if (!scan.unreadable.empty() && scan.unreadable != unreadable_) tellBadFile(tell_, dir_, scan.unreadable);
  if (scan.unreadable.empty() && !unreadable_.empty()) tellGoodFile(tell_, dir_);
  unreadable_ = std::move(scan.unreadable);
  if (!unreadable_.empty()) {
    due_.merge(scan.due);
    all_ = all_ || scan.all;
    return;
  }
  forgetGone(scan.there);
  Found found;
  for (auto& [name, file] : scan.found) take(name, file, found);
  found.there = std::move(scan.there);
  changed_(std::move(found));
}

void DirectoryFiles::forgetGone(const std::set<std::string>& there) {
  const auto isGone = [&there](const std::string& name) { return !there.contains(name); };
  const auto isForgotten = [&](const auto& file) { return isGone(file.first) && !isRefusedToGo(file.first); };
  std::erase_if(bad_, isForgotten);
  std::erase_if(conflicts_, isForgotten);
  // One that was refused to go is tried again: if that comes to the same, the log knows it.
  std::erase_if(told_, [&](const auto& file) { return isGone(file.first) && !file.second.goes; });
  std::erase_if(shortOfMemory_, isGone);
}

void DirectoryFiles::take(const std::string& name, DirectoryScan::File& file, Found& found) {
  if (file.content) {
    seen_[name] = *file.content;
    if (Told& told = told_[name]; told.hash != file.content->hash)
      told = {.isBad = told.isBad, .hash = file.content->hash};
    // Read again without a new content: it stays bad.
    if (!file.model && file.wrong.empty()) return;
  } else {
    seen_.erase(name);
    told_[name].hash = 0;
  }
  conflicts_.erase(name);
  shortOfMemory_.erase(name);
  if (file.shortOfMemory) memoryIsShortFor(name);
  if (file.wrong.empty()) {
    found.changes.push_back({name, std::move(file.model)});
  } else if (badIs(name, std::move(file.wrong))) {
    tellBadFile(tell_, dir_ + "/" + name, bad_.at(name));
  }
}

void DirectoryFiles::taken(const std::string& name, bool changes) {
  bad_.erase(name);
  conflicts_.erase(name);
  const auto told = told_.find(name);
  if (told == told_.end()) return;
  if (!changes && told->second.isBad) tellGoodFile(tell_, dir_ + "/" + name);
  told_.erase(told);
}

void DirectoryFiles::conflictIs(const std::string& name, const std::string& why, bool goes,
                                const std::string& summary) {
  const std::string path = dir_ + "/" + name;
  if (badIs(name, {fmt::format("{}: {}", path, why)}, goes))
    tellChange(tell_, {.who = path, .source = name, .summary = summary, .refused = why});
  conflicts_[name] = goes;
}

std::string_view DirectoryFiles::kindOf(const std::string& name) const {
  const auto conflict = conflicts_.find(name);
  if (conflict != conflicts_.end())
    return conflict->second ? "has gone, and what it said is kept" : "is refused as it is now";
  if (shortOfMemory_.contains(name)) return "is more than there is memory for";
  const auto told = told_.find(name);
  return told != told_.end() && told->second.hash == 0 ? "cannot be taken" : "has mistakes";
}

void DirectoryFiles::conflictsAreDue() {
  for (const auto& [name, goes] : std::exchange(conflicts_, {})) {
    forgotten_.insert(name);
    lookIsDue_ = true;
  }
}

void DirectoryFiles::failed(const std::string& name, std::string why) {
  if (badIs(name, {std::move(why)})) tellBadFile(tell_, dir_ + "/" + name, bad_.at(name));
  memoryIsShortFor(name);
}

bool DirectoryFiles::badIs(const std::string& name, std::vector<std::string> wrong, bool goes) {
  Told& told = told_[name];
  const bool isNew = told.wrong != wrong;
  told.wrong = wrong;
  told.goes = goes;
  told.isBad = true;
  bad_[name] = std::move(wrong);
  return isNew;
}

void DirectoryFiles::memoryIsShortFor(const std::string& name) {
  // A file that fails again and again must not delay the others.
  if (shortOfMemory_.empty()) looksUntilMemory_ = looksBetweenTrials;
  shortOfMemory_.insert(name);
}

}  // namespace Agent
