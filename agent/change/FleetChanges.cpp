#include <agent/change/FleetChanges.h>
#include <fmt/format.h>

#include <utility>

namespace Agent {

namespace {

/// How long content waits for which there was no memory.
constexpr Kelp::Duration untilMemory{30.0};

}  // namespace

/// Content that is to come into force. It is read and compared on the thread.
struct FleetChanges::Next {
  SharedFleetContent content, before{};
  InputChange change{};
  std::vector<std::string> mistakes{};

  /// Who changes the source, for history and log.
  std::string who() const { return fmt::format("the fleet, revision {}", content->revision); }
  void prepare(const CurrentConfig& current, const Options& options) {
    MadeModel made = readFleet(*content, options.limits);
    mistakes = std::move(made.mistakes);
    if (!made.model) return;
    change.content = {fleetName, std::move(made.model)};
    Leave leave = options.leave;
    leave.openings = leave.openings || mayOpen(before.get(), *content);
    change.prepare(current, {"fleet", who(), leave});
  }
  std::vector<std::string> openings() const {
    std::vector<std::string> texts;
    for (const Warning& warning : change.prepared.told)
      if (warning.consequence() == Consequence::opening) texts.push_back(warning.text);
    return texts;
  }
};

FleetChanges::FleetChanges(EventLoop& loop, CurrentConfig& current, const Confirmation& confirmation,
                           Options options, std::function<void()> next, std::function<void()> taken)
    : current_(current),
      confirmation_(confirmation),
      options_(std::move(options)),
      next_(std::move(next)),
      taken_(std::move(taken)),
      again_(0, "Fleet",
             [this] {
               if (!refused_) return;
               // As the next change, unless something newer is, or comes into force first.
               isConflict_ = true;
               refusedBy_.reset();
               next_();
             }),
      background_(loop) {}

void FleetChanges::contentIs(SharedFleetContent content) {
  pending_ = std::move(content);
  next_();
}

bool FleetChanges::isDue() const {
  return pending_ || (refused_ && isConflict_ && refusedBy_ != current_.sources().version);
}

bool FleetChanges::begin() {
  if (!isDue()) return false;
  const auto next = std::make_shared<Next>();
  next->content = pending_ ? std::exchange(pending_, nullptr) : refused_->content;
  next->before = inForce();
  next->change.before = confirmation_.before();
  background_.run([this, next] { next->prepare(current_, options_); },
                  [this, next](const std::optional<std::string>& failed) { handlePrepared(next, failed); });
  return true;
}

void FleetChanges::handlePrepared(const std::shared_ptr<Next>& next,
                                  const std::optional<std::string>& failed) {
  next_();
  InputChange& change = next->change;
  const bool isRefused = failed || !next->mistakes.empty() || change.prepared.refused;
  if (!isRefused && !change.same) return take(next);
  if (!isRefused) change.isSame(current_);
  change.drop(current_);
  if (failed) return refuse(*next, {*failed}, Again::later);
  if (!next->mistakes.empty()) return refuse(*next, next->mistakes, Again::no);
  if (change.prepared.refused) return refuse(*next, {*change.prepared.refused}, Again::withOtherSources);
  current_.history.fleetIs(next->content);
  current_.history.keep();
  handleInForce(*next);
}

void FleetChanges::take(const std::shared_ptr<Next>& next) {
  next->change.carryOut(current_, [this, next](const ContentChange::End& end) {
    if (!end.refused) return handleTaken(*next);
    refuse(*next, {*end.refused}, end.mayGoLater ? Again::later : Again::withOtherSources);
    next_();
  });
}

void FleetChanges::handleTaken(Next& next) {
  current_.history.fleetIs(next.content);
  next.change.isInForce(current_, next.who());
  handleInForce(next);
  taken_();
  next_();
}

void FleetChanges::handleInForce(const Next& next) {
  refused_.reset();
  if (told_) told_({next.content, {}, next.openings(), next.change.summary});
}

void FleetChanges::refuse(const Next& next, std::vector<std::string> wrong, Again again) {
  const bool isConflict = again == Again::withOtherSources;
  if (again == Again::later) again_->scheduleTaskDelay(untilMemory);
  isConflict_ = isConflict;
  refusedBy_ = current_.sources().version;
  Outcome outcome{next.content, std::move(wrong), next.openings(), next.change.summary};
  // What is tried again and refused again for the same reasons is told once.
  if (!refused_ || refused_->wrong != outcome.wrong) {
    if (isConflict)
      tellChange(current_.tell, {.who = next.who(),
                                 .source = fleetName,
                                 .summary = summaryText(outcome.summary),
                                 .refused = outcome.wrong.front()});
    else
      tellBadFile(current_.tell, next.who(), outcome.wrong);
  }
  refused_ = std::move(outcome);
  if (told_) told_(*refused_);
}

}  // namespace Agent
