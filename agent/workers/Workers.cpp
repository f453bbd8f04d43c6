#include <agent/workers/Handover.h>
#include <agent/workers/Stations.h>
#include <agent/workers/WorkerMember.h>
#include <fmt/format.h>
#include <sys/epoll.h>

#include <algorithm>
#include <utility>

namespace Agent {

namespace {

/// A worker that dies as soon as it is there is not started again and again at once; one that cannot begin at
/// all, seldomer and seldomer.
constexpr Kelp::Duration untilNextStart{1.0};
constexpr Kelp::Duration mostUntilNextStart{30.0};
/// A worker tells its counts some times a second. One that is silent for so long is stuck. One that has not
/// begun says nothing, but reads and compiles lists, which can take minutes: it is stuck when it has not had
/// a processor for so long, either.
constexpr Kelp::Duration longestSilence{10.0};
/// One that is busy for so long and has not begun is stuck, too.
constexpr Kelp::Duration longestBeginning{600.0};
constexpr Kelp::Duration watchEvery{1.0};
/// When this process has not looked for so long, it was stopped itself.
constexpr Kelp::Duration longestPause{5.0};
/// How long their ends may take: the rest of the time at an end is this process's own.
constexpr double mostToEndWorkers = 0.8;

}  // namespace

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
  const Kelp::Duration now = loop_.turnClock().now();
  std::optional<Kelp::Duration> next;
  std::string handover;
  for (const auto& member : members_) {
    if (member->process) continue;
    if (member->due <= now && handover.empty()) handover = handoverText(core_, options_.sources());
    if (member->due <= now) start(*member, handover);
    if (!member->process) next = std::min(next.value_or(member->due), member->due);
  }
  if (next) again_->scheduleTaskDelay(*next - now);
}

void Workers::startLater(Member& member, Kelp::Duration delay) {
  member.due = loop_.turnClock().now() + delay;
  again_->scheduleTaskDelay(Kelp::Duration());
}

void Workers::start(Member& member, const std::string& handover) {
  std::string wrong;
  Descriptor line;
  member.process = WorkerProcess::start(member.number, options_.handed, line, wrong);
  if (!member.process) {
    if (opening_) failed_ = wrong;
    tellOnce(member, "cannot be started: " + wrong);
    return startLater(member, delayAfterFailure(member));
  }
  ++member.starts;
  member.begun = member.refused = member.asked = false;
  member.started = member.heard = loop_.turnClock().now();
  member.used = Kelp::Duration();
  member.channel = std::make_unique<Channel>(
      loop_, std::move(line), [this, &member](auto message) { handle(member, std::move(message)); });
  loop_.fdIs(member.process->fd(), EPOLLIN, [this, &member](uint32_t) { handleGone(member); });
  member.channel->send(opening_ ? MessageKind::begin : MessageKind::beginAgain, handover);
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
      member.delay = Kelp::Duration();
      member.overtaken = 0;
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
      sums_.add(text, member.counts);
      return tellLinks(member.counts);
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
  const CountSums::Worker counts = std::exchange(member.counts, {});
  if (!ending_) tellLinks(counts);
  const bool begun = std::exchange(member.begun, false);
  const bool asked = std::exchange(member.asked, false), ended = std::exchange(member.owes, false) && !asked;
  if (opening_ && !failed_) failed_ = fmt::format("worker {} {}", member.number, how);
  if (!opening_ && !ending_) {
    if (ended)
      tell(Severity::notice, member, "begins anew: the configuration has changed before it had begun");
    else if (begun)
      tell(Severity::error, member, fmt::format("(pid {}) {}: what waited there is lost", pid, how));
    else if (!member.refused)
      tellOnce(member, how + " before it had begun");
  }
  const bool quick = loop_.turnClock().now() - member.started < untilNextStart;
  startLater(member, ended    ? Kelp::Duration()
                     : !begun ? delayAfterFailure(member)
                     : quick  ? untilNextStart
                              : Kelp::Duration());
  settleGathering();
  settle();
}

Kelp::Duration Workers::delayAfterFailure(Member& member) {
  member.delay = std::clamp(member.delay + member.delay, untilNextStart, mostUntilNextStart);
  return member.delay;
}

void Workers::tellLinks(const CountSums::Worker& of) const {
  if (!options_.linkIs) return;
  for (const auto& [name, own] : of.live) {
    std::optional<Link> link;
    for (const auto& member : members_) {
      const auto live = member->counts.live.find(name);
      if (live == member->counts.live.end() || !live->second.present) continue;
      if (!link) link = Link{.name = name, .index = 0, .up = false, .mtu = live->second.mtu};
      link->up = link->up || live->second.up;
      link->mtu = std::min(link->mtu, live->second.mtu);
    }
    options_.linkIs(name, link);
  }
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
  // Who was stopped itself has heard nobody. They may have spoken last some time before it looked last.
  const bool wasStopped = now - std::exchange(watched_, now) >= longestPause;
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
