#include <agent/show/ListReport.h>
#include <agent/show/ZeroLine.h>

namespace Agent {

namespace {

uint64_t minus(uint64_t count, uint64_t line) { return count >= line ? count - line : count; }

}  // namespace

void ZeroLine::drawRules(const Core& core, const Kelp::String* list) {
  std::erase_if(rules_, [list](const auto& entry) { return !list || entry.first.aclName == *list; });
  for (const auto& collection : core.inForce().counters()) {
    for (auto at = collection->counterCollection().begin(); at; at.next()) {
      if (list && at.key().aclName != *list) continue;
      rules_[at.key()] = {at.value()->packets(), at.value()->bytes()};
    }
  }
}

void ZeroLine::clear(const Core& core, const Forwarder& forwarder, double now) {
  drawRules(core, nullptr);
  named_.clear();
  for (auto at = core.namedCounters()->counter().begin(); at; at.next()) named_[at.key()] = at.value();
  ports_.clear();
  for (const auto& [id, port] : forwarder.ports()) ports_[id] = *port;
  listCleared_.clear();
  cleared_ = now;
}

bool ZeroLine::clear(const Core& core, const Kelp::String& list, double now) {
  if (!isDefined(core, list)) return false;
  drawRules(core, &list);
  listCleared_[list] = now;
  return true;
}

ZeroLine::Counted ZeroLine::above(const RuleKey& key, const Velo::Counter::VeloDpAclCounter& counter) const {
  auto line = rules_.find(key);
  if (line == rules_.end()) return {counter.packets(), counter.bytes()};
  return {minus(counter.packets(), line->second.packets), minus(counter.bytes(), line->second.bytes)};
}

uint64_t ZeroLine::above(const Velo::CounterName& name, uint64_t count) const {
  auto line = named_.find(name);
  return line == named_.end() ? count : minus(count, line->second);
}

Port ZeroLine::above(const Port& port) const {
  Port shown = port;
  auto line = ports_.find(port.id);
  if (line == ports_.end()) return shown;
  for (auto count :
       {&Port::received, &Port::sent, &Port::droppedIn, &Port::droppedOut, &Port::mirrored, &Port::nowhere}) {
    shown.*count = minus(port.*count, line->second.*count);
  }
  return shown;
}

std::optional<double> ZeroLine::cleared(const Kelp::String& list) const {
  auto at = listCleared_.find(list);
  return at == listCleared_.end() ? cleared_ : at->second;
}

}  // namespace Agent
