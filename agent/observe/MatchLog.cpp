#include <Acl/RuleKinds.h>
#include <Kelp/Assert.h>
#include <agent/core/Words.h>
#include <agent/observe/MatchLog.h>
#include <fmt/format.h>

#include <algorithm>
#include <random>
#include <utility>

namespace Agent {

namespace {

uint64_t randomSeed() {
  std::random_device random;
  return uint64_t{random()} << 32 | random();
}

template <class Use>
bool withRuleOf(const Acl::AclSubConfig* rules, const MatchFollower::Key& key, const Use& use) {
  return rules && Acl::withRuleKind(key.aclType, [&](auto kind) {
           const auto* rule = kind.rules(*rules).find(key.ruleId);
           if (rule) use(static_cast<const Acl::RuleConfig&>(*rule));
           return rule != nullptr;
         });
}

/// Calls `use` with the rule of a counter as it is now; false when no source has the rule. It need not be in
/// force: an earlier agent may have counted for a list that another source's list has replaced.
template <class Use>
bool withRule(const Core& core, const MatchFollower::Key& key, const Use& use) {
  const auto inForce = core.inForce().list(key.aclType, key.aclName);
  if (inForce && withRuleOf(inForce->judging(), key, use)) return true;
  const auto names = core.sources();
  return std::any_of(names.begin(), names.end(), [&](const std::string& name) {
    const auto lists = core.source(name)->config(key.aclType);
    const auto list = lists ? lists->acl(key.aclName) : nullptr;
    return list && withRuleOf(list->currCfg().get(), key, use);
  });
}

}  // namespace

MatchLog::MatchLog(const Core& core, const Forwarder& forwarder, EventLoop& loop,
                   const MatchLogOptions& options, Tell tell)
    : core_(core),
      forwarder_(forwarder),
      loop_(loop),
      options_(options),
      interval_(options.interval),
      tell_(std::move(tell)),
      messages_(std::make_shared<const MatchMessages>()),
      flows_(options.flows, randomSeed()),
      budget_(options.rate),
      place_(core, forwarder),
      task_(sweepPriority, "MatchLog", [this] { run(); }),
      follower_(
          core.inForce(), [this](const Counter& counter) { return follow(counter); },
          [this](const Counter& counter) { handleMatch(counter); },
          [this](const Counter& counter) { handleGone(counter); }) {
  notes_.reserve(options.rate);
  loop_.pollerIs(this);
}

MatchLog::~MatchLog() {
  loop_.pollerDel(this);
  while (Flow* flow = flows_.oldest()) end(*flow);
  tellNotes();
  tellLeftOut();
}

bool MatchLog::follow(const Counter& counter) {
  if (options_.rate == 0) return false;
  Rule rule{counter.key};
  bool wanted = false;
  const bool found = withRule(core_, counter.key, [&](const Acl::RuleConfig& config) {
    wanted = config.log();
    rule.sequence = config.sequence();
    rule.action = config.action();
  });
  if (!found && options_.drops) {
    const auto* implicit = implicitDropOf(core_.inForce().statusOf(counter.key.aclType, counter.key.aclName));
    wanted = implicit && *implicit == counter.key.ruleId;
  }
  if (wanted) rules_.emplace(counter.number, std::move(rule));
  return wanted;
}

void MatchLog::handleMatch(const Counter& counter) {
  FlowKey key = flowOf(counter.key.aclType, forwarder_.context()->parsedPacket());
  key.rule = counter.number;
  key.intf = place_.of(counter.key);
  const uint64_t hash = flows_.hashOf(key);
  if (Flow* known = flows_.find(key, hash)) {
    ++known->further;
    return;
  }
  if (!note(key, 1, true)) return leaveOut(1);
  if (flows_.full()) end(*flows_.oldest());
  flows_.add(key, hash, now());
}

void MatchLog::handleGone(const Counter& counter) {
  rules_.at(counter.number).gone = true;
  rulesGone_ = true;
  lookedAt_ = 0;
  task_->scheduleTask();
}

bool MatchLog::note(const FlowKey& flow, uint64_t packets, bool first) {
  if (!budget_.take(now())) return false;
  KELP_ASSERT(notes_.size() < notes_.capacity(), "the lines of a turn are no more than those of a second");
  notes_.push_back({flow, packets, first});
  return true;
}

void MatchLog::end(Flow& flow) {
  if (flow.further > 0 && !note(flow.key, flow.further, false)) leaveOut(flow.further);
  flows_.remove(flow);
}

void MatchLog::leaveOut(uint64_t packets) {
  if (leftOut_ == 0) leftOutSince_ = now();
  leftOut_ += packets;
}

bool MatchLog::poll() {
  tellNotes();
  if (!task_->taskWorkQueued() || leftOut_ > 0) schedule();
  return false;
}

void MatchLog::tellNotes() {
  if (notes_.empty()) return;
  std::vector<MatchLine> lines;
  lines.reserve(notes_.size());
  for (const Note& note : notes_) lines.push_back(lineOf(note));
  notes_.clear();
  tell_([lines = std::move(lines), messages = messages_] {
    std::vector<LogEvent> events;
    for (const MatchLine& line : lines) messages->addTo(events, line);
    return events;
  });
}

MatchLine MatchLog::lineOf(const Note& note) {
  Rule& rule = rules_.at(note.flow.rule);
  // It may have another number by now, and that is the one that people see.
  withRule(core_, rule.key, [&rule](const Acl::RuleConfig& now) { rule.sequence = now.sequence(); });
  return {rule.key.aclName.str(), rule.sequence, rule.action, rule.key.direction, note.flow,
          note.packets,           note.first};
}

void MatchLog::tellLeftOut() {
  const uint64_t packets = std::exchange(leftOut_, 0);
  if (packets == 0) return;
  LogEvent event{Severity::notice,
                 fmt::format("matches of {} are left out here: more than {} a second",
                             countText(packets, "packet"), countText(options_.rate, "line")),
                 {{"VELO_EVENT", "match-left-out"}, {"VELO_PACKETS", std::to_string(packets)}}};
  tell_([event = std::move(event)] { return std::vector{event}; });
}

void MatchLog::run() {
  const bool done = endFlowsOfGoneRules() && tellFlowsThatAreDue();
  tellNotes();
  if (now() - leftOutSince_ >= LineBudget::window) tellLeftOut();
  if (done) {
    schedule();
  } else {
    task_->scheduleTask();
  }
}

bool MatchLog::endFlowsOfGoneRules() {
  if (!rulesGone_) return true;
  while (lookedAt_ < flows_.numbers()) {
    Flow* flow = flows_.numbered(++lookedAt_);
    if (flow && rules_.at(flow->key.rule).gone) end(*flow);
    if (task_->taskShouldYield()) return false;
  }
  tellNotes();  // while the rules are known
  std::erase_if(rules_, [](const auto& rule) { return rule.second.gone; });
  rulesGone_ = false;
  return true;
}

bool MatchLog::tellFlowsThatAreDue() {
  for (Flow* flow; (flow = flows_.oldest()) && flow->told + interval_ <= now();) {
    if (flow->further == 0) {
      end(*flow);
    } else {
      if (note(flow->key, flow->further, false)) flow->further = 0;
      flows_.toldIs(*flow, now());
    }
    if (task_->taskShouldYield()) return false;
  }
  return true;
}

void MatchLog::schedule() {
  if (const Flow* oldest = flows_.oldest()) task_->scheduleTaskDelay(oldest->told + interval_ - now());
  if (leftOut_ > 0) task_->scheduleTaskDelay(leftOutSince_ + LineBudget::window - now());
}

}  // namespace Agent
