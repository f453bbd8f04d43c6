#include <Kelp/Assert.h>
#include <Kiv/Clock.h>
#include <Zeb/System.h>
#include <agent/control/Configuration.h>
#include <agent/control/Difference.h>
#include <agent/show/Pieces.h>

#include <algorithm>

namespace Agent {

using Json = nlohmann::ordered_json;

namespace {

/// Stands for the command line among the names of files, none of which is empty.
const std::string commandLine;
constexpr size_t mostMistakes = 100;
/// How often it is looked whether lists have been compiled.
constexpr Kelp::Duration untilCompiled{0.001};

double seconds() { return Kiv::steadyClock().now().seconds(); }

std::vector<std::string> textsOf(const std::vector<Config::Mistake>& mistakes) {
  std::vector<std::string> texts;
  for (const auto& mistake : mistakes) texts.push_back(mistake.str());
  return texts;
}

/// In the pieces in which it is sent, so that it is not freed in one go.
std::deque<std::string> piecesOf(std::string_view line) {
  std::deque<std::string> pieces;
  for (; !line.empty(); line.remove_prefix(std::min(line.size(), pieceOctets)))
    pieces.emplace_back(line.substr(0, pieceOctets));
  return pieces;
}

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
    Config::Result result = Config::read(sources, {}, mostMistakes);
    sources = {};
    outcome.mistakes = textsOf(result.mistakes);
    if (result.model) {
      outcome.difference = piecesOf(lineOf(difference(inForce.commandLine, *result.model)));
      if (!dryRun) writes = sourceChange(inForce, commandLine, &*result.model);
    }
    model = std::move(result.model);
    outcome.prepareSeconds = seconds() - start;
  }
};

/// A look at the files of the directory on its way through the thread.
struct Configuration::Scan {
  std::set<std::string> names;
  bool all;
  std::set<std::string> there;
  std::vector<std::string> unreadable;  ///< why the directory cannot be read; then nothing else is known
  std::map<std::string, std::vector<std::string>> bad;
  std::set<std::string> good;
  std::vector<Change> changed;

  void prepare(const std::string& dir, const std::map<std::string, Config::Model>& inForce) {
    const auto files = configFilesIn(dir, unreadable);
    if (!unreadable.empty()) return;
    for (const auto& path : files) {
      const std::string name = path.filename().string();
      there.insert(name);
      if (all || names.contains(name) || !inForce.contains(name)) read(path.string(), name, inForce);
    }
  }

 private:
  void read(const std::string& path, const std::string& name,
            const std::map<std::string, Config::Model>& inForce) {
    std::vector<std::string> wrong;
    auto text = readText(path, wrong);
    if (text) {
      Config::Result result = Config::read({{path, std::move(*text)}}, {}, mostMistakes);
      wrong = textsOf(result.mistakes);
      const auto known = inForce.find(name);
      if (result.model && (known == inForce.end() || !(known->second == *result.model)))
        changed.push_back({name, std::move(result.model)});
    }
    if (wrong.empty())
      good.insert(name);
    else
      bad[name] = std::move(wrong);
  }
};

Configuration::Configuration(Core& core, Forwarder& forwarder, EventLoop& loop, ConfigFiles files,
                             std::string dir, std::function<void()> applied)
    : core_(core),
      forwarder_(forwarder),
      dir_(std::move(dir)),
      applied_(std::move(applied)),
      task_(Kiv::TaskSchedulerRoot::findOrCreateScheduler()->taskIs(0, "Configuration")),
      changeover_(core, discard_, [this] { handleSwitch(); }),
      background_(loop) {
  commandLine_ = files.takeCommandLine();
  inputs_ = files.takeInputs();
  const double now = Zeb::System::currentTime().seconds();
  appliedAt_[commandLine] = now;
  for (const auto& [name, model] : inputs_) appliedAt_[name] = now;
  task_->dispatchIs([this] { run(); }, this);
  if (dir_.empty()) return;
  watch_ = std::make_unique<DirectoryWatch>(
      loop, dir_, [this](const std::set<std::string>& names, bool all) { handleFiles(names, all); });
}

