#include <Acl/Workshop.h>
#include <Kiv/Clock.h>
#include <agent/change/ContentChange.h>
#include <agent/change/TypedChanges.h>
#include <agent/config/Reader.h>
#include <agent/core/Words.h>
#include <agent/models/Reader.h>

#include <tuple>
#include <utility>

namespace Agent {

namespace {

/// What the change is called that takes back what nobody has confirmed.
constexpr const char* returnWord = "return";

double seconds() { return Kiv::steadyClock().now().seconds(); }

}  // namespace

/// Texts for the command line's source. They are prepared on the thread.
struct TypedChanges::Texts {
  Request request;
  Done done;
  Outcome outcome{};
  ContentChange change{{commandLineName, {}}};

  void prepare(const CurrentConfig& current, const TextLimits& limits) {
    const double start = seconds();
    MadeModel made = request.make ? std::exchange(request.make, {})(current.sources()) : readTexts(limits);
    outcome.mistakes = std::move(made.mistakes);
    if (made.model) compare(current, *made.model);
    change.content.model = std::move(made.model);
    outcome.prepareSeconds = seconds() - start;
  }
  MadeModel readTexts(const TextLimits& limits) {
    const std::vector<Config::Source> all = read(limits);
    if (!outcome.mistakes.empty()) return {std::nullopt, std::move(outcome.mistakes)};
    Config::Result result = Models::read(all, {}, mostMistakes, limits.yangDirs);
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
  void compare(const CurrentConfig& current, const Config::Model& now) {
    PreparedChange& prepared = change.prepared;
    Difference found = prepared.prepare(current.before(), commandLineName, &now,
                                        {request.what, request.who, request.leave, request.dryRun});
    outcome.summary = std::move(found.summary);
    outcome.difference = std::move(found.json);
    outcome.warnings = std::move(prepared.told);
    outcome.refused = prepared.refused;
  }
  bool changesSomething() const { return !change.prepared.change.summary.empty(); }
  bool isToBeConfirmed() const { return request.confirm && changesSomething(); }
  /// Mistakes and refusals are told, too. A dry run is not told, because it changes nothing.
  void tell(const TellLog& log) {
    if (request.dryRun) return;
    ChangeEvent event = change.event(request.who, outcome.summary);
    if (request.what == returnWord) event.done = "taken back", event.who = "velo run, as nobody confirmed";
    if (!outcome.applied) {
      const auto& mistakes = outcome.mistakes;
      event.refused = outcome.refused    ? *outcome.refused
                      : mistakes.empty() ? ""
                                         : mistakes.front() + (mistakes.size() > 1 ? " ..." : "");
    }
    tellChange(log, event);
  }
  bool isCarriedOut() const { return !request.dryRun && !outcome.refused; }
  /// Frees everything that was prepared, beside the loop, because it may be much. Nothing in force shares any
  /// of it.
  void fail(const std::string& why) {
    Outcome failed;
    failed.mistakes = {why};
    failed.prepareSeconds = outcome.prepareSeconds;
    Warnings fresh = std::move(change.prepared.fresh);  // are told with the mistake
    Acl::Workshop::singleton().dispose(
        std::tuple(std::exchange(request.texts, {}), std::exchange(request.make, {}),
                   std::exchange(change.content.model, std::nullopt), std::exchange(change.prepared, {}),
                   std::exchange(outcome, std::move(failed))));
    change.prepared.fresh = std::move(fresh);
  }
};

TypedChanges::TypedChanges(EventLoop& loop, CurrentConfig& current, Confirmation& confirmation,
                           TextLimits limits, SharedText text, std::function<void(bool applied)> ended)
    : current_(current),
      confirmation_(confirmation),
      limits_(std::move(limits)),
      ended_(std::move(ended)),
      text_(std::move(text)),
      background_(loop) {}

bool TypedChanges::begin() {
  if (waiting_.empty()) return false;
  auto [request, done] = std::move(waiting_.front());
  waiting_.pop_front();
  begin(std::move(request), std::move(done));
  return true;
}

void TypedChanges::begin(Request request, Done done) {
  const auto job = std::make_shared<Texts>(Texts{std::move(request), std::move(done)});
  background_.run([this, job] { job->prepare(current_, limits_); },
                  [this, job](const std::optional<std::string>& failed) {
                    if (failed) job->fail(*failed);
                    handlePrepared(job);
                  });
}

void TypedChanges::handlePrepared(const std::shared_ptr<Texts>& texts) {
  ContentChange& change = texts->change;
  if (!change.content.model) return answer(*texts);
  if (!texts->isCarriedOut()) {
    const auto wrong = current_.commit.whyNot(change.content);
    current_.commit.discard(std::exchange(change.content.model, std::nullopt));
    if (wrong) texts->fail(*wrong);
    return answer(*texts);
  }
  if (const auto wrong = whyNot(*texts)) return fail(*texts, *wrong);
  if (!texts->isToBeConfirmed()) return take(texts);
  confirmation_.keep(change.prepared.change.text, text_, [this, texts](const auto& wrong) {
    if (wrong) return fail(*texts, *wrong);
    take(texts);
  });
}

/// Why a change cannot begin while another one waits to be confirmed.
std::optional<std::string> TypedChanges::whyNot(const Texts& texts) {
  const auto within = confirmation_.within();
  if (!within || texts.request.confirm || texts.request.takesBack) return std::nullopt;
  return waitsText(*within);
}

/// A change does not begin.
void TypedChanges::fail(Texts& texts, const std::string& why) {
  texts.change.drop(current_);
  texts.fail(why);
  answer(texts);
}

void TypedChanges::take(const std::shared_ptr<Texts>& texts) {
  texts->change.carryOut(current_, [this, texts](const ContentChange::End& end) {
    if (end.refused) return handleRefused(*texts, *end.refused);
    texts->outcome.applied = true;
    texts->outcome.commitSeconds = end.longestTurn;
    handleApplied(*texts);
    answer(*texts);
  });
}

void TypedChanges::handleRefused(Texts& texts, const std::string& why) {
  if (texts.isToBeConfirmed()) confirmation_.isDropped();
  fail(texts, why);
}

void TypedChanges::handleApplied(Texts& texts) {
  const PreparedChange& prepared = texts.change.prepared;
  const bool changes = texts.changesSomething();
  if (changes) text_ = prepared.change.text;
  // A start brings back what was before an unconfirmed change, and is compared with that.
  texts.change.isInForce(current_, texts.request.confirm ? nullptr : prepared.filtered, changes);
  if (changes && texts.request.confirm) return confirmation_.isInForce(*texts.request.confirm);
  if (changes || texts.request.takesBack) confirmation_.isOver(texts.request.what == returnWord);
}

void TypedChanges::answer(Texts& texts) {
  const bool applied = texts.outcome.applied;
  const bool isKnown = texts.outcome.mistakes == std::vector{confirmation_.whyNotReturned()};
  if (!isKnown || texts.request.what != returnWord) texts.tell(current_.tell);
  texts.done(std::move(texts.outcome));
  ended_(applied);
}

void TypedChanges::takeBack(const SharedText& before) {
  Request request{.who = "nobody confirmed",
                  .leave = {.openings = true},
                  .what = returnWord,
                  .make =
                      [before](const Sources&) {
                        Config::Result result = Config::read({{textThatComesBack, *before}});
                        return MadeModel{std::move(result.model), textsOf(result.mistakes)};
                      },
                  .takesBack = true};
  begin(std::move(request), [this](const Outcome& outcome) {
    if (!outcome.applied) confirmation_.notReturned(outcome.mistakes.empty() ? "" : outcome.mistakes.front());
  });
}

}  // namespace Agent
