#include <Acl/Workshop.h>
#include <Kiv/Clock.h>
#include <Zeb/System.h>
#include <agent/change/Configuration.h>
#include <agent/change/Difference.h>
#include <agent/config/Writer.h>
#include <agent/core/Reserve.h>
#include <agent/core/Words.h>
#include <agent/models/Reader.h>

#include <algorithm>
#include <tuple>
#include <utility>

namespace Agent {

namespace {

/// What the change is called that takes back what nobody has confirmed.
constexpr const char* returnWord = "return";
/// How long to wait before looking again whether the journal has kept what it got, whether another change is
/// over, and before trying again what went wrong.
constexpr Kelp::Duration untilKept{0.001}, untilFree{0.05}, untilNextTry{5};

double seconds() { return Kiv::steadyClock().now().seconds(); }

}  // namespace

/// Texts for the command line's source. They are prepared on the thread.
struct Configuration::Texts {
  Request request;
  Done done;
  Outcome outcome{};
  std::optional<Config::Model> model{};
  PreparedChange prepared{};
  std::optional<Unconfirmed> earlier{};  ///< before this change, if it is to be confirmed

  void prepare(const Configuration& all) {
    const double start = seconds();
    MadeModel made = request.make ? std::exchange(request.make, {})(all.sources()) : readTexts(all.limits_);
    outcome.mistakes = std::move(made.mistakes);
    if (made.model) compare(all, *made.model);
    model = std::move(made.model);
    outcome.prepareSeconds = seconds() - start;
  }
  MadeModel readTexts(const TextLimits& limits) {
    const std::vector<Config::Source> all = read(limits);
    if (!outcome.mistakes.empty()) return {std::nullopt, std::move(outcome.mistakes)};
    Config::Result result = Models::read(all, {}, mostMistakes);
    return {std::move(result.model), textsOf(result.mistakes)};
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
    Difference found = prepared.prepare(all.before(), commandLineName, &now,
                                        {request.what, request.who, request.leave, request.dryRun});
    outcome.summary = std::move(found.summary);
    outcome.difference = std::move(found.json);
    outcome.warnings = std::move(prepared.told);
    outcome.refused = prepared.refused;
  }
  bool changesSomething() const { return !prepared.change.summary.empty(); }
  bool isToBeConfirmed() const { return request.confirm && changesSomething(); }
  /// Mistakes and refusals are told, too; a dry run is nobody's business.
  void tell(const TellLog& log) {
    if (request.dryRun) return;
    ChangeEvent event{request.who, commandLineName, summaryText(outcome.summary)};
    if (request.what == returnWord) event.done = "taken back", event.who = "velo run, as nobody confirmed";
    if (!outcome.applied) {
      const auto& mistakes = outcome.mistakes;
      event.refused = outcome.refused    ? *outcome.refused
                      : mistakes.empty() ? ""
                                         : mistakes.front() + (mistakes.size() > 1 ? " ..." : "");
    }
    event.warnings = std::move(prepared.fresh);
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
        std::exchange(request.texts, {}), std::exchange(request.make, {}), std::exchange(model, std::nullopt),
        std::exchange(prepared.writes, {}), std::exchange(prepared.lasting, {}),
        std::exchange(prepared.change, {}), std::exchange(outcome, std::move(failed))));
  }
};

Configuration::Configuration(Core& core, Forwarder& forwarder, EventLoop& loop, ConfigFiles files,
                             Options options)
    : leave_(options.leave),
      limits_(options.limits),
      ports_(std::move(options.ports)),
      warnings_(std::move(options.warnings)),
      filtered_(std::move(options.filtered)),
      tell_(options.tell),
      clock_(loop.turnClock()),
      task_(0, "Configuration", [this] { commitNext(); }),
      history_(std::move(options.past), options.journal),
      wait_(0, "ConfigurationWait", [this] { handleWait(); }),
      deadline_(0, "ConfigurationDeadline", [this] { handleDeadline(); }),
      commit_(core, forwarder, loop.reserve(), files.takeSources(), std::move(options.applied)),
      restart_(loop, {std::move(options.paths), options.dir, limits_, leave_, ports_}),
      background_(loop),
      files_(
          loop, std::move(options.dir), limits_, files.contents(), [this] { return !busy(); },
          [this](DirectoryFiles::Found found) { handleFound(std::move(found)); }, options.tell) {
  rememberStart();
}

