#include <agent/change/Confirmation.h>

#include <algorithm>
#include <utility>

namespace Agent {

namespace {

/// How long to wait before looking again whether the journal has kept what it got, whether another change is
/// over, and before trying again what went wrong.
constexpr Kelp::Duration untilKept{0.001}, untilFree{0.05}, untilNextTry{5};

}  // namespace

Confirmation::Confirmation(History& history, const Kiv::Clock& clock, TakeBack takeBack)
    : history_(history),
      clock_(clock),
      takeBack_(std::move(takeBack)),
      wait_(0, "ConfigurationWait", [this] { handleWait(); }),
      deadline_(0, "ConfigurationDeadline", [this] { handleDeadline(); }) {}

std::optional<double> Confirmation::within() const {
  if (!deadlineAt_) return std::nullopt;
  return std::max(*deadlineAt_ - now(), 0.0);
}

void Confirmation::keep(SharedText now, const SharedText& text, Kept then) {
  earlier_ = history_.unconfirmed();
  history_.unconfirmedIs(Unconfirmed{std::move(now), waits() ? earlier_->before : text});
  then_ = std::move(then);
  handleWait();
}

void Confirmation::handleWait() {
  const ChangeJournal::State state = history_.kept();
  if (state == ChangeJournal::State::writing) return wait_->scheduleTaskDelay(untilKept);
  const bool failed = state == ChangeJournal::State::failed;
  const std::optional<std::string> wrong =
      failed ? std::optional<std::string>("the state file cannot be written") : std::nullopt;
  for (const auto& done : std::exchange(confirming_, {})) done(wrong);
  const Kept then = std::exchange(then_, nullptr);
  if (!then) return;
  if (failed) isDropped();
  then(wrong);
}

void Confirmation::isDropped() { history_.unconfirmedIs(std::move(earlier_)); }

void Confirmation::isInForce(double seconds) {
  deadlineAt_ = now() + seconds;
  deadline_->cancelTask();  // of an earlier one: it would come too early
  deadline_->scheduleTaskDelay(Kelp::Duration(seconds));
}

void Confirmation::confirm(Kept done) {
  isOver(false);
  confirming_.push_back(std::move(done));
  handleWait();
}

void Confirmation::isOver(bool returned) {
  notReturned_.clear();
  if (std::exchange(deadlineAt_, std::nullopt)) deadline_->cancelTask();
  // A start is not to bring back what nobody confirmed, even if the files say it.
  if (!returned) history_.unconfirmedIs(std::nullopt);
}

/// Takes back what nobody has confirmed.
void Confirmation::handleDeadline() {
  if (waits() && !takeBack_(before())) deadline_->scheduleTaskDelay(untilFree);
}

void Confirmation::notReturned(std::string why) {
  notReturned_ = std::move(why);
  if (waits()) deadline_->scheduleTaskDelay(untilNextTry);
}

}  // namespace Agent
