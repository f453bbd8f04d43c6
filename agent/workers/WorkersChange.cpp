// The part of the first process's side of its workers that has them carry out changes, and tell their counts.
#include <agent/workers/Channel.h>
#include <agent/workers/Handover.h>
#include <agent/workers/WorkerMember.h>
#include <fmt/format.h>

#include <algorithm>
#include <iterator>
#include <utility>

namespace Agent {

namespace {

/// How long whoever asks waits for the last counts.
constexpr Kelp::Duration untilShown{0.5};
/// A change does not wait for a worker that is started again and compiles its lists: that one begins once
/// more, with what is in force then. But where changes come so often that it never gets to its end, they
/// wait.
constexpr unsigned mostOvertaken = 3;

}  // namespace

void Workers::getReady(const SourceChange& change, Heard heard) {
  step_ = Step::gettingReady;
  heard_ = std::move(heard);
  refused_.reset();
  for (const auto& member : members_) {
    const bool compiles = member->channel && !member->begun;
    member->asked = member->channel && (!compiles || member->overtaken >= mostOvertaken);
    member->owes = member->asked;
  }
  sendToAsked(MessageKind::getReady, changeOrderText(change));
  settle();
}

void Workers::drop() {
  sendToAsked(MessageKind::drop, {});
  over();
}

void Workers::carryOut(std::function<void()> done) {
  step_ = Step::carryingOut;
  done_ = std::move(done);
  for (const auto& member : members_) {
    member->owes = member->channel != nullptr;
    if (!member->owes || member->asked) continue;
    // It would go on with what was in force when it was started.
    ++member->overtaken;
    member->process->kill();
  }
  sendToAsked(MessageKind::carryOut, {});
  settle();
}

void Workers::sendToAsked(MessageKind kind, const std::string& text) {
  for (const auto& member : members_) {
    if (member->channel && member->asked) member->channel->send(kind, text);
  }
}

void Workers::over() {
  step_ = Step::none;
  again_->scheduleTaskDelay(Kelp::Duration());
}

void Workers::settle() {
  if (std::any_of(members_.begin(), members_.end(), [](const auto& each) { return each->owes; })) return;
  if (step_ == Step::gettingReady) {
    step_ = Step::ready;
    std::exchange(heard_, nullptr)(refused_);
  } else if (step_ == Step::carryingOut) {
    step_ = Step::carriedOut;
    std::exchange(done_, nullptr)();
  }
}

void Workers::gather(std::function<void()> then) {
  gathering_.push_back({++gatherings_, std::move(then)});
  for (const auto& member : members_) {
    if (member->begun) member->channel->send(MessageKind::gather, std::to_string(gatherings_));
  }
  patience_->scheduleTaskDelay(untilShown);
  settleGathering();
}

void Workers::settleGathering() {
  uint64_t done = gatherings_;
  for (const auto& member : members_) {
    if (member->begun) done = std::min(done, member->gathered);
  }
  std::vector<Gathering> left;
  for (Gathering& each : std::exchange(gathering_, {})) {
    if (each.number <= done)
      each.then();
    else
      left.push_back(std::move(each));
  }
  gathering_.insert(gathering_.begin(), std::make_move_iterator(left.begin()),
                    std::make_move_iterator(left.end()));
  if (gathering_.empty()) patience_->cancelTask();
}

}  // namespace Agent
