#include <Acl/RuleKinds.h>
#include <Kiv/TaskScheduler.h>
#include <Velo/NamedCounters.h>
#include <agent/core/Reserve.h>
#include <agent/metrics/Gathering.h>

#include <algorithm>

namespace Agent {

namespace {

using Acl::AclDirection;
constexpr AclDirection directions[] = {AclDirection::in, AclDirection::out};

/// Rules that are gathered in a piece.
constexpr size_t rulesAtOnce = 32;

/// The compiled form that packets are judged by.
void addLookup(const Core& core, const ListReader::Key& key, ListSight& sight) {
  const auto list = core.inForce().list(key.first, key.second);
  const auto* judging = list ? list->judging() : nullptr;
  if (!judging) return;
  Acl::withRuleKind(key.first, [&](auto kind) {
    const auto* compiled = kind.rules(*judging).compiled();
    if (!compiled) return;
    sight.compiled = compiled->ready();
    sight.lookupBytes = compiled->bytes();
    sight.compileSeconds = compiled->buildSeconds();
  });
}

}  // namespace

Gathering::Gathering(const Watched& watched, RuleChoice choice, size_t most, Ledger& ledger)
    : watched_(watched),
      choice_(choice),
      ledger_(ledger),
      reader_(watched.world.core),
      samples_(metrics().size()),
      most_(most) {
  for (auto& key : reader_.defined()) lists_.push_back(std::move(key));
  addDrops();
  addPorts();
  addTasks();
}

bool Gathering::next() {
  Refusable::check();
  if (nextId_ < ids_.size()) {
    for (size_t i = 0; i < rulesAtOnce && nextId_ < ids_.size(); ++i) addRule();
    return true;
  }
  if (!lists_.empty()) {
    beginList();
    return true;
  }
  if (ledger_.tidy()) return true;
  addAgent();
  return false;
}

void Gathering::addDrops() {
  const auto& counters = watched_.world.core.namedCounters();
  for (auto at = counters->counter().begin(); at; at.next()) {
    const Velo::CounterName& name = at.key();
    const std::string labels[] = {name.category.str(), name.facility.str(), name.reason.str()};
    tellAll(DropSight{at.value()}, labels, samples_);
  }
}

void Gathering::addPorts() {
  const World& world = watched_.world;
  const auto states = world.portStates ? world.portStates() : std::vector<PortState>();
  std::map<std::string, PortSight> ports;
  for (const auto& [id, port] : world.forwarder.ports()) ports[id.name().str()].port = port.get();
  for (const PortState& state : states) ports[state.name].live = &state;
  for (const auto& [name, sight] : ports) {
    const std::string labels[] = {name};
    tellAll(sight, labels, samples_);
  }
}

void Gathering::addTasks() {
  Kiv::TaskSchedulerRoot::findOrCreateScheduler()->forEachTask([&](const Kiv::TimerTask& task) {
    const std::string labels[] = {task.name().str()};
    tellAll(TaskSight{task}, labels, samples_);
  });
}

void Gathering::addAgent() {
  const World& world = watched_.world;
  const auto report = world.configuration ? world.configuration() : nlohmann::ordered_json();
  tellAll(AgentSight{watched_, report, leftOut_}, {}, samples_);
  if (report.is_null()) return;
  for (const auto& source : report.at("sources")) {
    const std::string labels[] = {source.at("name").get<std::string>()};
    tellAll(SourceSight{source}, labels, samples_);
  }
}

void Gathering::beginList() {
  list_ = std::move(lists_.front());
  lists_.pop_front();
  const ListReport head = reader_.head(list_);
  if (head.sources.empty()) return;  // it is gone
  for (const AclDirection direction : directions) {
    bound_[direction == AclDirection::in ? 0 : 1] =
        std::any_of(head.bindings.begin(), head.bindings.end(),
                    [&](const BindingReport& binding) { return binding.direction == direction; });
  }
  ListSight sight{head, reader_.ruleCount(list_), 0, 0, false, {}};
  const auto* drop = implicitDropOf(watched_.world.core.inForce().statusOf(list_.first, list_.second));
  if (head.implicitDrop && drop) sight.implicitDrop = counts(*head.implicitDrop, std::nullopt, *drop);
  addLookup(watched_.world.core, list_, sight);
  const std::string labels[] = {head.name, std::string(Acl::stringValue(list_.first))};
  tellAll(sight, labels, samples_);
  if (choice_ == RuleChoice::none) return;
  ids_ = reader_.ruleIds(list_, most_);
  nextId_ = 0;
  most_ -= ids_.size();
  leftOut_ += sight.rules - ids_.size();
}

void Gathering::addRule() {
  const Kiv::UniqueId& id = ids_[nextId_++];
  const auto rule = reader_.rule(list_, id);
  if (!rule) return;
  RuleSight sight{counts(rule->matches, rule->sequence, id)};
  if (choice_ == RuleChoice::hit && rule->matches.in + rule->matches.out == 0) return;
  const std::string labels[] = {list_.second.str(), std::string(Acl::stringValue(list_.first)),
                                std::to_string(rule->sequence)};
  tellAll(sight, labels, samples_);
}

/// What is told by direction: where packets meet the list, or have met it.
Counts Gathering::counts(const MatchCount& counted, std::optional<uint32_t> number, const Kiv::UniqueId& id) {
  const auto one = [&](AclDirection direction, uint64_t packets, uint64_t bytes) {
    const bool bound = bound_[direction == AclDirection::in ? 0 : 1];
    const Ledger::Series series{list_.first, list_.second, number, direction};
    const auto told = ledger_.told(series, id, {packets, bytes});
    return bound || told.packets ? std::optional(told) : std::nullopt;
  };
  return {one(AclDirection::in, counted.in, counted.bytesIn),
          one(AclDirection::out, counted.out, counted.bytesOut)};
}

}  // namespace Agent