/// What an agent starts with is a change if it is not what the last one ended with.
void Configuration::rememberStart() {
  history_.filteredIs(filtered_);
  rememberFiles();
  const Config::Model& now = sources().commandLine;
  text_ = std::make_shared<const std::string>(Config::textOf(now));
  const Change* last = history_.last();
  if (last && last->text && *last->text == *text_) return history_.keep();
  const Config::Result before = Config::read({{"", last && last->text ? *last->text : std::string()}});
  const Difference found = difference(before.model.value_or(Config::Model()), now);
  tellChange(tell_, {.who = "velo run", .source = commandLineName, .summary = summaryText(found.summary)});
  remember({.what = "start",
            .who = "velo run",
            .source = sourceTitle(commandLineName),
            .summary = found.summary,
            .text = text_,
            .difference = found.line()});
}

void Configuration::remember(Change change) {
  change.time = Zeb::System::currentTime().seconds();
  history_.add(std::move(change));
}

bool Configuration::apply(Request request, Done done) {
  if (busy()) return false;
  prepare(std::move(request), std::move(done));
  return true;
}

void Configuration::applyLater(Request request, Done done) {
  waiting_.emplace_back(std::move(request), std::move(done));
  task_->scheduleTask();
}

PreparedChange::Before Configuration::before() const { return {sources(), warnings_, ports()}; }

void Configuration::prepare(Request request, Done done) {
  const auto job = std::make_shared<Texts>(Texts{std::move(request), std::move(done)});
  background_.run([this, job] { job->prepare(*this); },
                  [this, job](const std::optional<std::string>& failed) {
                    if (failed) job->fail(*failed);
                    handlePrepared(job);
                  });
}

void Configuration::handlePrepared(const std::shared_ptr<Texts>& texts) {
  if (!texts->model) return answer(*texts);
  if (!texts->isCarriedOut()) {
    NewContent change{commandLineName, std::move(texts->model)};
    const auto wrong = commit_.whyNot(change);
    commit_.discard(std::move(change.model));
    if (wrong) texts->fail(*wrong);
    return answer(*texts);
  }
  if (const auto wrong = whyNot(*texts)) {
    commit_.discard(std::move(texts->model));
    texts->fail(*wrong);
    return answer(*texts);
  }
  if (texts->isToBeConfirmed()) return mustBeConfirmed(texts);
  begin(texts);
}

/// Why a change cannot begin while another one waits to be confirmed.
std::optional<std::string> Configuration::whyNot(const Texts& texts) {
  if (!deadlineAt_ || texts.request.confirm || texts.request.takesBack) return std::nullopt;
  return waitsText(*confirmWithin());
}

void Configuration::begin(const std::shared_ptr<Texts>& texts) {
  const auto refusal = commit_.begin({commandLineName, std::move(texts->model)},
                                     std::move(texts->prepared.writes), [this, texts](double longestTurn) {
                                       texts->outcome.applied = true;
                                       warnings_ = std::move(texts->prepared.lasting);
                                       texts->outcome.commitSeconds = longestTurn;
                                       handleApplied(*texts);
                                       answer(*texts);
                                     });
  if (!refusal) return;
  if (texts->isToBeConfirmed()) history_.unconfirmedIs(texts->earlier);
  texts->fail(refusal->why);
  answer(*texts);
}

void Configuration::handleApplied(Texts& texts) {
  const bool changes = texts.changesSomething();
  filtered_ = texts.prepared.filtered;
  // A start brings back what was before an unconfirmed change, and is compared with that.
  if (!texts.request.confirm) history_.filteredIs(filtered_);
  if (changes) {
    text_ = texts.prepared.change.text;
    remember(std::move(texts.prepared.change));
  }
  if (changes && texts.request.confirm) {
    deadlineAt_ = now() + *texts.request.confirm;
    deadline_->cancelTask();  // of an earlier one: it would come too early
    deadline_->scheduleTaskDelay(Kelp::Duration(*texts.request.confirm));
    return;
  }
  if (!changes && !texts.request.takesBack) return;
  notReturned_.clear();
  if (std::exchange(deadlineAt_, std::nullopt)) deadline_->cancelTask();
  // A start is not to bring back what nobody confirmed, even if the files say it.
  if (texts.request.what != returnWord) history_.unconfirmedIs(std::nullopt);
}

