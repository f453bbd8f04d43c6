#include <Acl/Workshop.h>
#include <Kiv/Clock.h>
#include <agent/change/Configuration.h>
#include <agent/change/Difference.h>
#include <agent/core/Reserve.h>

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
  std::vector<Config::Source> sources;
  bool dryRun;
  Done done;
  Outcome outcome;
  std::optional<Config::Model> model;
  SourceChange writes;

  void prepare(const Sources& inForce) {
    const double start = seconds();
    MemoryEstimate memory;
    for (const Config::Source& source : sources) {
      if (auto why = memory.whyNot(source.name, source.text)) outcome.mistakes.push_back(std::move(*why));
    }
    if (!outcome.mistakes.empty()) return;
    Config::Result result = Config::read(sources, {}, mostMistakes);
    sources = {};
    outcome.mistakes = textsOf(result.mistakes);
    if (result.model) {
      outcome.difference = difference(inForce.commandLine, *result.model);
      if (!dryRun) writes = sourceChange(inForce, commandLineName, &*result.model);
    }
    model = std::move(result.model);
    outcome.prepareSeconds = seconds() - start;
  }
  /// Frees everything that was prepared, beside the loop, because it may be much. Nothing in force shares any
  /// of it.
  void fail(const std::string& why) {
    Outcome failed{{why}, {}, false, outcome.prepareSeconds, 0};
    Acl::Workshop::singleton().dispose(std::tuple(std::move(sources), std::exchange(model, std::nullopt),
                                                  std::exchange(writes, {}),
                                                  std::exchange(outcome, std::move(failed))));
  }
};

/// New content of a file of the directory. It is compared on the thread.
struct Configuration::Next {
  NewContent change;
  SourceChange writes;
  bool same = false;  ///< nothing differs from the content in force
};

Configuration::Configuration(Core& core, Forwarder& forwarder, EventLoop& loop, ConfigFiles files,
                             std::string dir, TextLimits limits, std::function<void()> applied)
    : task_(Kiv::TaskSchedulerRoot::findOrCreateScheduler()->taskIs(0, "Configuration")),
      commit_(core, forwarder, loop.reserve(), files.takeSources(), std::move(applied)),
      background_(loop),
      files_(
          loop, std::move(dir), limits, files.contents(), [this] { return !busy(); },
          [this](DirectoryFiles::Found found) { handleFound(std::move(found)); }) {
  task_->dispatchIs([this] { commitNext(); }, this);
}

Configuration::~Configuration() {
  task_->cancelTask();
  task_->dispatchDel(this);
}

bool Configuration::apply(std::vector<Config::Source> texts, bool dryRun, Done done) {
  if (busy()) return false;
  const auto job = std::make_shared<Texts>(Texts{std::move(texts), dryRun, std::move(done), {}, {}, {}});
  background_.run([this, job] { job->prepare(sources()); },
                  [this, job](const std::optional<std::string>& failed) {
                    if (failed) job->fail(*failed);
                    handlePrepared(job);
                  });
  return true;
}

void Configuration::handlePrepared(const std::shared_ptr<Texts>& texts) {
  if (!texts->model) return answer(*texts);
  std::optional<std::string> wrong;
  if (texts->dryRun) {
    NewContent change{commandLineName, std::move(texts->model)};
    wrong = commit_.whyNot(change);
    commit_.discard(std::move(change.model));
  } else if ((wrong = commit_.reserveFor(texts->writes))) {
    commit_.discard(std::move(texts->model));
  } else {
    wrong = commit_.begin({commandLineName, std::move(texts->model)}, std::move(texts->writes),
                          [this, texts](double longestTurn) {
                            texts->outcome.applied = true;
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
  texts.done(std::move(texts.outcome));
  if (applied) files_.conflictsAreDue();
  commitNext();
}

// Files of the directory.

void Configuration::handleFound(DirectoryFiles::Found found) {
  for (const auto& [name, model] : sources().inputs) {
    if (!found.there.contains(name)) changes_.push_back({name, std::nullopt});
  }
  std::move(found.changes.begin(), found.changes.end(), std::back_inserter(changes_));
  commitNext();
}

/// The difference that a file makes depends on the files before it, so it is found out when those are in
/// force.
void Configuration::commitNext() {
  if (background_.busy() || commit_.underWay()) return;
  if (changes_.empty()) return files_.look();
  const auto next = std::make_shared<Next>(Next{std::move(changes_.front()), {}});
  changes_.erase(changes_.begin());
  background_.run(
      [this, next] {
        const auto& [name, model] = next->change;
        const Config::Model* known = sources().find(name);
        next->same = model && known && *known == *model;
        if (!next->same) next->writes = sourceChange(sources(), name, model ? &*model : nullptr);
      },
      [this, next](const std::optional<std::string>& failed) { handleNext(*next, failed); });
}

void Configuration::handleNext(Next& next, std::optional<std::string> failed) {
  const std::string name = next.change.source;
  task_->scheduleTask();
  if (!failed && !next.same) failed = commit_.reserveFor(next.writes);
  if (failed || next.same) {
    commit_.discard(std::move(next.change.model));
    Acl::Workshop::singleton().dispose(std::move(next.writes));
  }
  if (failed) return files_.failed(name, fmt::format("{}/{}: {}", files_.dir(), name, *failed));
  if (next.same) return files_.taken(name);
  const auto wrong = commit_.begin(std::move(next.change), std::move(next.writes), [this, name](double) {
    files_.taken(name);
    // Files that could not be in force together with the old content may be possible now.
    files_.conflictsAreDue();
    task_->scheduleTask();
  });
  if (wrong) files_.conflictIs(name, *wrong);
}

Json Configuration::report() const {
  Json sources = Json::array();
  commit_.sources().forEach([&](const std::string& name, const Config::Model& model) {
    Refusable::check();
    sources.push_back(sourceJson(name, model, commit_.appliedAt(name)));
  });
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
          {"bad", std::move(bad)}};
}

}  // namespace Agent
