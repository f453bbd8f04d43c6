#include <agent/change/Difference.h>
#include <fmt/format.h>

namespace Agent {

using Json = nlohmann::ordered_json;

namespace {

Json noChanges() {
  return {{"added", Json::array()}, {"removed", Json::array()}, {"changed", Json::array()}};
}

/// Walks two maps side by side: `gone(entry)`, `come(entry)` and, of a key that is in both, `stays(a, b)`.
template <class Map, class Gone, class Come, class Stays>
void compare(const Map& before, const Map& after, const Gone& gone, const Come& come, const Stays& stays) {
  auto old = before.begin();
  auto now = after.begin();
  while (old != before.end() || now != after.end()) {
    if (now == after.end() || (old != before.end() && old->first < now->first)) {
      gone(*old++);
    } else if (old == before.end() || now->first < old->first) {
      come(*now++);
    } else {
      stays(*old++, *now++);
    }
  }
}

Json ruleEntry(const Config::Rule& rule) {
  return {{"sequence", Config::common(rule).sequence}, {"text", Config::common(rule).text.view()}};
}

Json rulesDifference(const Config::List& before, const Config::List& after) {
  Json changes = noChanges();
  changes["respelled"] = Json::array();
  compare(
      before.rules, after.rules,
      [&](const auto& rule) { changes["removed"].push_back(ruleEntry(rule.second)); },
      [&](const auto& rule) { changes["added"].push_back(ruleEntry(rule.second)); },
      [&](const auto& old, const auto& now) {
        const Acl::RuleBase& was = Config::common(old.second);
        const Acl::RuleBase& is = Config::common(now.second);
        const bool same = Config::isSameRule(old.second, now.second);
        if (same && was.text == is.text && was.remark == is.remark) return;
        changes[same ? "respelled" : "changed"].push_back(
            {{"sequence", now.first}, {"from", was.text.view()}, {"to", is.text.view()}});
      });
  return changes;
}

Json listEntry(const Config::List& list) {
  return {{"type", Acl::stringValue(list.type)}, {"name", list.name}, {"rules", list.rules.size()}};
}

Json listsDifference(const Config::Model& before, const Config::Model& after) {
  Json changes = noChanges();
  compare(
      before.lists, after.lists,
      [&](const auto& list) { changes["removed"].push_back(listEntry(list.second)); },
      [&](const auto& list) { changes["added"].push_back(listEntry(list.second)); },
      [&](const auto& old, const auto& now) {
        if (old.second == now.second) return;
        Json rules = rulesDifference(old.second, now.second);
        changes["changed"].push_back({{"type", Acl::stringValue(now.second.type)},
                                      {"name", now.second.name},
                                      {"rules", std::move(rules)}});
      });
  return changes;
}

Json bindingEntry(const Config::BindingKey& key) {
  return {{"interface", key.interface},
          {"direction", Acl::stringValue(key.direction)},
          {"type", Acl::stringValue(key.type)}};
}

Json bindingsDifference(const Config::Model& before, const Config::Model& after) {
  Json changes = noChanges();
  const auto put = [&changes](const char* what, const auto& binding) {
    Json entry = bindingEntry(binding.first);
    entry["list"] = binding.second;
    changes[what].push_back(std::move(entry));
  };
  compare(
      before.bindings, after.bindings, [&](const auto& binding) { put("removed", binding); },
      [&](const auto& binding) { put("added", binding); },
      [&](const auto& old, const auto& now) {
        if (old.second == now.second) return;
        Json entry = bindingEntry(now.first);
        entry["from"] = old.second;
        entry["to"] = now.second;
        changes["changed"].push_back(std::move(entry));
      });
  return changes;
}

/// Port-channels with their members, mirror sessions with their destinations.
Json namesDifference(const std::map<std::string, std::vector<std::string>>& before,
                     const std::map<std::string, std::vector<std::string>>& after) {
  Json changes = noChanges();
  compare(
      before, after,
      [&](const auto& one) {
        changes["removed"].push_back({{"name", one.first}, {"interfaces", one.second}});
      },
      [&](const auto& one) {
        changes["added"].push_back({{"name", one.first}, {"interfaces", one.second}});
      },
      [&](const auto& old, const auto& now) {
        if (old.second == now.second) return;
        changes["changed"].push_back({{"name", now.first}, {"from", old.second}, {"to", now.second}});
      });
  return changes;
}

// ---- For people.

struct Mark {
  const char* member;
  char sign;
  const char* colour;
};
constexpr Mark marks[] = {{"removed", '-', "\x1b[31m"},
                          {"added", '+', "\x1b[32m"},
                          {"changed", '~', "\x1b[33m"},
                          {"respelled", '~', ""}};

/// A line for each entry, in the words of `text(entry)`.
template <class Text>
void addLines(std::string& out, const Json& changes, bool colour, const Text& text) {
  for (const Mark& mark : marks) {
    for (const Json& entry : changes.value(mark.member, Json::array())) {
      const std::string line = fmt::format("{} {}", mark.sign, text(entry));
      out += colour && *mark.colour ? fmt::format("{}{}\x1b[0m\n", mark.colour, line) : line + "\n";
    }
  }
}

std::string wordOf(const Json& entry, const char* member) { return entry.at(member).get<std::string>(); }

std::string interfacesText(const Json& names) {
  std::string text;
  for (const Json& name : names) text += " " + name.get<std::string>();
  return text;
}

}  // namespace

Json difference(const Config::Model& before, const Config::Model& after) {
  return {{"lists", listsDifference(before, after)},
          {"bindings", bindingsDifference(before, after)},
          {"portChannels", namesDifference(before.portChannels, after.portChannels)},
          {"mirrorSessions", namesDifference(before.mirrorSessions, after.mirrorSessions)}};
}

bool isNoDifference(const Json& difference) {
  for (const Json& part : difference) {
    for (const Json& entries : part) {
      if (!entries.empty()) return false;
    }
  }
  return true;
}

std::string differenceText(const Json& difference, bool colour) {
  if (isNoDifference(difference)) return "nothing changes\n";
  std::string text;
  const Json& lists = difference.at("lists");
  addLines(text, lists, colour, [](const Json& list) {
    const std::string title = fmt::format("{} access-list {}", wordOf(list, "type"), wordOf(list, "name"));
    if (!list.at("rules").is_number()) return title;
    const auto rules = list.at("rules").get<uint64_t>();
    return fmt::format("{} ({} rule{})", title, rules, rules == 1 ? "" : "s");
  });
  for (const Json& list : lists.at("changed")) {
    text += fmt::format("  in {} access-list {}:\n", wordOf(list, "type"), wordOf(list, "name"));
    addLines(text, list.at("rules"), colour, [](const Json& rule) {
      const auto number = rule.at("sequence").get<uint32_t>();
      return rule.contains("text")
                 ? fmt::format("  {} {}", number, wordOf(rule, "text"))
                 : fmt::format("  {} {}  (was: {})", number, wordOf(rule, "to"), wordOf(rule, "from"));
    });
  }
  addLines(text, difference.at("bindings"), colour, [](const Json& binding) {
    const std::string place =
        fmt::format("interface {}: {} access-group", wordOf(binding, "interface"), wordOf(binding, "type"));
    const std::string direction = wordOf(binding, "direction");
    return binding.contains("list") ? fmt::format("{} {} {}", place, wordOf(binding, "list"), direction)
                                    : fmt::format("{} {} {}  (was: {})", place, wordOf(binding, "to"),
                                                  direction, wordOf(binding, "from"));
  });
  for (const auto& [member, what] :
       {std::pair("portChannels", "port-channel"), std::pair("mirrorSessions", "mirror session")}) {
    addLines(text, difference.at(member), colour, [what = what](const Json& one) {
      return one.contains("interfaces")
                 ? fmt::format("{} {}:{}", what, wordOf(one, "name"), interfacesText(one.at("interfaces")))
                 : fmt::format("{} {}:{}  (was:{})", what, wordOf(one, "name"), interfacesText(one.at("to")),
                               interfacesText(one.at("from")));
    });
  }
  return text;
}

}  // namespace Agent