void Configuration::answer(Texts& texts) {
  const bool applied = texts.outcome.applied;
  const bool isKnown = texts.outcome.mistakes == std::vector{notReturned_};
  if (!isKnown || texts.request.what != returnWord) texts.tell(tell_);
  texts.done(std::move(texts.outcome));
  if (applied) files_.conflictsAreDue();
  commitNext();
}

// Changes that are to be confirmed.

/// Waits until the journal has what was before.
void Configuration::mustBeConfirmed(const std::shared_ptr<Texts>& texts) {
  texts->earlier = history_.unconfirmed();
  history_.unconfirmedIs(
      Unconfirmed{texts->prepared.change.text, deadlineAt_ ? texts->earlier->before : text_});
  unkept_ = texts;
  handleWait();
}

void Configuration::handleWait() {
  const ChangeJournal::State state = history_.kept();
  if (state == ChangeJournal::State::writing) return wait_->scheduleTaskDelay(untilKept);
  const bool failed = state == ChangeJournal::State::failed;
  const std::optional<std::string> wrong =
      failed ? std::optional<std::string>("the state file cannot be written") : std::nullopt;
  for (const auto& done : std::exchange(confirming_, {})) done(wrong);
  const auto texts = std::exchange(unkept_, nullptr);
  if (!texts) return;
  if (!failed) return begin(texts);
  history_.unconfirmedIs(texts->earlier);
  commit_.discard(std::move(texts->model));
  texts->fail(*wrong);
  answer(*texts);
}

std::optional<double> Configuration::confirmWithin() const {
  if (!deadlineAt_) return std::nullopt;
  return std::max(*deadlineAt_ - now(), 0.0);
}

void Configuration::confirm(const std::string& who, const Confirmed& done) {
  const auto told = [this, who, done](const std::optional<std::string>& wrong) {
    tellChange(tell_, {.who = who,
                       .source = commandLineName,
                       .summary = {},
                       .refused = wrong.value_or(""),
                       .done = "confirmed"});
    done(wrong);
  };
  if (!deadlineAt_ || unkept_) return told("no change waits to be confirmed");
  deadlineAt_.reset();
  notReturned_.clear();
  deadline_->cancelTask();
  history_.filteredIs(filtered_);
  history_.unconfirmedIs(std::nullopt);
  // Files that would have been openings only in what was before are none now.
  files_.conflictsAreDue();
  task_->scheduleTask();
  confirming_.push_back(told);
  handleWait();
}

/// Takes back what nobody has confirmed.
void Configuration::handleDeadline() {
  if (!deadlineAt_) return;
  const SharedText before = history_.unconfirmed()->before;
  // It restores what was in force: no warning keeps it from that.
  Request request{.who = "nobody confirmed",
                  .leave = {.openings = true},
                  .what = returnWord,
                  .make =
                      [before](const Sources&) {
                        Config::Result result = Config::read({{textThatComesBack, *before}});
                        return MadeModel{std::move(result.model), textsOf(result.mistakes)};
                      },
                  .takesBack = true};
  const auto done = [this](const Outcome& outcome) { handleReturned(outcome); };
  if (!apply(std::move(request), done)) deadline_->scheduleTaskDelay(untilFree);
}

void Configuration::handleReturned(const Outcome& outcome) {
  notReturned_ = outcome.applied || outcome.mistakes.empty() ? "" : outcome.mistakes.front();
  if (!outcome.applied && deadlineAt_) deadline_->scheduleTaskDelay(untilNextTry);
}

void Configuration::savedIs(const std::string& who, const std::string& file, const std::string& wrong) {
  const std::string done = file.empty() ? "saved" : "saved in " + file;
  tellChange(tell_, {.who = who, .source = commandLineName, .summary = {}, .refused = wrong, .done = done});
}

}  // namespace Agent
