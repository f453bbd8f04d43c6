#include <agent/change/Compare.h>
#include <agent/change/Uncovered.h>

#include <set>

namespace Agent {

namespace {

/// Calls visit(key, source) for each thing that another source has in force afterwards whose content is as it
/// was.
template <class Owners, class Visit>
void forEachUncovered(const Owners& before, const Owners& after, const std::set<const Config::Model*>& known,
                      const Visit& visit) {
  compare(
      before, after, [](const auto&) {}, [](const auto&) {},
      [&](const auto& was, const auto& is) {
        const Effective::Owner& owner = is.second;
        if (owner.source != was.second.source && known.contains(owner.model)) visit(is.first, owner.source);
      });
}

}  // namespace

Uncovered uncovered(const Effective& before, const Effective& after) {
  Uncovered found;
  const auto& known = before.models;
  const auto adder = [](auto& to) {
    return [&to](const auto& key, const std::string& source) { to.emplace_back(key, source); };
  };
  forEachUncovered(before.lists, after.lists, known, adder(found.lists));
  forEachUncovered(before.bindings, after.bindings, known, [&](const auto& key, const std::string& source) {
    found.bindings.push_back({key, after.listAt(key), source});
  });
  forEachUncovered(before.portChannels, after.portChannels, known, adder(found.portChannels));
  forEachUncovered(before.mirrorSessions, after.mirrorSessions, known, adder(found.mirrorSessions));
  return found;
}

}  // namespace Agent
