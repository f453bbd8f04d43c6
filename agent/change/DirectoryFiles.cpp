#include <Acl/Workshop.h>
#include <agent/change/DirectoryFiles.h>

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
  unreadable_ = std::move(scan.unreadable);
  if (!unreadable_.empty()) {
    due_.merge(scan.due);
    all_ = all_ || scan.all;
    return;
  }
  const auto isGone = [&scan](const std::string& name) { return !scan.there.contains(name); };
  const auto isForgotten = [&](const auto& file) { return isGone(file.first) && !isRefusedToGo(file.first); };
  std::erase_if(bad_, isForgotten);
  std::erase_if(conflicts_, isForgotten);
  std::erase_if(told_, isForgotten);
  std::erase_if(shortOfMemory_, isGone);
  Found found;
  for (auto& [name, file] : scan.found) take(name, file, found);
  found.there = std::move(scan.there);
  changed_(std::move(found));
}

void DirectoryFiles::take(const std::string& name, DirectoryScan::File& file, Found& found) {
  if (file.content) {
    seen_[name] = *file.content;
    // Read again without a new content: it stays bad.
    if (!file.model && file.wrong.empty()) return;
  } else {
    seen_.erase(name);
  }
  conflicts_.erase(name);
  shortOfMemory_.erase(name);
  if (file.shortOfMemory) memoryIsShortFor(name);
  if (file.wrong.empty()) {
    found.changes.push_back({name, std::move(file.model)});
  } else {
    badIs(name, std::move(file.wrong));
  }
}

void DirectoryFiles::conflictIs(const std::string& name, std::string why, bool goes) {
  badIs(name, {std::move(why)});
  conflicts_[name] = goes;
}

void DirectoryFiles::conflictsAreDue() {
  for (const auto& [name, goes] : std::exchange(conflicts_, {})) {
    forgotten_.insert(name);
    lookIsDue_ = true;
  }
}

void DirectoryFiles::failed(const std::string& name, std::string why) {
  badIs(name, {std::move(why)});
  memoryIsShortFor(name);
}

void DirectoryFiles::badIs(const std::string& name, std::vector<std::string> wrong) {
  if (told_[name] != wrong) tellBadFile(tell_, dir_ + "/" + name, wrong);
  told_[name] = wrong;
  bad_[name] = std::move(wrong);
}

void DirectoryFiles::memoryIsShortFor(const std::string& name) {
  // A file that fails again and again must not delay the others.
  if (shortOfMemory_.empty()) looksUntilMemory_ = looksBetweenTrials;
  shortOfMemory_.insert(name);
}

}  // namespace Agent
