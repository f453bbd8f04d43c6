#include <Acl/Workshop.h>
#include <agent/change/Configuration.h>
#include <agent/change/Difference.h>
#include <agent/config/Reader.h>
#include <agent/config/Writer.h>
#include <agent/core/Reserve.h>
#include <agent/warnings/WarningText.h>

#include <algorithm>
#include <iterator>
#include <utility>

// Changes that files of the directory make, and the report.
namespace Agent {

using Json = nlohmann::ordered_json;

namespace {

Json sourceJson(const std::string& name, const Config::Model& model, const std::optional<double>& applied) {
  size_t rules = 0;
  for (const auto& [key, list] : model.lists) rules += list.rules.size();
  return {{"name", sourceTitle(name)},
          {"lists", model.lists.size()},
          {"rules", rules},
          {"bindings", model.bindings.size()},
          {"applied", applied ? Json(*applied) : Json(nullptr)}};
}

}  // namespace

/// New content of a file of the directory. It is compared on the thread.
struct Configuration::Next {
  NewContent change;
  SharedText before{};  ///< what the command line's source will say again if nobody confirms; null: nothing
  SourceChange writes{};
  Warnings lasting{};                    ///< what is warned of when it is in force
  Warnings fresh{};                      ///< what was not warned of before
  Change remembered{};                   ///< as it is remembered
  std::optional<std::string> refused{};  ///< why warnings keep it from being carried out
  bool same = false;                     ///< nothing differs from the content in force

  void prepare(const Configuration& all) {
    const Sources& inForce = all.sources();
    const auto& [name, model] = change;
    const Config::Model* known = inForce.find(name);
    const Config::Model* now = model ? &*model : nullptr;
    same = now && known && *known == *now;
    ChangeWarnings found = changeWarnings(inForce.layers(), inForce.layersWith(name, now), all.ports());
    static const Config::Model nothing;
    if (!same) remember(known ? *known : nothing, now);
    fresh = newWarnings(found.told, all.warnings_);
    lasting = std::move(found.lasting);
    refused = whyRefused(found, all.leave_);
    if (!same && !refused && before) refused = whyNotBefore(all, now);
    if (!same && !refused) writes = sourceChange(inForce, name, now);
  }
  /// Why the change is refused when it is no opening in what is in force, but is one in what would come back.
  std::optional<std::string> whyNotBefore(const Configuration& all, const Config::Model* now) const {
    const Config::Result read = Config::read({{"before", *before}});
    if (!read.model) return "what would come back if nobody confirms cannot be read";
    const Sources& inForce = all.sources();
    const Layers was = inForce.layersWith(commandLineName, &*read.model);
    Layers is = inForce.layersWith(change.source, now);
    is.front().second = &*read.model;  // the command line's
    auto why = whyRefused(changeWarnings(was, is, all.ports()), {.openings = all.leave_.openings});
    if (why) why->insert(0, "if nobody confirms the change that waits for it: ");
    return why;
  }
  void remember(const Config::Model& known, const Config::Model* now) {
    static const Config::Model nothing;
    const Difference found = difference(known, now ? *now : nothing);
    remembered = {.what = now ? "file" : "gone",
                  .who = "the directory",
                  .source = change.source,
                  .summary = found.summary,
                  .text = now ? std::make_shared<const std::string>(Config::textOf(*now)) : nullptr,
                  .difference = found.line()};
  }
};

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
                  [this, next](const std::optional<std::string>& failed) { handleNext(*next, failed); });
}

void Configuration::handleNext(Next& next, std::optional<std::string> failed) {
  const std::string name = next.change.source;
  task_->scheduleTask();
  if (!failed && next.refused) return postpone(next, std::move(*next.refused));
  if (!failed && next.same) {
    commit_.noticesAre(name, std::move(next.change.model->notices));
    warnings_ = std::move(next.lasting);
  }
  if (!failed && !next.same) failed = commit_.reserveFor(next.writes);
  if (failed || next.same) {
    commit_.discard(std::move(next.change.model));
    Acl::Workshop::singleton().dispose(std::move(next.writes));
  }
  if (failed) return files_.failed(name, fmt::format("{}/{}: {}", files_.dir(), name, *failed));
  if (next.same) return files_.taken(name);
  takeNext(next);
}

void Configuration::takeNext(Next& next) {
  const std::string name = next.change.source;
  const bool goes = !next.change.model;
  const auto lasting = std::make_shared<Warnings>(std::move(next.lasting));
  const auto event = std::make_shared<ChangeEvent>();
  *event = {files_.dir() + "/" + name, name, summaryText(next.remembered.summary), {}, std::move(next.fresh)};
  const auto remembered = std::make_shared<Change>(std::move(next.remembered));
  const auto wrong = commit_.begin(std::move(next.change), std::move(next.writes),
                                   [this, name, lasting, event, remembered](double) {
                                     warnings_ = std::move(*lasting);
                                     remember(std::move(*remembered));
                                     tellChange(tell_, *event);
                                     changedSincePostponed_ = true;
                                     files_.taken(name);
                                     // Files that could not be in force together with the old content may be
                                     // possible now.
                                     files_.conflictsAreDue();
                                     task_->scheduleTask();
                                   });
  if (wrong) files_.conflictIs(name, *wrong, goes);
}

void Configuration::postpone(Next& next, std::string why) {
  // What is new since the last one may close this one.
  if (postponed_.empty()) changedSincePostponed_ = false;
  postponed_.emplace_back(std::move(next.change), std::move(why));
}

/// When no other change is left: tries the postponed ones again if something has changed since, and refuses
/// them otherwise.
void Configuration::refusePostponed() {
  for (auto& [change, why] : std::exchange(postponed_, {})) {
    if (changedSincePostponed_) {
      changes_.push_back(std::move(change));
      continue;
    }
    files_.conflictIs(change.source, fmt::format("{}/{}: {}", files_.dir(), change.source, why),
                      !change.model);
    commit_.discard(std::move(change.model));
  }
  changedSincePostponed_ = false;
}

/// What is in force, and what a restart would read.
Json Configuration::restartReport() const {
  std::vector<std::string> why = restart_.whyOther(*text_, history_.unconfirmed());
  for (const auto& [name, mistakes] : files_.bad())
    why.push_back(fmt::format("{}/{} has mistakes", files_.dir(), name));
  return {{"files", restart_.files()}, {"same", why.empty()}, {"why", why}};
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
          {"restart", restartReport()}};
}

}  // namespace Agent
