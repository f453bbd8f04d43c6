#include <Acl/Types.h>
#include <agent/core/EventLoop.h>
#include <agent/core/Reserve.h>
#include <agent/fleet/FleetCounters.h>
#include <agent/fleet/FleetKeys.h>
#include <nlohmann/json.hpp>

#include <new>
#include <utility>

namespace Agent {

namespace {

using Json = nlohmann::ordered_json;

/// Rules that are gathered in a piece.
constexpr size_t rulesOfPiece = 32;

Json countedJson(const MatchCount& count) { return {count.in + count.out, count.bytesIn + count.bytesOut}; }

}  // namespace

/// One walk over the lists.
struct FleetCounters::Round {
  Round(const Core& core, const std::string& name) : reader(core), agent(name) {
    for (auto& key : reader.defined()) {
      if (lists.size() < mostLists)
        lists.push_back(std::move(key));
      else
        ++listsLeftOut;
    }
    if (listsLeftOut > 0) values[leftOutKey(agent)] = std::to_string(listsLeftOut);
  }

  /// Gathers the next piece; false when that was the last one.
  bool next() {
    Refusable::check();
    if (at < ids.size()) {
      for (size_t i = 0; i < rulesOfPiece && at < ids.size(); ++i) add(ids[at++]);
      if (at == ids.size()) end();
      return true;
    }
    if (lists.empty()) return false;
    begin();
    return true;
  }

  const ListReader reader;
  const std::string agent;
  std::map<std::string, std::string> values;  // by key
  size_t listsLeftOut = 0;

 private:
  void begin() {
    list = std::move(lists.front());
    lists.pop_front();
    ids = reader.ruleIds(list);
    at = 0;
    rules = Json::array();
    leftOut = 0;
    const ListReport head = reader.head(list);
    source = head.sources.empty() ? "" : head.sources.front();
    counted = head.implicitDrop && head.implicitDrop->in + head.implicitDrop->out > 0
                  ? countedJson(*head.implicitDrop)
                  : Json(nullptr);
    if (ids.empty()) end();
  }
  void add(const Kiv::UniqueId& id) {
    const auto rule = reader.rule(list, id);
    if (!rule || rule->matches.in + rule->matches.out == 0) return;
    if (rules.size() == mostRules) {
      ++leftOut;
      return;
    }
    Json one = countedJson(rule->matches);
    one.insert(one.begin(), rule->sequence);
    rules.push_back(std::move(one));
  }
  void end() {
    if (rules.empty() && counted.is_null()) return;
    Json value = {{"rules", std::move(rules)},
                  {"implicit", std::move(counted)},
                  {"leftOut", leftOut},
                  {"source", source}};
    values[counterKey(agent, Acl::stringValue(list.first), list.second.str())] = value.dump();
  }

  std::deque<ListReader::Key> lists;
  ListReader::Key list;
  std::vector<Kiv::UniqueId> ids;
  size_t at = 0, leftOut = 0;
  Json rules, counted;  // of the list
  std::string source;
};

FleetCounters::FleetCounters(const Core& core, std::string agent, Told told)
    : core_(core),
      agent_(std::move(agent)),
      told_(std::move(told)),
      task_(sweepPriority, "FleetCounters", [this] { run(); }) {
  task_->scheduleTaskDelay(interval);
}

FleetCounters::~FleetCounters() = default;

void FleetCounters::run() {
  Refusable memory;
  try {
    if (!round_) round_ = std::make_unique<Round>(core_, agent_);
    while (round_->next()) {
      if (task_->taskShouldYield()) return task_->scheduleTask();
    }
    Refusable::check();
    finish();
  } catch (const std::bad_alloc&) {
    // The next round has them, too.
  }
  round_.reset();
  task_->scheduleTaskDelay(interval);
}

void FleetCounters::finish() {
  std::map<std::string, std::string> changed;
  for (const auto& [key, value] : known_) {
    if (!round_->values.contains(key)) changed[key] = "";
  }
  for (const auto& [key, value] : round_->values) {
    const auto known = known_.find(key);
    if (known == known_.end() || known->second != value) changed[key] = value;
  }
  known_ = std::move(round_->values);
  told_(std::move(changed));
}

}  // namespace Agent
