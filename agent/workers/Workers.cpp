#include <agent/workers/Channel.h>
#include <agent/workers/Handover.h>
#include <agent/workers/Stations.h>
#include <agent/workers/WorkerProcess.h>
#include <agent/workers/Workers.h>
#include <fmt/format.h>
#include <sys/epoll.h>

#include <algorithm>
#include <utility>

namespace Agent {

namespace {

/// A worker that dies as soon as it is there is not started again and again at once.
constexpr Kelp::Duration untilNextStart{1.0};
/// A worker tells its counts some times a second. One that is silent for so long is stuck. One that has not
/// begun says nothing, but reads and compiles lists, which can take minutes: it is stuck when it has not had
/// a processor for so long, either.
constexpr Kelp::Duration longestSilence{10.0};
/// One that is busy for so long and has not begun is stuck, too.
constexpr Kelp::Duration longestBeginning{600.0};
constexpr Kelp::Duration watchEvery{1.0};
/// How long whoever asks waits for the last counts.
constexpr Kelp::Duration untilShown{0.5};
/// How long their ends may take: the rest of the time at an end is this process's own.
constexpr double mostToEndWorkers = 0.8;

}  // namespace

struct Workers::Member {
  unsigned number = 0;
  std::unique_ptr<WorkerProcess> process{};
  std::unique_ptr<Channel> channel{};
  bool begun = false;
  bool refused = false;   ///< it has said why it cannot begin
  bool owes = false;      ///< an answer, to the step of the change
  uint64_t gathered = 0;  ///< up to this number its counts are here
  CountSums::Worker counts{};
  Kelp::Duration started{};
  Kelp::Duration heard{};  ///< when it last gave a sign of life
  Kelp::Duration used{};   ///< how long it had had a processor then
  uint64_t starts = 0;
  std::string wrong{};  ///< why it could not begin the last time, as it was told
};

Workers::Workers(Core& core, Forwarder& forwarder, EventLoop& loop, Options options)
    : core_(core),
      forwarder_(forwarder),
      loop_(loop),
      options_(std::move(options)),
      sums_(core, forwarder),
      again_(0, "Workers", [this] { startMissing(); }),
      watch_(0, "WorkersWatch", [this] { watch(); }),
      patience_(0, "WorkersPatience", [this] {
        for (auto& each : std::exchange(gathering_, {})) each.then();
      }) {
  for (unsigned number = 1; number <= options_.count; ++number)
    members_.push_back(std::make_unique<Member>(Member{.number = number}));
}

Workers::~Workers() {
  for (const auto& member : members_) {
    if (member->process) loop_.fdDel(member->process->fd());
  }
}

std::optional<std::string> Workers::start(const std::function<bool()>& stop) {
  opening_ = true;
  watch_->scheduleTaskDelay(watchEvery);
  startMissing();
  const auto begun = [this] {
    return std::all_of(members_.begin(), members_.end(), [](const auto& each) { return each->begun; });
  };
  while (!failed_ && !begun() && !stop()) loop_.turn(-1);
  opening_ = false;
  return failed_;
}

void Workers::startMissing() {
  // What is in force is handed over as a whole: not in the middle of a change.
  if (ending_ || step_ != Step::none) return;
  for (const auto& member : members_) {
    if (!member->process) start(*member);
  }
}

void Workers::start(Member& member) {
  std::string wrong;
  Descriptor line;
  member.process = WorkerProcess::start(member.number, options_.handed, line, wrong);
  if (!member.process) {
    if (opening_) failed_ = wrong;
    tellOnce(member, "cannot be started: " + wrong);
    return again_->scheduleTaskDelay(untilNextStart);
  }
  ++member.starts;
  member.begun = member.refused = false;
  member.started = member.heard = loop_.turnClock().now();
  member.used = Kelp::Duration();
  member.channel = std::make_unique<Channel>(
      loop_, std::move(line), [this, &member](auto message) { handle(member, std::move(message)); });
  loop_.fdIs(member.process->fd(), EPOLLIN, [this, &member](uint32_t) { handleGone(member); });
  member.channel->send(MessageKind::begin, handoverText(core_, options_.sources()));
}

void Workers::handle(Member& member, std::optional<Message> message) {
  if (!message) return;  // its end is told by its process
  member.heard = loop_.turnClock().now();
  const auto& [kind, text] = *message;
  switch (kind) {
    case MessageKind::begun:
      member.begun = true;
      member.gathered = gatherings_;
      member.wrong.clear();
      if (member.starts == 1) break;
      member.channel->send(MessageKind::stations, Stations::all(forwarder_));
      tell(Severity::notice, member, fmt::format("is there again (pid {})", member.process->pid()));
      break;
    case MessageKind::refused:
      member.refused = true;
      if (opening_ && !failed_) failed_ = text;
      if (!opening_) tellOnce(member, "cannot begin: " + text);
      break;
    case MessageKind::notReady:
      if (!refused_) refused_ = fmt::format("worker {}: {}", member.number, text);
      [[fallthrough]];
    case MessageKind::ready:
    case MessageKind::carriedOut:
      member.owes = false;
      return settle();
    case MessageKind::counts:
      return sums_.add(text, member.counts);
    case MessageKind::gathered:
      member.gathered = std::stoull(text);
      return settleGathering();
    case MessageKind::heard:
      Stations::learn(forwarder_, text);
      return sendAll(MessageKind::stations, text, &member);
    default:
      break;
  }
}

void Workers::handleGone(Member& member) {
  loop_.fdDel(member.process->fd());
  member.channel->read();  // what it has told before
  const std::string how = member.process->howEnded();
  const int pid = member.process->pid();
  member.channel.reset();
  member.process.reset();
  sums_.keep(member.counts);
  member.counts = {};
  const bool begun = std::exchange(member.begun, false);
  if (opening_ && !failed_) failed_ = fmt::format("worker {} {}", member.number, how);
  if (!opening_ && !ending_) {
    if (begun)
      tell(Severity::error, member, fmt::format("(pid {}) {}: what waited there is lost", pid, how));
    else if (!member.refused)
      tellOnce(member, how + " before it had begun");
  }
  const bool quick = loop_.turnClock().now() - member.started < untilNextStart;
  again_->scheduleTaskDelay(quick ? untilNextStart : Kelp::Duration());
  member.owes = false;
  settleGathering();
  settle();
}

void Workers::end() {
  ending_ = true;
  sendAll(MessageKind::end, {});
  const auto any = [this] {
    return std::any_of(members_.begin(), members_.end(),
                       [](const auto& each) { return each->process != nullptr; });
  };
  const Kelp::Duration begin = loop_.turnClock().now();
  constexpr int waitMs = 20;
  while (any() && (loop_.turnClock().now() - begin).seconds() < mostToEndWorkers) loop_.turn(waitMs);
}

void Workers::getReady(const SourceChange& change, Heard heard) {
  step_ = Step::gettingReady;
  heard_ = std::move(heard);
  refused_.reset();
  for (const auto& member : members_) member->owes = member->channel != nullptr;
  sendAll(MessageKind::getReady, changeOrderText(change));
  settle();
}

void Workers::drop() {
  sendAll(MessageKind::drop, {});
  over();
}

void Workers::carryOut(std::function<void()> done) {
  step_ = Step::carryingOut;
  done_ = std::move(done);
  for (const auto& member : members_) member->owes = member->channel != nullptr;
  sendAll(MessageKind::carryOut, {});
  settle();
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

bool Workers::isStuck(Member& member) {
  const Kelp::Duration now = loop_.turnClock().now();
  if (!member.begun) {
    const Kelp::Duration used = member.process->used();
    if (std::exchange(member.used, used) < used) member.heard = now;
    if (now - member.started >= longestBeginning) return true;
  }
  return now - member.heard >= longestSilence;
}

void Workers::watch() {
  watch_->scheduleTaskDelay(watchEvery);
  const Kelp::Duration now = loop_.turnClock().now();
  // Who was stopped itself has heard nobody.
  const bool wasStopped = now - std::exchange(watched_, now) >= longestSilence;
  for (const auto& member : members_) {
    if (wasStopped) member->heard = now;
    if (!member->process || !isStuck(*member)) continue;
    const std::string what = member->begun ? "does not answer" : "does not begin";
    tell(Severity::error, *member, what + ", and is ended");
    if (opening_ && !failed_) failed_ = fmt::format("worker {} {}", member->number, what);
    member->process->kill();
    member->heard = member->started = now;
  }
}

void Workers::sendAll(MessageKind kind, const std::string& text, const Member* except) {
  for (const auto& member : members_) {
    if (member->channel && member.get() != except) member->channel->send(kind, text);
  }
}

void Workers::tell(Severity severity, const Member& member, const std::string& text) const {
  if (!options_.tell) return;
  const std::string number = std::to_string(member.number);
  options_.tell({severity,
                 fmt::format("worker {} {}", number, text),
                 {{"VELO_EVENT", "worker"}, {"VELO_WORKER", number}}});
}

void Workers::tellOnce(Member& member, const std::string& text) const {
  if (text != member.wrong) tell(Severity::error, member, text);
  member.wrong = text;
}

std::vector<PortState> Workers::with(std::vector<PortState> states) const {
  std::vector<const CountSums::Worker*> all;
  for (const auto& member : members_) {
    if (member->begun) all.push_back(&member->counts);
  }
  sums_.addTo(states, all);
  return states;
}

std::vector<WorkerState> Workers::states() const {
  std::vector<WorkerState> states;
  for (const auto& member : members_) {
    states.push_back({member->number, member->process ? member->process->pid() : 0, member->begun,
                      member->starts, member->counts.totals});
  }
  return states;
}

}  // namespace Agent
