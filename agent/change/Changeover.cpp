#include <Acl/Workshop.h>
#include <Kelp/Assert.h>
#include <agent/change/Changeover.h>
#include <agent/change/SourceEntities.h>

#include <algorithm>
#include <utility>

namespace Agent {

namespace {

// How many rules are written or copied before the clock is read.
constexpr size_t writesAPiece = 8;
constexpr size_t copiesAPiece = 16;

}  // namespace

void Changeover::begin(SourceChange change) {
  KELP_ASSERT(!underWay(), "one change at a time");
  change_ = std::move(change);
  source_ = core_.sourceIs(change_.source);
  for (const ListChange& list : change_.lists) lists_.push_back({&list});
  at_ = 0;
  phase_ = change_.writes() <= writesAtOnce ? Phase::atOnce : Phase::prepare;
  if (phase_ == Phase::prepare) findLarge();
}

/// The lists that are written in the switch share what can be written in one go.
void Changeover::findLarge() {
  size_t left = writesAtOnce;
  for (List& list : lists_) {
    const size_t writes = list.change->writes();
    list.large = writes > (list.inSwitch() ? left : writesAtOnce);
    if (list.inSwitch() && !list.large) left -= writes;
  }
}

Changeover::State Changeover::run(const Kiv::Task& task) {
  while (underWay()) {
    if (!step()) return State::waits;
    if (underWay() && task.taskShouldYield()) return State::yields;
  }
  return State::done;
}

bool Changeover::step() {
  switch (phase_) {
    case Phase::atOnce:
      switchOver();
      finish();
      break;
    case Phase::prepare:
      if (forLists(&Changeover::prepare)) phase_ = Phase::prepared;
      break;
    case Phase::prepared:
      if (!forAll(&Changeover::isPrepared)) return false;
      switchOver();
      phase_ = Phase::rewrite;
      break;
    case Phase::rewrite:
      if (forLists(&Changeover::rewrite)) phase_ = Phase::rewritten;
      break;
    case Phase::rewritten:
      if (!forAll(&Changeover::isRewritten)) return false;
      finish();
      break;
    case Phase::done:
      break;
  }
  return true;
}

bool Changeover::forLists(bool (Changeover::*piece)(List& list)) {
  if (at_ < lists_.size() && (this->*piece)(lists_[at_])) ++at_;
  if (at_ < lists_.size()) return false;
  at_ = 0;
  return true;
}

bool Changeover::forAll(bool (Changeover::*holds)(const List& list) const) const {
  return std::all_of(lists_.begin(), lists_.end(), [&](const List& list) { return (this->*holds)(list); });
}

bool Changeover::prepare(List& list) {
  if (list.standsIn()) return !list.change->successor() || copyRules(list);
  return list.inSwitch() || list.change->asked != Asked::notBefore || writeInPieces(list);
}

bool Changeover::copyRules(List& list) {
  const ListChange& change = *list.change;
  const Acl::AclType type = change.key.first;
  const auto& rules = change.successor()->rules;
  if (!list.next) {
    list.next = MemSlab::make<Acl::AclSubConfig>();
    list.next->compile(type);
    list.next->upkeepIs(type, false);
    list.from = rules.begin();
  }
  ListRules next(type, list.next);
  for (size_t i = 0; i < copiesAPiece && list.from != rules.end(); ++i, ++list.from) {
    const auto& [sequence, rule] = *list.from;
    next.write(idInCopy(list, sequence), rule);
  }
  if (list.from != rules.end()) return false;
  list.next->upkeepIs(type, true);
  return true;
}

/// The id of the next rule that is copied.
Kiv::UniqueId Changeover::idInCopy(List& list, uint32_t sequence) const {
  const ListChange& change = *list.change;
  if (!change.list) return rulesOf(*core_.sourceIs(change.otherSource).lists, change.key).idAt(sequence);
  const bool written = list.ids.size() < change.written.size() &&
                       Config::common(*change.written[list.ids.size()].rule).sequence == sequence;
  if (!written) return rulesOf(*source_.lists, change.key).idAt(sequence);
  findId(list);
  return list.ids.back();
}

/// Finds the id for the next of the rules that are written. All ids are found before the first rule is
/// written: from then on a number may be that of two rules for a while.
void Changeover::findId(List& list) const {
  const ListChange& change = *list.change;
  const auto& [rule, from, known] = change.written[list.ids.size()];
  if (from != ListChange::Written::fresh)
    list.ids.push_back(rulesOf(*source_.lists, change.key).idAt(from));
  else
    list.ids.push_back(known.empty() ? Kiv::UniqueId::generateUniqueId() : known);
}

bool Changeover::rewrite(List& list) {
  const bool behind = list.standsIn() || (!list.inSwitch() && list.change->asked == Asked::notAfter);
  return !behind || writeInPieces(list);
}

/// Writes a list that packets do not ask at the moment.
bool Changeover::writeInPieces(List& list) {
  if (!list.large) {
    writeAll(list);
    return true;
  }
  const ListChange& change = *list.change;
  if (!std::exchange(list.begun, true)) {
    listIs(*source_.lists, change.key);
    upkeepIs(list, false);
  }
  if (!takeOver(list)) return false;
  if (!list.taken) {
    for (size_t i = 0; i < writesAPiece && !list.allFound(); ++i) findId(list);
    if (!list.allFound()) return false;
    ListRules rules = rulesOf(*source_.lists, change.key);
    for (size_t i = 0; i < writesAPiece && !list.allWritten(); ++i) writeOne(list, rules);
    if (!list.allWritten()) return false;
    KELP_ASSERT(rules.size() == (change.list ? change.list->rules.size() : 0),
                "a source has the rules of its model");
    if (!change.list) {
      listDel(*source_.lists, change.key);
      list.taken = true;
      return false;  // another source may have to take over first
    }
  }
  upkeepIs(list, true);
  return true;
}

void Changeover::switchOver() {
  for (List& list : lists_) {
    if (list.standsIn()) {
      standIn(list);
    } else if (phase_ == Phase::atOnce || list.inSwitch()) {
      writeAll(list);
    }
  }
  writeBindings();
  switching_();
}

void Changeover::standIn(List& list) {
  // If another source's list is in force, the copy stands in for that one before this source takes over.
  if (!merged(list)) listIs(*source_.lists, list.change->key);
  if (const auto judged = merged(list)) judged->standInIs(list.next);
}

bool Changeover::isPrepared(const List& list) const {
  if (list.standsIn()) return !list.next || list.next->compiledReady(list.change->key.first);
  return list.inSwitch() || list.change->asked != Asked::notBefore || !list.large || isCompiled(list);
}

bool Changeover::isRewritten(const List& list) const { return !list.standsIn() || isCompiled(list); }

bool Changeover::isCompiled(const List& list) const {
  const auto rules = mergedRules(list);
  return !rules || rules->compiledReady(list.change->key.first);
}

void Changeover::finish() {
  for (List& list : lists_) {
    if (!list.standsIn()) continue;
    if (const auto judged = merged(list)) judged->standInDel();
    if (list.next) discard_.take(list.change->key.first, std::move(list.next));
  }
  if (change_.goes) core_.sourceDel(change_.source);
  lists_.clear();
  SourceChange done = std::exchange(change_, {});
  if (phase_ != Phase::atOnce) Acl::Workshop::singleton().dispose(std::move(done));
  source_ = {};
  phase_ = Phase::done;
}

/// A new list is complete before it is visible in the source.
void Changeover::writeAll(List& list) {
  const ListChange& change = *list.change;
  if (!change.list) return listDel(*source_.lists, change.key);
  const auto fresh = change.comes ? MemSlab::make<Acl::AclSubConfig>() : nullptr;
  ListRules rules = fresh ? ListRules(change.key.first, fresh) : rulesOf(*source_.lists, change.key);
  while (!list.allFound()) findId(list);
  while (!list.allWritten()) writeOne(list, rules);
  KELP_ASSERT(rules.size() == change.list->rules.size(), "a source has the rules of its model");
  if (fresh) source_.lists->configIs(change.key.first)->aclIs(change.key.second)->currCfgIs(fresh);
}

void Changeover::writeOne(List& list, ListRules& rules) const {
  const ListChange& change = *list.change;
  if (list.gone < change.gone.size()) return rules.remove(rules.idAt(change.gone[list.gone++]));
  const size_t at = list.written++;
  rules.write(list.ids[at], *change.written[at].rule);
}

void Changeover::writeBindings() {
  for (const auto& [key, list] : change_.bindings) bindingIs(*source_.bindings, key, list);
}

Kelp::Ptr<Acl::AclConfig> Changeover::merged(const List& list) const {
  const auto& [type, name] = list.change->key;
  return list.change->inForce ? core_.inForce().list(type, name) : nullptr;
}

Kelp::Ptr<Acl::AclSubConfig> Changeover::mergedRules(const List& list) const {
  const auto judged = merged(list);
  return judged ? judged->currCfg() : nullptr;
}

void Changeover::upkeepIs(const List& list, bool on) const {
  if (const auto rules = mergedRules(list)) rules->upkeepIs(list.change->key.first, on);
}

bool Changeover::takeOver(const List& list) {
  const auto& [type, name] = list.change->key;
  return !list.standsIn() || core_.inForce().takeOver(type, name, writesAPiece);
}

}  // namespace Agent
