#include <agent/change/Compare.h>
#include <agent/change/Difference.h>
#include <agent/change/DifferenceParts.h>
#include <agent/config/RulePairs.h>
#include <agent/core/Document.h>
#include <agent/core/Words.h>
#include <fmt/format.h>

#include <set>
#include <string_view>
#include <utility>

namespace Agent {

using Json = nlohmann::ordered_json;

namespace {

using Part = DifferencePart;
using enum Part::What;

Json ruleEntry(const Config::Rule& rule) {
  const Acl::RuleBase& base = Config::common(rule);
  Json entry = ruleWords(base.sequence, base.text.view());
  if (!base.remark.empty()) entry["remark"] = base.remark.view();
  return entry;
}

/// Two rules that were compared; `from` and `to` are their texts.
Json ruleChange(const Config::Rule& old, const Config::Rule& now) {
  return {{"sequence", Config::common(now).sequence},
          {"from", Config::common(old).text.view()},
          {"to", Config::common(now).text.view()}};
}

/// The remarks of a rule that has others than before.
void addRemark(Json& entry, const Kelp::String& was, const Kelp::String& is) {
  if (was != is) entry["remark"] = {{"from", was.view()}, {"to", is.view()}};
}

/// A rule that stays, and keeps its id.
void addStaying(Part& changes, const Config::Rule& old, const Config::Rule& now) {
  const Acl::RuleBase &was = Config::common(old), &is = Config::common(now);
  Json entry = ruleChange(old, now);
  addRemark(entry, was.remark, is.remark);
  if (was.sequence != is.sequence) {
    entry["was"] = was.sequence;
    changes.add(renumbered, entry);
  } else if (was.text != is.text || was.remark != is.remark) {
    changes.add(respelled, entry);
  }
}

/// Rules that do not stay: those of one number are a change.
void addOthers(Part& changes, const Config::List& before, const Config::List& after,
               const Config::RulePairs& pairs) {
  compare(
      pairs.gone, pairs.come,
      [&](uint32_t number) { changes.add(removed, ruleEntry(before.rules.at(number))); },
      [&](uint32_t number) { changes.add(added, ruleEntry(after.rules.at(number))); },
      [&](uint32_t number, uint32_t) {
        const Config::Rule &old = before.rules.at(number), &now = after.rules.at(number);
        Json entry = ruleChange(old, now);
        if (Config::common(old).text == Config::common(now).text) entry["groups"] = true;
        addRemark(entry, Config::common(old).remark, Config::common(now).remark);
        changes.add(changed, entry);
      });
}

void addRules(Part& changes, const Config::List& before, const Config::List& after) {
  const Config::RulePairs pairs = Config::pairRules(before, after);
  addOthers(changes, before, after, pairs);
  for (const auto& pair : pairs.stay)
    addStaying(changes, before.rules.at(pair.before), after.rules.at(pair.after));
}

Json listEntry(const Config::List& list) {
  Json entry = listWords(list.type, list.name);
  entry["rules"] = list.rules.size();
  return entry;
}

/// The lists, and in the summary their rules.
Part listsDifference(const Config::Model& before, const Config::Model& after, DifferenceSummary& summary) {
  Part changes, ofAll(Part::ofRules), words;
  compare(
      before.lists, after.lists, [&](const auto& list) { changes.add(removed, listEntry(list.second)); },
      [&](const auto& list) { changes.add(added, listEntry(list.second)); },
      [&](const auto& old, const auto& now) {
        if (old.second == now.second) return;
        Part rules(Part::ofRules);
        addRules(rules, old.second, now.second);
        ofAll.count(rules);
        if (rules.isEmpty()) words.count(changed);
        Json entry = listWords(now.second.type, now.second.name);
        if (old.second.pendingRemarks != now.second.pendingRemarks)
          entry["remarksBehind"] = {{"from", old.second.pendingRemarks}, {"to", now.second.pendingRemarks}};
        changes.add(changed, entry, "rules", std::move(rules));
      });
  for (const Part::What what : {added, removed}) words.count(what, changes.counts()[what]);
  summary.add("list", words);
  summary.add("rule", ofAll);
  return changes;
}

Part bindingsDifference(const Config::Model& before, const Config::Model& after) {
  Part changes;
  const auto put = [&changes](Part::What what, const auto& binding) {
    Json entry = bindingWords(binding.first);
    entry["list"] = binding.second;
    changes.add(what, entry);
  };
  compare(
      before.bindings, after.bindings, [&](const auto& binding) { put(removed, binding); },
      [&](const auto& binding) { put(added, binding); },
      [&](const auto& old, const auto& now) {
        if (old.second == now.second) return;
        Json entry = bindingWords(now.first);
        entry["from"] = old.second;
        entry["to"] = now.second;
        changes.add(changed, entry);
      });
  return changes;
}

/// Port-channels with their members, mirror sessions with their destinations.
Part namesDifference(const std::map<std::string, std::vector<std::string>>& before,
                     const std::map<std::string, std::vector<std::string>>& after) {
  Part changes;
  const auto put = [&changes](Part::What what, const auto& one) {
    changes.add(what, {{"name", one.first}, {"interfaces", one.second}});
  };
  compare(
      before, after, [&](const auto& one) { put(removed, one); }, [&](const auto& one) { put(added, one); },
      [&](const auto& old, const auto& now) {
        if (old.second == now.second) return;
        changes.add(changed, {{"name", now.first}, {"from", old.second}, {"to", now.second}});
      });
  return changes;
}

Json notesJson(const Config::InterfaceNotes& notes) {
  return {{"description", notes.description}, {"shutdown", notes.shutdown}};
}

/// What is kept with interfaces and has no effect on traffic.
Part notesDifference(const Config::Model& before, const Config::Model& after) {
  Part changes;
  const auto put = [&changes](Part::What what, const auto& one) {
    Json entry = {{"name", one.first}};
    entry.update(notesJson(one.second));
    changes.add(what, entry);
  };
  compare(
      before.interfaceNotes, after.interfaceNotes, [&](const auto& one) { put(removed, one); },
      [&](const auto& one) { put(added, one); },
      [&](const auto& old, const auto& now) {
        if (old.second == now.second) return;
        changes.add(changed,
                    {{"name", now.first}, {"from", notesJson(old.second)}, {"to", notesJson(now.second)}});
      });
  return changes;
}

/// The members of one group that another one does not have.
Json membersWithout(const Config::ObjectGroup& group, const Config::ObjectGroup& other) {
  const std::set<std::string_view> others(other.members.begin(), other.members.end());
  Json only = Json::array();
  for (const std::string& member : group.members) {
    if (!others.contains(member)) only.push_back(member);
  }
  return only;
}

/// Groups as they are typed. What a change means for rules is in the difference of these.
Part groupsDifference(const Config::Model& before, const Config::Model& after) {
  Part changes;
  const auto entryOf = [](const auto& group) {
    return Json{{"name", group.first}, {"kind", group.second.service ? "service" : "network"}};
  };
  const auto put = [&](Part::What what, const auto& group) {
    Json entry = entryOf(group);
    entry["members"] = group.second.members.size();
    changes.add(what, entry);
  };
  compare(
      before.objectGroups, after.objectGroups, [&](const auto& group) { put(removed, group); },
      [&](const auto& group) { put(added, group); },
      [&](const auto& old, const auto& now) {
        if (old.second == now.second) return;
        Json entry = entryOf(now);
        entry["members"] = {{"added", membersWithout(now.second, old.second)},
                            {"removed", membersWithout(old.second, now.second)}};
        changes.add(changed, entry);
      });
  return changes;
}

/// What other sources define. In the summary each kind has the noun of its own part.
Part uncoveredEntries(const Uncovered& uncovered, DifferenceSummary& summary) {
  Part all(Part::ofUncovered);
  const auto put = [&all](Json entry, const std::string& source) {
    entry["source"] = sourceTitle(source);
    all.add(added, entry);
  };
  for (const auto& [key, source] : uncovered.lists)
    put({{"kind", "list"}, {"type", Acl::stringValue(key.first)}, {"name", key.second}}, source);
  for (const auto& [place, list, source] : uncovered.bindings) {
    Json entry = {{"kind", "binding"}};
    entry.update(bindingWords(place));
    entry["list"] = list;
    put(std::move(entry), source);
  }
  for (const auto& [name, source] : uncovered.portChannels)
    put({{"kind", "port-channel"}, {"name", name}}, source);
  for (const auto& [name, source] : uncovered.mirrorSessions)
    put({{"kind", "mirror session"}, {"name", name}}, source);
  summary.addUncovered("list", uncovered.lists.size());
  summary.addUncovered("binding", uncovered.bindings.size());
  summary.addUncovered("port-channel", uncovered.portChannels.size());
  summary.addUncovered("mirror session", uncovered.mirrorSessions.size());
  return all;
}

}  // namespace

Difference difference(const Config::Model& before, const Config::Model& after, const Uncovered& uncovered) {
  TextPieces all;
  DifferenceSummary summary;
  const auto add = [&](std::string_view member, std::string_view noun, Part&& part) {
    if (!noun.empty()) summary.add(noun, part);
    all.add(fmt::format("{}\"{}\":", member == "lists" ? "{" : ",", member));
    all.add(part.take());
  };
  add("lists", {}, listsDifference(before, after, summary));
  add("bindings", "binding", bindingsDifference(before, after));
  add("portChannels", "port-channel", namesDifference(before.portChannels, after.portChannels));
  add("mirrorSessions", "mirror session", namesDifference(before.mirrorSessions, after.mirrorSessions));
  add("interfaces", "description", notesDifference(before, after));
  add("objectGroups", "object-group", groupsDifference(before, after));
  add("comesIntoForce", {}, uncoveredEntries(uncovered, summary));
  all.add(",\"summary\":" + lineOf(summary.text()) + "}");
  return {all.take(), summary.text()};
}

std::shared_ptr<const std::string> Difference::line() const {
  std::string whole;
  for (const std::string& piece : json) whole += piece;
  return std::make_shared<const std::string>(std::move(whole));
}

}  // namespace Agent
