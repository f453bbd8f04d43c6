#include <Acl/Workshop.h>
#include <agent/change/Configuration.h>
#include <agent/change/Difference.h>
#include <agent/config/Reader.h>
#include <agent/config/Writer.h>
#include <agent/core/Reserve.h>
#include <agent/core/Words.h>
#include <agent/warnings/WarningText.h>

#include <algorithm>
#include <iterator>
#include <utility>

// Changes that files of the directory make, and the report.
namespace Agent {

using Json = nlohmann::ordered_json;

namespace {

Json sourceJson(const std::string& name, const Config::Model& model, const std::optional<double>& applied) {
  Config::Size size;
  size.add(model);
  Json json = {{"name", sourceTitle(name)}};
  json.update(sizeWords(size));
  json["applied"] = applied ? Json(*applied) : Json(nullptr);
  return json;
}

}  // namespace

/// New content of a file of the directory. It is compared on the thread.
struct Configuration::Next {
  NewContent change;
  SharedText before{};  ///< what the command line's source will say again if nobody confirms; null: nothing
  PreparedChange prepared{};
  SharedFilteredPorts filteredBefore{};  ///< by what comes back if nobody confirms
  std::string summary{};
  bool same = false;  ///< nothing differs from the content in force

  void prepare(const Configuration& all) {
    const auto& [name, model] = change;
    const Config::Model* known = all.sources().find(name);
    const Config::Model* now = model ? &*model : nullptr;
    same = now && known && *known == *now;
    summary =
        prepared.prepare(all.before(), name, now, {now ? "file" : "gone", "the directory", all.leave_, same})
            .summary;
    if (same || prepared.refused || !before) return;
    prepared.refused = whyNotBefore(all, now);
    if (prepared.refused) prepared.writes = {};
  }
  /// Why the change is refused when it can be in force with what is, but not with what would come back, or
  /// would be an opening in that.
  std::optional<std::string> whyNotBefore(const Configuration& all, const Config::Model* now) {
    const Config::Result read = Config::read({{textThatComesBack, *before}});
    if (!read.model) return "what would come back if nobody confirms cannot be read";
    const Sources& inForce = all.sources();
    const Layers was = inForce.layersWith(commandLineName, &*read.model);
    Layers is = inForce.layersWith(change.source, now);
    is.front().second = &*read.model;  // the command line's
    auto why = Core::whyNot(mergedInterfaces(is));
    ChangeWarnings warnings = changeWarnings(was, is, all.ports());
    if (!why) why = whyRefused(warnings, {.openings = all.leave_.openings});
    filteredBefore = std::make_shared<const FilteredPorts>(std::move(warnings.filtered));
    if (why) why->insert(0, "if nobody confirms the change that waits for it: ");
    return why;
  }
};

namespace {

/// The digests of all files by name, and their texts.
FileDigests digestsOf(const Sources& sources, std::map<std::string, SharedText>& texts) {
  FileDigests digests;
  for (const auto& [name, model] : sources.inputs) {
    const SharedText& text = texts[name] = std::make_shared<const std::string>(Config::textOf(model));
    digests[name] = digestOf(*text);
  }
  return digests;
}

/// The names of files that are not the same, those that have gone first.
std::vector<std::string> otherFiles(const FileDigests& before, const FileDigests& now) {
  std::vector<std::string> names;
  for (const auto& [name, digest] : before) {
    if (!now.contains(name)) names.push_back(name);
  }
  for (const auto& [name, digest] : now) {
    const auto known = before.find(name);
    if (known == before.end() || known->second != digest) names.push_back(name);
  }
  return names;
}

constexpr const char* whileDown = "the directory, while the agent was down";

}  // namespace

/// What changed in the directory since the last agent ended is a change, too. Many are told in one.
void Configuration::rememberFiles() {
  constexpr size_t most = 20;
  std::map<std::string, SharedText> texts;
  FileDigests now = digestsOf(sources(), texts);
  const FileDigests before = history_.files().value_or(now);
  const auto others = otherFiles(before, now);
  for (size_t i = 0; i < std::min(most, others.size()); ++i) {
    const auto known = before.find(others[i]);
    rememberFile(others[i], known == before.end() ? std::nullopt : std::optional(known->second),
                 texts[others[i]]);
  }
  if (others.size() > most) {
    remember({.what = "file",
              .who = whileDown,
              .source = files_.dir(),
              .summary = countText(others.size() - most, "more file") + " changed",
              .text = nullptr,
              .difference = nullptr});
  }
  history_.filesAre(std::move(now));
}

/// `before` is the digest of what it said, if it was there. What that was may be forgotten.
void Configuration::rememberFile(const std::string& name, const std::optional<uint64_t>& before,
                                 const SharedText& text) {
  const Change* last = history_.last(name);
  const bool isKnown = !before || (last && last->text && digestOf(*last->text) == *before);
  const Config::Result was = Config::read({{"", before && isKnown ? *last->text : std::string()}});
  const Config::Model nothing, *now = sources().find(name);
  const Difference found = difference(was.model.value_or(nothing), now ? *now : nothing);
  const std::string summary = isKnown ? found.summary : "other content than before";
  tellChange(tell_, {.who = whileDown, .source = name, .summary = summary});
  remember({.what = now ? "file" : "gone",
            .who = whileDown,
            .source = sourceTitle(name),
            .summary = summary,
            .text = text,
            .difference = isKnown ? found.line() : nullptr});
}

void Configuration::handleFound(DirectoryFiles::Found found) {
  std::move(found.changes.begin(), found.changes.end(), std::back_inserter(changes_));
  for (const auto& [name, model] : sources().inputs) {
    if (!found.there.contains(name) && !files_.isRefusedToGo(name)) changes_.push_back({name, std::nullopt});
  }
  commitNext();
}

/// The difference that a file makes depends on the files before it, so it is found out when those are in
/// force.
void Configuration::commitNext() {
  if (background_.busy() || commit_.underWay() || unkept_) return;
  if (changes_.empty()) refusePostponed();
  if (changes_.empty() && !waiting_.empty()) {
    auto [request, done] = std::move(waiting_.front());
    waiting_.pop_front();
    return prepare(std::move(request), std::move(done));
  }
  if (changes_.empty()) return files_.look();
  const auto next = std::make_shared<Next>(
      Next{std::move(changes_.front()), deadlineAt_ ? history_.unconfirmed()->before : nullptr});
  changes_.erase(changes_.begin());
  background_.run([this, next] { next->prepare(*this); },
                  [this, next](const std::optional<std::string>& failed) { handleNext(next, failed); });
}

std::string Configuration::ofFile(const std::string& name, const std::string& why) const {
  return fmt::format("{}/{}: {}", files_.dir(), name, why);
}

void Configuration::handleNext(const std::shared_ptr<Next>& next, std::optional<std::string> failed) {
  const std::string name = next->change.source;
  task_->scheduleTask();
  if (!failed && next->prepared.refused) return postpone(*next);
  if (!failed && !next->same) return takeNext(next);
  if (!failed) {
    commit_.noticesAre(name, std::move(next->change.model->notices));
    warnings_ = std::move(next->prepared.lasting);
  }
  commit_.discard(std::move(next->change.model));
  Acl::Workshop::singleton().dispose(std::move(next->prepared.writes));
  if (failed) return files_.failed(name, ofFile(name, *failed));
  files_.taken(name, false);
}

void Configuration::takeNext(const std::shared_ptr<Next>& next) {
  const std::string name = next->change.source;
  const bool goes = !next->change.model;
  const auto done = [this, name, next](double) {
    PreparedChange& prepared = next->prepared;
    const ChangeEvent event{
        files_.dir() + "/" + name, name, summaryText(prepared.change.summary), {}, std::move(prepared.fresh)};
    warnings_ = std::move(prepared.lasting);
    filtered_ = prepared.filtered;
    history_.filteredIs(next->before ? next->filteredBefore : filtered_);
    remember(std::move(prepared.change));
    tellChange(tell_, event);
    changedSincePostponed_ = true;
    files_.taken(name, true);
    // Files that could not be in force together with the old content may be possible now.
    files_.conflictsAreDue();
    task_->scheduleTask();
  };
  const auto refusal = commit_.begin(std::move(next->change), std::move(next->prepared.writes), done);
  if (!refusal) return;
  if (refusal->memory) return files_.failed(name, ofFile(name, refusal->why));
  files_.conflictIs(name, refusal->why, goes, summaryText(next->summary));
}

void Configuration::postpone(Next& next) {
  // What is new since the last one may close this one.
  if (postponed_.empty()) changedSincePostponed_ = false;
  postponed_.push_back(
      {std::move(next.change), std::move(*next.prepared.refused), summaryText(next.summary)});
}

/// When no other change is left: tries the postponed ones again if something has changed since, and refuses
/// them otherwise.
void Configuration::refusePostponed() {
  for (auto& [change, why, summary] : std::exchange(postponed_, {})) {
    if (changedSincePostponed_) {
      changes_.push_back(std::move(change));
      continue;
    }
    files_.conflictIs(change.source, why, !change.model, summary);
    commit_.discard(std::move(change.model));
  }
  changedSincePostponed_ = false;
}

/// What is in force, and what a restart would read.
Json Configuration::restartReport() const {
  std::vector<std::string> why = restart_.whyOther(*text_);
  const bool save = !why.empty() && restart_.hasPlace() && !deadlineAt_;
  for (const auto& [name, mistakes] : files_.bad())
    why.push_back(fmt::format("{}/{} {}", files_.dir(), name, files_.kindOf(name)));
  const auto refused = restart_.whyRefused();
  Json opens = Json::array();
  for (const Warning& warning : newWarnings(restart_.openings(), warnings_)) opens.push_back(warning.text);
  return {{"files", restart_.files()},
          {"same", why.empty()},
          {"why", why},
          {"save", save},
          {"refused", refused ? Json(*refused) : Json(nullptr)},
          {"opens", std::move(opens)},
          {"looking", restart_.lookingFor() ? Json(*restart_.lookingFor()) : Json(nullptr)}};
}

Json Configuration::report() const {
  Json sources = Json::array();
  commit_.sources().forEach([&](const std::string& name, const Config::Model& model) {
    Refusable::check();
    sources.push_back(sourceJson(name, model, commit_.appliedAt(name)));
  });
  Json warnings = Json::array();
  for (const Warning& warning : warnings_) {
    Refusable::check();
    warnings.push_back(warningJson(warning));
  }
  Json bad = Json::array();
  const std::string& dir = files_.dir();
  if (const auto& why = files_.unreadable(); !why.empty())
    bad.push_back({{"name", dir}, {"kept", true}, {"mistakes", why}});
  for (const auto& [name, mistakes] : files_.bad()) {
    Refusable::check();
    bad.push_back(
        {{"name", name}, {"kept", commit_.sources().inputs.contains(name)}, {"mistakes", mistakes}});
  }
  return {{"directory", dir.empty() ? Json(nullptr) : Json(dir)},
          {"changing", busy()},
          {"sources", std::move(sources)},
          {"bad", std::move(bad)},
          {"warnings", std::move(warnings)},
          {"confirmWithin", confirmWithin() ? Json(*confirmWithin()) : Json(nullptr)},
          {"notReturned", notReturned_.empty() ? Json(nullptr) : Json(notReturned_)},
          {"restart", restartReport()}};
}

}  // namespace Agent
