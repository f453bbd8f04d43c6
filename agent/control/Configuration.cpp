#include <Kiv/Clock.h>
#include <Zeb/System.h>
#include <agent/control/Configuration.h>
#include <agent/control/Difference.h>
#include <agent/show/Documents.h>

#include <algorithm>

namespace Agent {

using Json = nlohmann::ordered_json;

namespace {

/// Stands for the command line among the names of files, none of which is empty.
const std::string commandLine;
constexpr size_t mostMistakes = 100;

double seconds() { return Kiv::steadyClock().now().seconds(); }

std::vector<std::string> textsOf(const std::vector<Config::Mistake>& mistakes) {
  std::vector<std::string> texts;
  for (const auto& mistake : mistakes) texts.push_back(mistake.str());
  return texts;
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

  void prepare(const Config::Model& inForce) {
    const double start = seconds();
    Config::Result result = Config::read(sources, {}, mostMistakes);
    outcome.mistakes = textsOf(result.mistakes);
    model = std::move(result.model);
    if (model) outcome.difference = lineOf(difference(inForce, *model));
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
        changed.emplace_back(name, std::move(result.model));
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
      background_(loop) {
  commandLine_ = files.takeCommandLine();
  inputs_ = files.takeInputs();
  const double now = Zeb::System::currentTime().seconds();
  appliedAt_[commandLine] = now;
  for (const auto& [name, model] : inputs_) appliedAt_[name] = now;
  task_->dispatchIs([this] { commitNext(); }, this);
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
  const auto job = std::make_shared<Texts>(Texts{std::move(texts), dryRun, std::move(done), {}, {}});
  background_.run([this, job] { job->prepare(commandLine_); }, [this, job] { handlePrepared(*job); });
  return true;
}

void Configuration::handlePrepared(Texts& texts) {
  Outcome& outcome = texts.outcome;
  if (texts.model) {
    const double start = seconds();
    const auto wrong = texts.dryRun ? Core::whyNot(*texts.model, inputs_) : commit(texts.model, commandLine);
    outcome.commitSeconds = seconds() - start;
    if (wrong) outcome = {{*wrong}, {}, false, outcome.prepareSeconds, 0};
    outcome.applied = !wrong && !texts.dryRun;
    if (texts.model) discard_.take(std::move(*texts.model));
  }
  const bool applied = outcome.applied;
  texts.done(std::move(outcome));
  if (applied) touched_.merge(conflicts_);
  if (touchedAll_ || !touched_.empty()) scan();
}

std::optional<std::string> Configuration::commit(std::optional<Config::Model>& model,
                                                 const std::string& input) {
  Core::Changes changes;
  std::optional<Config::Model> before;
  const auto swap = [&](std::optional<Config::Model>& in, std::optional<Config::Model>& out) {
    if (changes.commandLine) {
      out = std::exchange(commandLine_, std::move(*in));
      return;
    }
    if (auto known = inputs_.find(input); known != inputs_.end()) {
      out = std::move(known->second);
      inputs_.erase(known);
    }
    if (in) inputs_.emplace(input, std::move(*in));
  };
  if (input == commandLine)
    changes.commandLine = true;
  else
    changes.inputs.insert(input);
  swap(model, before);
  if (auto wrong = core_.apply(commandLine_, inputs_, changes)) {
    swap(before, model);
    return wrong;
  }
  forwarder_.portsOfConfigurationIs();
  appliedAt_[input] = Zeb::System::currentTime().seconds();
  model = std::move(before);
  if (applied_) applied_();
  return std::nullopt;
}

void Configuration::handleFiles(const std::set<std::string>& names, bool all) {
  touched_.insert(names.begin(), names.end());
  touchedAll_ = touchedAll_ || all;
  if (!busy()) scan();
}

void Configuration::scan() {
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
    if (!scan.there.contains(name)) changes_.emplace_back(name, std::nullopt);
  }
  std::move(scan.changed.begin(), scan.changed.end(), std::back_inserter(changes_));
  task_->scheduleTask();
}

void Configuration::commitNext() {
  if (!changes_.empty()) {
    auto [name, model] = std::move(changes_.front());
    changes_.erase(changes_.begin());
    const bool gone = !model;
    if (auto wrong = commit(model, name)) {
      bad_[name] = {*wrong};
      conflicts_.insert(name);
    } else {
      // What stood in the way of others may have gone.
      conflicts_.erase(name);
      touched_.merge(conflicts_);
    }
    if (gone) appliedAt_.erase(name);
    if (model) discard_.take(std::move(*model));
  }
  if (!changes_.empty()) return task_->scheduleTask();
  if (touchedAll_ || !touched_.empty()) scan();
}

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
