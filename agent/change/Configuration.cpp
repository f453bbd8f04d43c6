#include <Kelp/Assert.h>
#include <Kiv/Clock.h>
#include <Zeb/System.h>
#include <agent/change/Configuration.h>
#include <agent/change/Difference.h>
#include <agent/core/Memory.h>

#include <algorithm>

namespace Agent {

using Json = nlohmann::ordered_json;

namespace {

/// Stands for the command line among the names of files, none of which is empty.
const std::string commandLine;
/// How often it is looked whether lists have been compiled.
constexpr Kelp::Duration untilCompiled{0.001};
/// Below all tasks that a change gives work to.
constexpr int whenSettled = -100;

double seconds() { return Kiv::steadyClock().now().seconds(); }

Json sourceJson(const std::string& name, const Config::Model& model,
                const std::map<std::string, double>& times) {
  size_t rules = 0;
  for (const auto& [key, list] : model.lists) rules += list.rules.size();
  const auto applied = times.find(name);
  return {{"name", name.empty() ? "cli" : name},
          {"lists", model.lists.size()},
          {"rules", rules},
          {"bindings", model.bindings.size()},
          {"applied", applied == times.end() ? Json(nullptr) : Json(applied->second)}};
}

}  // namespace

/// Texts for the command line's input on their way through the thread.
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
      if (!dryRun) writes = sourceChange(inForce, commandLine, &*result.model);
    }
    model = std::move(result.model);
    outcome.prepareSeconds = seconds() - start;
  }
};

/// A content of a file of the directory on its way through the thread.
struct Configuration::Next {
  NewContent change;
  SourceChange writes;
  bool same = false;  ///< as the content in force
};

Configuration::Configuration(Core& core, Forwarder& forwarder, EventLoop& loop, ConfigFiles files,
                             std::string dir, TextLimits limits, std::function<void()> applied)
    : core_(core),
      forwarder_(forwarder),
      applied_(std::move(applied)),
      task_(Kiv::TaskSchedulerRoot::findOrCreateScheduler()->taskIs(0, "Configuration")),
      reserve_(loop.reserve()),
      settled_(Kiv::TaskSchedulerRoot::findOrCreateScheduler()->taskIs(whenSettled, "ConfigurationSettled")),
      changeover_(core, discard_, [this] { handleSwitch(); }),
      background_(loop),
      files_(
          loop, std::move(dir), limits, files.contents(), [this] { return !busy(); },
          [this](DirectoryFiles::Found found) { handleFound(std::move(found)); }) {
  commandLine_ = files.takeCommandLine();
  inputs_ = files.takeInputs();
  const double now = Zeb::System::currentTime().seconds();
  appliedAt_[commandLine] = now;
  for (const auto& [name, model] : inputs_) appliedAt_[name] = now;
  task_->dispatchIs([this] { run(); }, this);
  settled_->dispatchIs(
      [this] {
        if (!pending_) reserve_.changesAreDone();
      },
      this);
}

Configuration::~Configuration() {
  for (const auto& task : {task_, settled_}) {
    task->cancelTask();
    task->dispatchDel(this);
  }
  reserve_.changesAreDone();
}

bool Configuration::apply(std::vector<Config::Source> texts, bool dryRun, Done done) {
  if (busy()) return false;
  const auto job = std::make_shared<Texts>(Texts{std::move(texts), dryRun, std::move(done), {}, {}, {}});
  background_.run(
      [this, job] { job->prepare(sources()); },
      [this, job](const std::optional<std::string>& failed) {
        if (failed) *job = Texts{{}, job->dryRun, std::move(job->done), {{*failed}, {}, false, 0, 0}, {}, {}};
        handlePrepared(job);
      });
  return true;
}

void Configuration::handlePrepared(const std::shared_ptr<Texts>& texts) {
  if (!texts->model) return answer(*texts);
  std::optional<std::string> wrong;
  if (texts->dryRun) {
    wrong = Core::whyNot(*texts->model, inputs_);
    discard_.take(std::move(*texts->model));
  } else if ((wrong = reserveFor(texts->writes))) {
    discard_.take(std::move(*texts->model));
  } else {
    wrong = commit({commandLine, std::move(texts->model)}, std::move(texts->writes),
                   [this, texts](double longestTurn) {
                     texts->outcome.applied = true;
                     texts->outcome.commitSeconds = longestTurn;
                     answer(*texts);
                   });
    if (!wrong) return;
  }
  if (wrong) texts->outcome = {{*wrong}, {}, false, texts->outcome.prepareSeconds, 0};
  answer(*texts);
}

void Configuration::answer(Texts& texts) {
  const bool applied = texts.outcome.applied;
  texts.done(std::move(texts.outcome));
  if (applied) files_.conflictsAreDue();
  commitNext();
}

// ---- A change is carried out.

std::optional<std::string> Configuration::reserveFor(const SourceChange& writes) {
  if (reserve_.addForChange(writes.memory())) return std::nullopt;
  return outOfMemory;
}

