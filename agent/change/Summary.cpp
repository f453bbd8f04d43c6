#include <agent/change/Summary.h>
#include <agent/core/Words.h>
#include <fmt/format.h>

#include <cstddef>
#include <string_view>

namespace Agent {

namespace {

struct Counts {
  size_t added = 0, changed = 0, removed = 0;
};

/// `same(a, b)` of the values of a key that both maps have.
template <class Map, class Same>
void count(const Map& before, const Map& after, Counts& counts, const Same& same) {
  for (const auto& [key, was] : before) {
    const auto is = after.find(key);
    if (is == after.end())
      ++counts.removed;
    else if (!same(was, is->second))
      ++counts.changed;
  }
  for (const auto& [key, is] : after) counts.added += before.contains(key) ? 0 : 1;
}

void add(std::string& text, std::string_view kind, const Counts& counts) {
  const auto put = [&text](const std::string& more) { text += (text.empty() ? "" : ", ") + more; };
  if (counts.added > 0) put("+" + countText(counts.added, kind));
  if (counts.changed > 0) put(countText(counts.changed, kind) + " changed");
  if (counts.removed > 0) put(countText(counts.removed, kind) + " removed");
}

}  // namespace

std::string changeSummary(const Config::Model& before, const Config::Model& after) {
  Counts lists, rules, bindings, portChannels, mirrorSessions;
  count(before.lists, after.lists, lists, [&rules](const Config::List& was, const Config::List& is) {
    // A list that is in both is told by its rules.
    count(was.rules, is.rules, rules, Config::isSameRule);
    return true;
  });
  const auto equal = [](const auto& was, const auto& is) { return was == is; };
  count(before.bindings, after.bindings, bindings, equal);
  count(before.portChannels, after.portChannels, portChannels, equal);
  count(before.mirrorSessions, after.mirrorSessions, mirrorSessions, equal);
  std::string text;
  add(text, "list", lists);
  add(text, "rule", rules);
  add(text, "binding", bindings);
  add(text, "port-channel", portChannels);
  add(text, "mirror session", mirrorSessions);
  if (!text.empty()) return text;
  return before == after ? "no change" : "other words only";
}

}  // namespace Agent
