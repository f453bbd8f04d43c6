#include <Acl/Workshop.h>
#include <Kiv/Clock.h>
#include <agent/change/Configuration.h>
#include <agent/change/Difference.h>
#include <agent/change/Summary.h>
#include <agent/core/Reserve.h>
#include <agent/warnings/WarningText.h>

#include <algorithm>
#include <tuple>
#include <utility>

namespace Agent {

using Json = nlohmann::ordered_json;

namespace {

double seconds() { return Kiv::steadyClock().now().seconds(); }

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

/// Texts for the command line's source. They are prepared on the thread.
struct Configuration::Texts {
  Request request;
  Done done;
  Outcome outcome{};
  std::optional<Config::Model> model{};
  SourceChange writes{};
  Warnings lasting{};  ///< what is warned of when it is in force
  Warnings fresh{};    ///< what was not warned of before

  void prepare(const Configuration& all) {
    const double start = seconds();
    std::vector<Config::Source> texts = read(all.limits_);
    if (!outcome.mistakes.empty()) return;
    Config::Result result = Config::read(texts, {}, mostMistakes);
    texts = {};
    outcome.mistakes = textsOf(result.mistakes);
    if (result.model) compare(all, *result.model);
    model = std::move(result.model);
    outcome.prepareSeconds = seconds() - start;
  }
  std::vector<Config::Source> read(const TextLimits& limits) {
    TextReader reader(limits);
    std::vector<Config::Source> all;
    for (const std::string& path : request.files) {
      if (auto file = reader.read(path, TextReader::Named::byPlace, outcome.mistakes))
        all.push_back({path, std::move(file->text)});
    }
    for (Config::Source& source : request.texts) {
      if (auto why = reader.memory().whyNot(source.name, source.text))
        outcome.mistakes.push_back(std::move(*why));
      all.push_back(std::move(source));
    }
    request.texts = {};
    return all;
  }
  void compare(const Configuration& all, const Config::Model& now) {
    const Sources& inForce = all.sources();
    outcome.difference = difference(inForce.commandLine, now);
    outcome.summary = changeSummary(inForce.commandLine, now);
    ChangeWarnings found =
        changeWarnings(inForce.layers(), inForce.layersWith(commandLineName, &now), all.ports());
    fresh = newWarnings(found.told, all.warnings_);
    outcome.refused = whyRefused(found, request.leave);
    outcome.warnings = std::move(found.told);
    lasting = std::move(found.lasting);
    if (isCarriedOut()) writes = sourceChange(inForce, commandLineName, &now);
  }
  /// Mistakes and refusals are told, too; a dry run is nobody's business.
  void tell(const TellLog& log) {
    if (request.dryRun) return;
    ChangeEvent event{request.who, commandLineName, outcome.summary};
    if (!outcome.applied) {
      const auto& mistakes = outcome.mistakes;
      event.refused = outcome.refused    ? *outcome.refused
                      : mistakes.empty() ? ""
                                         : mistakes.front() + (mistakes.size() > 1 ? " ..." : "");
    }
    event.warnings = std::move(fresh);
    tellChange(log, event);
  }
  bool isCarriedOut() const { return !request.dryRun && !outcome.refused; }
  /// Frees everything that was prepared, beside the loop, because it may be much. Nothing in force shares any
  /// of it.
  void fail(const std::string& why) {
    Outcome failed;
    failed.mistakes = {why};
    failed.prepareSeconds = outcome.prepareSeconds;
    Acl::Workshop::singleton().dispose(std::tuple(
        std::exchange(request.texts, {}), std::exchange(model, std::nullopt), std::exchange(writes, {}),
        std::exchange(lasting, {}), std::exchange(outcome, std::move(failed))));
  }
};

/// New content of a file of the directory. It is compared on the thread.
struct Configuration::Next {
  NewContent change;
  SourceChange writes{};
  Warnings lasting{};                    ///< what is warned of when it is in force
  Warnings fresh{};                      ///< what was not warned of before
  std::string summary{};                 ///< what it comes to
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
    summary = changeSummary(known ? *known : nothing, now ? *now : nothing);
    fresh = newWarnings(found.told, all.warnings_);
    lasting = std::move(found.lasting);
    refused = whyRefused(found, all.leave_);
    if (!same && !refused) writes = sourceChange(inForce, name, now);
  }
};

Configuration::Configuration(Core& core, Forwarder& forwarder, EventLoop& loop, ConfigFiles files,
                             Options options)
    : leave_(options.leave),
      limits_(options.limits),
      ports_(std::move(options.ports)),
      warnings_(std::move(options.warnings)),
      tell_(options.tell),
      task_(0, "Configuration", [this] { commitNext(); }),
      commit_(core, forwarder, loop.reserve(), files.takeSources(), std::move(options.applied)),
      background_(loop),
      files_(
          loop, std::move(options.dir), limits_, files.contents(), [this] { return !busy(); },
          [this](DirectoryFiles::Found found) { handleFound(std::move(found)); }, options.tell) {}

bool Configuration::apply(Request request, Done done) {
  if (busy()) return false;
  begin(std::move(request), std::move(done));
  return true;
}

void Configuration::applyLater(Request request, Done done) {
  waiting_.emplace_back(std::move(request), std::move(done));
  task_->scheduleTask();
}

void Configuration::begin(Request request, Done done) {
  const auto job = std::make_shared<Texts>(Texts{std::move(request), std::move(done)});
  background_.run([this, job] { job->prepare(*this); },
                  [this, job](const std::optional<std::string>& failed) {
                    if (failed) job->fail(*failed);
                    handlePrepared(job);
                  });
}

void Configuration::handlePrepared(const std::shared_ptr<Texts>& texts) {
  if (!texts->model) return answer(*texts);
  std::optional<std::string> wrong;
  if (!texts->isCarriedOut()) {
    NewContent change{commandLineName, std::move(texts->model)};
    wrong = commit_.whyNot(change);
    commit_.discard(std::move(change.model));
  } else if ((wrong = commit_.reserveFor(texts->writes))) {
    commit_.discard(std::move(texts->model));
  } else {
    wrong = commit_.begin({commandLineName, std::move(texts->model)}, std::move(texts->writes),
                          [this, texts](double longestTurn) {
                            texts->outcome.applied = true;
                            warnings_ = std::move(texts->lasting);
                            texts->outcome.commitSeconds = longestTurn;
                            answer(*texts);
                          });
    if (!wrong) return;
  }
  if (wrong) texts->fail(*wrong);
  answer(*texts);
}

void Configuration::answer(Texts& texts) {
  const bool applied = texts.outcome.applied;
  texts.tell(tell_);
  texts.done(std::move(texts.outcome));
  if (applied) files_.conflictsAreDue();
  commitNext();
}

// Files of the directory.

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
  if (background_.busy() || commit_.underWay()) return;
  if (changes_.empty()) refusePostponed();
  if (changes_.empty() && !waiting_.empty()) {
    auto [request, done] = std::move(waiting_.front());
    waiting_.pop_front();
    return begin(std::move(request), std::move(done));
  }
  if (changes_.empty()) return files_.look();
  const auto next = std::make_shared<Next>(Next{std::move(changes_.front())});
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
  *event = {files_.dir() + "/" + name, name, std::move(next.summary), {}, std::move(next.fresh)};
  const auto wrong =
      commit_.begin(std::move(next.change), std::move(next.writes), [this, name, lasting, event](double) {
        warnings_ = std::move(*lasting);
        tellChange(tell_, *event);
        changedSincePostponed_ = true;
        files_.taken(name);
        // Files that could not be in force together with the old content may be possible now.
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
          {"warnings", std::move(warnings)}};
}

}  // namespace Agent