std::optional<std::string> Configuration::commit(NewContent change, SourceChange writes, Committed done) {
  exchange(change);
  const auto wrong = Core::whyNot(commandLine_, inputs_);
  exchange(change);
  if (wrong) {
    if (change.model) discard_.take(std::move(*change.model));
    return wrong;
  }
  pending_ = Pending{std::move(change), std::move(done), 0};
  changeover_.begin(std::move(writes));
  carryOn();
  return std::nullopt;
}

void Configuration::carryOn() {
  const double start = seconds();
  const auto state = changeover_.run(*task_);
  pending_->longestTurn = std::max(pending_->longestTurn, seconds() - start);
  if (state == Changeover::State::yields) return task_->scheduleTask();
  if (state == Changeover::State::waits) return task_->scheduleTaskDelay(untilCompiled);

  Pending finished = std::move(*pending_);
  pending_.reset();
  NewContent& change = finished.change;
  if (change.model) discard_.take(std::move(*change.model));
  if (applied_) applied_();
  settled_->scheduleTask();
  finished.done(finished.longestTurn);
}

/// From here on the new configuration holds, with all that is not in lists and bindings.
void Configuration::handleSwitch() {
  NewContent& change = pending_->change;
  const bool goes = !change.model;
  exchange(change);
  const auto wrong = core_.applyInterfaces(commandLine_, inputs_);
  KELP_ASSERT(!wrong, "what may be wrong with interfaces was looked at before the change began");
  forwarder_.portsOfConfigurationIs();
  if (goes) {
    appliedAt_.erase(change.source);
  } else {
    appliedAt_[change.source] = Zeb::System::currentTime().seconds();
  }
}

void Configuration::exchange(NewContent& change) {
  std::optional<Config::Model> before;
  if (change.source == commandLine) {
    before = std::exchange(commandLine_, std::move(*change.model));
  } else {
    if (auto known = inputs_.find(change.source); known != inputs_.end()) {
      before = std::move(known->second);
      inputs_.erase(known);
    }
    if (change.model) inputs_.emplace(change.source, std::move(*change.model));
  }
  change.model = std::move(before);
}

// ---- Files of the directory.

void Configuration::handleFound(DirectoryFiles::Found found) {
  for (const auto& [name, model] : inputs_) {
    if (!found.there.contains(name)) changes_.push_back({name, std::nullopt});
  }
  std::move(found.changes.begin(), found.changes.end(), std::back_inserter(changes_));
  commitNext();
}

/// What a file changes depends on the files before it, and is found out when those are in force.
void Configuration::commitNext() {
  if (background_.busy() || pending_) return;
  if (changes_.empty()) return files_.look();
  const auto next = std::make_shared<Next>(Next{std::move(changes_.front()), {}});
  changes_.erase(changes_.begin());
  background_.run(
      [this, next] {
        const auto& [name, model] = next->change;
        const auto known = inputs_.find(name);
        next->same = model && known != inputs_.end() && known->second == *model;
        if (!next->same) next->writes = sourceChange(sources(), name, model ? &*model : nullptr);
      },
      [this, next](const std::optional<std::string>& failed) { handleNext(*next, failed); });
}

void Configuration::handleNext(Next& next, std::optional<std::string> failed) {
  const std::string name = next.change.source;
  task_->scheduleTask();
  if (!failed && !next.same) failed = reserveFor(next.writes);
  if (failed && next.change.model) discard_.take(std::move(*next.change.model));
  if (failed) return files_.failed(name, fmt::format("{}/{}: {}", files_.dir(), name, *failed));
  if (next.same) {
    discard_.take(std::move(*next.change.model));
    return files_.taken(name);
  }
  const auto wrong = commit(std::move(next.change), std::move(next.writes), [this, name](double) {
    files_.taken(name);
    // What stood in the way of others may have gone.
    files_.conflictsAreDue();
    task_->scheduleTask();
  });
  if (wrong) files_.conflictIs(name, *wrong);
}

void Configuration::run() { pending_ ? carryOn() : commitNext(); }

Json Configuration::report() const {
  Json sources = Json::array({sourceJson(commandLine, commandLine_, appliedAt_)});
  for (const auto& [name, model] : inputs_) sources.push_back(sourceJson(name, model, appliedAt_));
  Json bad = Json::array();
  const std::string& dir = files_.dir();
  if (const auto& why = files_.unreadable(); !why.empty())
    bad.push_back({{"name", dir}, {"kept", true}, {"mistakes", why}});
  for (const auto& [name, mistakes] : files_.bad())
    bad.push_back({{"name", name}, {"kept", inputs_.contains(name)}, {"mistakes", mistakes}});
  return {{"directory", dir.empty() ? Json(nullptr) : Json(dir)},
          {"changing", busy()},
          {"sources", std::move(sources)},
          {"bad", std::move(bad)}};
}

std::vector<std::string> Configuration::trailingRemarks(const std::string& source,
                                                        const Config::Model::ListKey& list) const {
  const Config::Model* model = source == "cli" ? &commandLine_ : nullptr;
  if (const auto input = inputs_.find(source); !model && input != inputs_.end()) model = &input->second;
  if (!model) return {};
  const auto known = model->lists.find(list);
  return known == model->lists.end() ? std::vector<std::string>() : known->second.pendingRemarks;
}

}  // namespace Agent
