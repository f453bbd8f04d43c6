#include <agent/core/EventLoop.h>
#include <agent/core/InForce.h>
#include <agent/workers/Counts.h>
#include <agent/workers/Packed.h>
#include <agent/workers/WorkerIds.h>

#include <algorithm>
#include <array>
#include <iterator>
#include <set>

namespace Agent {

namespace {

using CountsJson = nlohmann::ordered_json;

/// How many counters are looked at before the clock is read.
constexpr int countersInARow = 32;
/// A message has at most so many of them.
constexpr size_t mostInMessage = 1024;

constexpr uint64_t Port::*portMembers[] = {&Port::received,   &Port::sent,     &Port::droppedIn,
                                           &Port::droppedOut, &Port::mirrored, &Port::nowhere};
// What is not the forwarder's already.
constexpr uint64_t PortState::*stateMembers[] = {
    &PortState::rxFrames,   &PortState::rxBytes,  &PortState::rxSegments, &PortState::kernelDrops,
    &PortState::rxTooLarge, &PortState::rxErrors, &PortState::txFrames,   &PortState::txBytes,
    &PortState::txSegments, &PortState::tooLarge, &PortState::sendFailed};
constexpr uint64_t FrameTotals::*totalMembers[] = {&FrameTotals::frames, &FrameTotals::bytes,
                                                   &FrameTotals::passed, &FrameTotals::dropped};

template <class T, size_t n>
CountsJson numbersOf(const T& object, uint64_t T::*const (&members)[n]) {
  CountsJson numbers = CountsJson::array();
  for (const auto member : members) numbers.push_back(object.*member);
  return numbers;
}

template <class T, size_t n>
void numbersAre(T& object, uint64_t T::*const (&members)[n], const CountsJson& numbers) {
  for (size_t i = 0; i < n; ++i) object.*members[i] = numbers.at(i).template get<uint64_t>();
}

/// Adds what `now` has more than `before`.
template <class T, size_t n>
void addMore(T& sum, uint64_t T::*const (&members)[n], const T& before, const T& now) {
  for (const auto member : members) sum.*member += now.*member - before.*member;
}

}  // namespace

CountTeller::CountTeller(From from, Send send)
    : from_(std::move(from)), send_(std::move(send)), task_(sweepPriority, "CountTeller", [this] { run(); }) {
  task_->scheduleTaskDelay(tellEvery);
}

void CountTeller::gather(std::function<void()> then) {
  waiting_.push_back(std::move(then));
  task_->scheduleTaskDelay(Kelp::Duration());
}

void CountTeller::run() {
  if (!underWay_) begin();
  if (!goOn(false)) return task_->scheduleTask();
  finish();
  task_->scheduleTaskDelay(waiting_.empty() ? tellEvery : Kelp::Duration());
}

void CountTeller::tellAll() {
  if (underWay_) goOn(true);
  begin();
  goOn(true);
  finish();
}

void CountTeller::begin() {
  underWay_ = true;
  ++round_;
  left_ = from_.core.inForce().counters();
  resume_.reset();
  inRound_.insert(inRound_.end(), std::make_move_iterator(waiting_.begin()),
                  std::make_move_iterator(waiting_.end()));
  waiting_.clear();
}

bool CountTeller::goOn(bool whole) {
  for (; !left_.empty(); left_.pop_back()) {
    if (!tell(*left_.back(), whole)) return false;
    resume_.reset();
  }
  return true;
}

bool CountTeller::tell(Collection& collection, bool whole) {
  ToldOf& told = told_[collection.name()];
  CountsJson lines = CountsJson::array();
  const auto sendRows = [&] {
    if (!lines.empty()) send_(packed({{"collection", collection.name().str()}, {"rows", lines}}));
    lines = CountsJson::array();
  };
  const auto& counters = collection.counterCollection();
  int visited = 0;
  for (auto at = resume_ ? counters.from(*resume_) : counters.begin(); at; at.next()) {
    if (++visited % countersInARow == 0 && !whole && task_->taskShouldYield()) {
      resume_ = at.key();
      sendRows();
      return false;
    }
    const Key& key = at.key();
    const uint64_t packets = at.value()->packets(), bytes = at.value()->bytes();
    Told& before = told[key];
    before.round = round_;
    if (packets < before.packets) before = {0, 0, round_};  // another counter of this key
    if (packets == before.packets) continue;
    // Each process has an id of its own for the implicit rule of a list.
    const auto* implicit = implicitDropOf(from_.core.inForce().statusOf(key.aclType, key.aclName));
    const uint64_t id = implicit && *implicit == key.ruleId ? 0 : key.ruleId.value();
    lines.push_back({static_cast<int>(key.direction), static_cast<int>(key.aclType), key.aclName.str(), id,
                     packets - before.packets, bytes - before.bytes, at.value()->lastUpdateTime().seconds()});
    before = {packets, bytes, round_};
    if (lines.size() == mostInMessage) sendRows();
  }
  sendRows();
  std::erase_if(told, [this](const auto& one) { return one.second.round != round_; });
  return true;
}

void CountTeller::finish() {
  underWay_ = false;
  CountsJson ports = CountsJson::object(), live = CountsJson::object(), named = CountsJson::array();
  for (const auto& [id, port] : from_.forwarder.ports())
    ports[id.name().str()] = numbersOf(*port, portMembers);
  for (const PortState& state : from_.ports()) {
    live[state.name] = {{"present", state.present}, {"up", state.up},
                        {"mtu", state.mtu},         {"how", state.how},
                        {"wrong", state.wrong},     {"counts", numbersOf(state, stateMembers)}};
  }
  for (auto at = from_.core.namedCounters()->counter().begin(); at; at.next())
    named.push_back({at.key().category.str(), at.key().facility.str(), at.key().reason.str(), at.value()});
  send_(packed({{"ports", std::move(ports)},
                {"live", std::move(live)},
                {"named", std::move(named)},
                {"totals", numbersOf(from_.totals(), totalMembers)}}));
  for (const auto& then : std::exchange(inRound_, {})) then();
}

struct CountSums::Row {
  std::string collection;
  Velo::Counter::VeloDpAclCounterKey key;  ///< without an id: of the implicit rule
  uint64_t packets, bytes;
  double lastMatch;
};

CountSums::CountSums(Core& core, Forwarder& forwarder) : core_(core), forwarder_(forwarder) {}
CountSums::~CountSums() = default;

void CountSums::add(const std::string& text, Worker& worker) {
  const CountsJson told = unpacked(text);
  if (told.contains("rows")) return addRows(told);
  std::erase_if(early_, [this](const Row& row) { return addRow(row); });
  for (const auto& [name, numbers] : told.at("ports").items()) {
    Port now;
    numbersAre(now, portMembers, numbers);
    Port& before = worker.ports[name];
    addMore(forwarder_.portIs(name), portMembers, before, now);
    before = now;
  }
  for (const auto& [name, state] : told.at("live").items()) {
    PortState& live = worker.live[name];
    live.present = state.at("present").get<bool>();
    live.up = state.at("up").get<bool>();
    live.mtu = state.at("mtu").get<uint32_t>();
    live.how = state.at("how").get<std::string>();
    live.wrong = state.at("wrong").get<std::string>();
    numbersAre(live, stateMembers, state.at("counts"));
  }
  for (const CountsJson& row : told.at("named")) {
    const auto word = [&row](size_t at) { return Kelp::String(row.at(at).get<std::string>()); };
    uint64_t& before = worker.named[{word(0), word(1), word(2)}];
    const auto now = row.at(3).get<uint64_t>();
    if (now > before) core_.namedCounters()->count(word(0), word(1), word(2), now - before);
    before = now;
  }
  FrameTotals totals;
  numbersAre(totals, totalMembers, told.at("totals"));
  addMore(totals_, totalMembers, worker.totals, totals);
  worker.totals = totals;
}

void CountSums::addRows(const nlohmann::ordered_json& told) {
  for (const CountsJson& row : told.at("rows")) {
    const auto number = [&row](size_t at) { return row.at(at).get<uint64_t>(); };
    Row read{told.at("collection").get<std::string>(),
             {static_cast<Acl::AclDirection>(number(0)), static_cast<Acl::AclType>(number(1)),
              Kelp::String(row.at(2).get<std::string>()), Kiv::UniqueId(number(3))},
             number(4),
             number(5),
             row.at(6).get<double>()};
    if (!addRow(read)) early_.push_back(std::move(read));
  }
}

/// False when the list's implicit rule is not known yet.
bool CountSums::addRow(const Row& row) {
  const auto collection = Kelp::ptrCast<Velo::Counter::VeloDpAclCounterColl>(
      core_.manager().counterHolder()->collection(Kelp::String(row.collection)));
  if (!collection || isIdOfWorker(row.key.ruleId)) return true;  // of a list that is gone
  Velo::Counter::VeloDpAclCounterKey key = row.key;
  if (key.ruleId.empty()) {
    const auto* implicit = implicitDropOf(core_.inForce().statusOf(key.aclType, key.aclName));
    if (!implicit) return !core_.inForce().list(key.aclType, key.aclName);
    key.ruleId = *implicit;
  }
  const auto counter = collection->counterCollectionIs(key);
  counter->countsAre(counter->packets() + row.packets, counter->bytes() + row.bytes);
  counter->lastUpdateTimeIs(std::max(counter->lastUpdateTime(), Kelp::Duration(row.lastMatch)));
  return true;
}

void CountSums::keep(const Worker& worker) {
  for (const auto& [name, live] : worker.live) addMore(past_[name], stateMembers, PortState(), live);
}

void CountSums::addTo(std::vector<PortState>& states, const std::vector<const Worker*>& workers) const {
  for (PortState& state : states) {
    if (const auto past = past_.find(state.name); past != past_.end())
      addMore(state, stateMembers, PortState(), past->second);
    bool present = false, up = false;
    std::set<std::string> hows{"", state.how};
    for (const Worker* worker : workers) {
      const auto live = worker->live.find(state.name);
      if (live == worker->live.end()) continue;
      addMore(state, stateMembers, PortState(), live->second);
      present = present || live->second.present;
      up = up || live->second.up;
      // This process may not know how large frames can be.
      if (live->second.present) state.mtu = std::min(state.mtu, live->second.mtu);
      if (hows.insert(live->second.how).second)
        state.how += (state.how.empty() ? "" : "; ") + live->second.how;
      if (state.wrong.empty()) state.wrong = live->second.wrong;
    }
    state.present = state.present && present;
    state.up = state.up && up;
  }
}

}  // namespace Agent
