#include <Acl/Workshop.h>
#include <agent/change/FileChanges.h>
#include <agent/config/Reader.h>
#include <agent/core/Words.h>
#include <fmt/format.h>

#include <algorithm>
#include <iterator>
#include <utility>

namespace Agent {

/// New content of a file. It is compared on the thread.
struct FileChanges::Next {
  NewContent change;
  SharedText before{};  ///< what the command line's source will say again if nobody confirms; null: nothing
  PreparedChange prepared{};
  SharedFilteredPorts filteredBefore{};  ///< by what comes back if nobody confirms
  std::string summary{};
  bool same = false;  ///< nothing differs from the content in force

  void prepare(const CurrentConfig& current, const Leave& leave) {
    const auto& [name, model] = change;
    const Config::Model* known = current.sources().find(name);
    const Config::Model* now = model ? &*model : nullptr;
    same = now && known && *known == *now;
    summary =
        prepared.prepare(current.before(), name, now, {now ? "file" : "gone", "the directory", leave, same})
            .summary;
    if (same || prepared.refused || !before) return;
    prepared.refused = whyNotBefore(current, leave, now);
    if (prepared.refused) prepared.writes = {};
  }
  /// Why the change is refused when it can be in force with what is, but not with what would come back, or
  /// would be an opening in that.
  std::optional<std::string> whyNotBefore(const CurrentConfig& current, const Leave& leave,
                                          const Config::Model* now) {
    const Config::Result read = Config::read({{textThatComesBack, *before}});
    if (!read.model) return "what would come back if nobody confirms cannot be read";
    const Layers was = current.sources().layersWith(commandLineName, &*read.model);
    Layers is = current.sources().layersWith(change.source, now);
    is.front().second = &*read.model;  // the command line's
    auto why = Core::whyNot(mergedInterfaces(is));
    ChangeWarnings warnings = changeWarnings(was, is, current.portNames());
    if (!why) why = whyRefused(warnings, {.openings = leave.openings});
    filteredBefore = std::make_shared<const FilteredPorts>(std::move(warnings.filtered));
    if (why) why->insert(0, "if nobody confirms the change that waits for it: ");
    return why;
  }
};

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
    if (!found.there.contains(name) && !files_.isRefusedToGo(name)) changes_.push_back({name, std::nullopt});
  }
  next_();
}

/// The difference that a file makes depends on the files before it, so it is found out when those are in
/// force.
bool FileChanges::begin() {
  if (changes_.empty()) refusePostponed();
  if (changes_.empty()) return false;
  const auto next = std::make_shared<Next>(Next{std::move(changes_.front()), confirmation_.before()});
  changes_.erase(changes_.begin());
  background_.run([this, next] { next->prepare(current_, leave_); },
                  [this, next](const std::optional<std::string>& failed) { handlePrepared(next, failed); });
  return true;
}

std::string FileChanges::ofFile(const std::string& name, const std::string& why) const {
  return fmt::format("{}/{}: {}", files_.dir(), name, why);
}

void FileChanges::handlePrepared(const std::shared_ptr<Next>& next, std::optional<std::string> failed) {
  const std::string name = next->change.source;
  next_();
  if (!failed && next->prepared.refused) return postpone(*next);
  if (!failed && !next->same) return take(next);
  if (!failed) {
    current_.commit.noticesAre(name, std::move(next->change.model->notices));
    current_.warnings = std::move(next->prepared.lasting);
  }
  current_.commit.discard(std::move(next->change.model));
  Acl::Workshop::singleton().dispose(std::move(next->prepared.writes));
  if (failed) return files_.failed(name, ofFile(name, *failed));
  files_.taken(name, false);
}

void FileChanges::take(const std::shared_ptr<Next>& next) {
  const std::string name = next->change.source;
  const bool goes = !next->change.model;
  const auto done = [this, name, next](const Commit::End& end) {
    if (!end.refused) return handleTaken(name, *next);
    files_.failed(name, ofFile(name, *end.refused));
    next_();
  };
  const auto refusal = current_.commit.begin(std::move(next->change), std::move(next->prepared.writes), done);
  if (!refusal) return;
  if (refusal->memory) return files_.failed(name, ofFile(name, refusal->why));
  files_.conflictIs(name, refusal->why, goes, summaryText(next->summary));
}

void FileChanges::handleTaken(const std::string& name, Next& next) {
  PreparedChange& prepared = next.prepared;
  const ChangeEvent event{
      files_.dir() + "/" + name, name, summaryText(prepared.change.summary), {}, std::move(prepared.fresh)};
  current_.warnings = std::move(prepared.lasting);
  current_.filtered = prepared.filtered;
  current_.history.filteredIs(next.before ? next.filteredBefore : current_.filtered);
  current_.history.add(std::move(prepared.change));
  tellChange(current_.tell, event);
  changedSincePostponed_ = true;
  files_.taken(name, true);
  // Files that could not be in force together with the old content may be possible now.
  files_.conflictsAreDue();
  next_();
}

void FileChanges::postpone(Next& next) {
  // What is new since the last one may close this one.
  if (postponed_.empty()) changedSincePostponed_ = false;
  postponed_.push_back(
      {std::move(next.change), std::move(*next.prepared.refused), summaryText(next.summary)});
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
