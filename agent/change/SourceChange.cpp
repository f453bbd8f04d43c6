#include <agent/change/Compare.h>
#include <agent/change/SourceChange.h>
#include <agent/config/RulePairs.h>

#include <algorithm>
#include <set>
#include <utility>

namespace Agent {

namespace {

using ListKey = Config::Model::ListKey;

bool isSpelledAlike(const Config::Rule& a, const Config::Rule& b) {
  const Acl::RuleBase &one = Config::common(a), &other = Config::common(b);
  return one.text == other.text && one.remark == other.remark;
}

/// Finds the rules that differ. `before` or `now` is null when there is no list.
void compareRules(const Config::List* before, const Config::List* now, ListChange& change) {
  const Config::List none{change.key.first, {}, false, {}, {}};
  const Config::List &old = before ? *before : none, &wanted = now ? *now : none;
  Config::RulePairs pairs = Config::pairRules(old, wanted);
  change.gone = std::move(pairs.gone);
  auto known = pairs.stay.begin();
  for (const auto& [number, rule] : wanted.rules) {
    if (known == pairs.stay.end() || known->after != number) {
      change.written.push_back({&rule, ListChange::Written::fresh});
      continue;
    }
    const uint32_t from = (known++)->before;
    if (from != number || !isSpelledAlike(old.rules.at(from), rule)) change.written.push_back({&rule, from});
  }
}

const Config::List* listOf(const Config::Model& model, const ListKey& key) {
  const auto known = model.lists.find(key);
  return known == model.lists.end() ? nullptr : &known->second;
}

/// The sources beside the one that changes, and which lists are bound before and after the change.
class Neighbours {
 public:
  Neighbours(const Sources& all, const std::string& source, const Config::Model& before,
             const Config::Model& now) {
    const auto add = [&](const std::string& name, const Config::Model& model) {
      if (name == source) {
        bind(before, boundBefore_);
        bind(now, boundAfter_);
        passed_ = true;
        return;
      }
      (passed_ ? lower_ : higher_).emplace_back(name, &model);
      bind(model, boundBefore_);
      bind(model, boundAfter_);
    };
    add({}, all.commandLine);
    for (const auto& [name, model] : all.inputs) {
      if (!passed_ && source < name) add(source, now);  // a new input
      add(name, model);
    }
    if (!passed_) add(source, now);
  }

  void place(ListChange& change) const {
    const auto has = [&change](const Named& model) { return model.second->lists.contains(change.key); };
    change.inForce = std::none_of(higher_.begin(), higher_.end(), has);
    const auto other = std::find_if(lower_.begin(), lower_.end(), has);
    if (change.inForce && (change.comes || !change.list) && other != lower_.end()) {
      change.otherSource = other->first;
      change.other = listOf(*other->second, change.key);
    }
    if (!change.inForce || !boundBefore_.contains(change.key)) {
      change.asked = ListChange::Asked::notBefore;
    } else if (!boundAfter_.contains(change.key)) {
      change.asked = ListChange::Asked::notAfter;
    }
  }

 private:
  using Named = std::pair<std::string, const Config::Model*>;

  static void bind(const Config::Model& model, std::set<ListKey>& bound) {
    for (const auto& [key, list] : model.bindings) bound.emplace(key.type, list);
  }

  bool passed_ = false;
  std::vector<Named> higher_, lower_;
  std::set<ListKey> boundBefore_, boundAfter_;
};

void compareBindings(const Config::Model& before, const Config::Model& now, SourceChange& change) {
  compare(
      before.bindings, now.bindings,
      [&](const auto& binding) { change.bindings.emplace_back(binding.first, std::string()); },
      [&](const auto& binding) { change.bindings.emplace_back(binding); },
      [&](const auto& old, const auto& binding) {
        if (old.second != binding.second) change.bindings.emplace_back(binding);
      });
}

}  // namespace

size_t ListChange::writes() const {
  constexpr size_t ofList = 4;
  return gone.size() + written.size() + (other ? other->rules.size() : 0) + (comes || !list ? ofList : 1);
}

size_t SourceChange::writes() const {
  size_t sum = bindings.size();
  for (const ListChange& change : lists) sum += change.writes();
  return sum;
}

size_t SourceChange::memory() const {
  // A rule that is replaced is two writes. With the rule itself that is what MemoryEstimate counts for a
  // line.
  constexpr size_t ofChange = 64 * 1024, ofWrite = 1200, ofRule = 600, ofCombination = 600;
  size_t sum = ofChange + writes() * ofWrite;
  for (const ListChange& change : lists) {
    if (change.list) sum += change.list->rules.size() * ofRule;
    sum += change.combinations * ofCombination;
  }
  return sum;
}

SourceChange sourceChange(const Sources& inForce, const std::string& source, const Config::Model* now) {
  static const Config::Model nothing;
  const Config::Model* known = inForce.find(source);
  const Config::Model& before = known ? *known : nothing;
  const Config::Model& after = now ? *now : nothing;
  const Neighbours neighbours(inForce, source, before, after);

  SourceChange change;
  change.source = source;
  change.goes = !now;
  const auto add = [&](const ListKey& key, const Config::List* was, const Config::List* is) {
    ListChange list;
    list.key = key;
    list.list = is;
    list.comes = !was;
    compareRules(was, is, list);
    if (was && is && list.gone.empty() && list.written.empty()) return;
    for (const auto& written : list.written) list.combinations += Config::combinations(*written.rule);
    neighbours.place(list);
    change.lists.push_back(std::move(list));
  };
  compare(
      before.lists, after.lists, [&](const auto& list) { add(list.first, &list.second, nullptr); },
      [&](const auto& list) { add(list.first, nullptr, &list.second); },
      [&](const auto& old, const auto& list) { add(list.first, &old.second, &list.second); });
  compareBindings(before, after, change);
  return change;
}

}  // namespace Agent