Configuration::~Configuration() {
  task_->cancelTask();
  task_->dispatchDel(this);
}

bool Configuration::apply(std::vector<Config::Source> texts, bool dryRun, Done done) {
  if (busy()) return false;
  const auto job = std::make_shared<Texts>(Texts{std::move(texts), dryRun, std::move(done), {}, {}, {}});
  background_.run([this, job] { job->prepare(sources()); }, [this, job] { handlePrepared(job); });
  return true;
}

void Configuration::handlePrepared(const std::shared_ptr<Texts>& texts) {
  if (!texts->model) return answer(*texts);
  std::optional<std::string> wrong;
  if (texts->dryRun) {
    wrong = Core::whyNot(*texts->model, inputs_);
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
  if (applied) touched_.merge(conflicts_);
  scanTouched();
}

// ---- A change is carried out.

std::optional<std::string> Configuration::commit(Change change, SourceChange writes, Committed done) {
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
  Change& change = finished.change;
  if (change.model) discard_.take(std::move(*change.model));
  if (applied_) applied_();
  finished.done(finished.longestTurn);
}

/// From here on the new configuration holds, with all that is not in lists and bindings.
void Configuration::handleSwitch() {
  Change& change = pending_->change;
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

void Configuration::exchange(Change& change) {
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

void Configuration::handleFiles(const std::set<std::string>& names, bool all) {
  touched_.insert(names.begin(), names.end());
  touchedAll_ = touchedAll_ || all;
  scanTouched();
}

void Configuration::scanTouched() {
  if (busy() || !(touchedAll_ || !touched_.empty())) return;
  const auto job = std::make_shared<Scan>();
  job->names = std::exchange(touched_, {});
  job->all = std::exchange(touchedAll_, false);
  background_.run([this, job] { job->prepare(dir_, inputs_); }, [this, job] { handleScanned(*job); });
}

void Configuration::handleScanned(Scan& scan) {
  if (!scan.unreadable.empty()) {
    bad_[dir_] = std::move(scan.unreadable);
    return;
  }
  bad_.erase(dir_);
  std::erase_if(bad_, [&scan](const auto& file) {
    return scan.good.contains(file.first) || !scan.there.contains(file.first);
  });
  for (auto& [name, wrong] : scan.bad) bad_[name] = std::move(wrong);
  for (const auto& [name, model] : inputs_) {
    if (!scan.there.contains(name)) changes_.push_back({name, std::nullopt});
  }
  std::move(scan.changed.begin(), scan.changed.end(), std::back_inserter(changes_));
  commitNext();
}

/// What a file changes depends on the files before it, and is found out when those are in force.
void Configuration::commitNext() {
  if (changes_.empty()) return scanTouched();
  struct Next {
    Change change;
    SourceChange writes;
  };
  const auto next = std::make_shared<Next>(Next{std::move(changes_.front()), {}});
  changes_.erase(changes_.begin());
  background_.run(
      [this, next] {
        const auto& model = next->change.model;
        next->writes = sourceChange(sources(), next->change.source, model ? &*model : nullptr);
      },
      [this, next] {
        const std::string name = next->change.source;
        const auto wrong = commit(std::move(next->change), std::move(next->writes), [this, name](double) {
          // What stood in the way of others may have gone.
          conflicts_.erase(name);
          touched_.merge(conflicts_);
          task_->scheduleTask();
        });
        if (!wrong) return;
        bad_[name] = {*wrong};
        conflicts_.insert(name);
        task_->scheduleTask();
      });
}

void Configuration::run() { pending_ ? carryOn() : commitNext(); }

Json Configuration::report() const {
  Json sources = Json::array({sourceJson(commandLine, commandLine_, appliedAt_)});
  for (const auto& [name, model] : inputs_) sources.push_back(sourceJson(name, model, appliedAt_));
  Json bad = Json::array();
  for (const auto& [name, mistakes] : bad_)
    bad.push_back({{"name", name}, {"kept", name == dir_ || inputs_.contains(name)}, {"mistakes", mistakes}});
  return {{"directory", dir_.empty() ? Json(nullptr) : Json(dir_)},
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
