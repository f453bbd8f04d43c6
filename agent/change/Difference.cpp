#include <agent/change/Difference.h>
#include <agent/core/Document.h>
#include <agent/core/Reserve.h>
#include <fmt/format.h>

#include <iterator>
#include <string_view>
#include <utility>

namespace Agent {

using Json = nlohmann::ordered_json;

namespace {

/// What became of an entry; the members of each part, in their order.
enum What { added, removed, changed, respelled };
constexpr std::string_view members[] = {"added", "removed", "changed", "respelled"};

/// Text in pieces, so that it takes no more memory than it has, and is not freed in one go.
class Pieces {
 public:
  void add(std::string_view text) {
    if (all_.empty() || all_.back().size() >= pieceOctets) all_.emplace_back();
    all_.back() += text;
  }
  void add(Pieces&& more) {
    std::move(more.all_.begin(), more.all_.end(), std::back_inserter(all_));
    more.all_.clear();
  }
  std::deque<std::string> take() { return std::move(all_); }

 private:
  std::deque<std::string> all_;
};

/// One part of the difference: the entries by what became of them. They are texts already, for the JSON of a
/// large difference would take many times as much memory, and some more to be freed (its destructor, which
/// must not fail, allocates: nlohmann-json 3.11 does that for every array or object that is not empty).
class Part {
 public:
  explicit Part(int kinds = respelled) : kinds_(kinds) {}

  void add(What what, const Json& entry) { begin(what).add(lineOf(entry)); }
  /// An entry with a further member.
  void add(What what, const Json& entry, std::string_view member, Part&& value) {
    Pieces& to = begin(what);
    to.add(openObject(entry) + lineOf(member) + ":");
    to.add(value.take());
    to.add("}");
  }
  Pieces take() {
    Pieces all;
    for (int what = 0; what < kinds_; ++what) {
      all.add(fmt::format("{}\"{}\":[", what == 0 ? "{" : ",", members[what]));
      all.add(std::move(entries_[what]));
      all.add("]");
    }
    all.add("}");
    return all;
  }

 private:
  Pieces& begin(What what) {
    // What was used of a reserve by now is less than it has.
    Refusable::check();
    if (std::exchange(some_[what], true)) entries_[what].add(",");
    return entries_[what];
  }

  const int kinds_;
  Pieces entries_[std::size(members)];
  bool some_[std::size(members)] = {};
};

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

Part rulesDifference(const Config::List& before, const Config::List& after) {
  Part changes(respelled + 1);
  compare(
      before.rules, after.rules, [&](const auto& rule) { changes.add(removed, ruleEntry(rule.second)); },
      [&](const auto& rule) { changes.add(added, ruleEntry(rule.second)); },
      [&](const auto& old, const auto& now) {
        const Acl::RuleBase& was = Config::common(old.second);
        const Acl::RuleBase& is = Config::common(now.second);
        const bool same = Config::isSameRule(old.second, now.second);
        if (same && was.text == is.text && was.remark == is.remark) return;
        changes.add(same ? respelled : changed,
                    {{"sequence", now.first}, {"from", was.text.view()}, {"to", is.text.view()}});
      });
  return changes;
}

Json listEntry(const Config::List& list) {
  return {{"type", Acl::stringValue(list.type)}, {"name", list.name}, {"rules", list.rules.size()}};
}

Part listsDifference(const Config::Model& before, const Config::Model& after) {
  Part changes;
  compare(
      before.lists, after.lists, [&](const auto& list) { changes.add(removed, listEntry(list.second)); },
      [&](const auto& list) { changes.add(added, listEntry(list.second)); },
      [&](const auto& old, const auto& now) {
        if (old.second == now.second) return;
        changes.add(changed, {{"type", Acl::stringValue(now.second.type)}, {"name", now.second.name}},
                    "rules", rulesDifference(old.second, now.second));
      });
  return changes;
}

Json bindingEntry(const Config::BindingKey& key) {
  return {{"interface", key.interface},
          {"direction", Acl::stringValue(key.direction)},
          {"type", Acl::stringValue(key.type)}};
}

Part bindingsDifference(const Config::Model& before, const Config::Model& after) {
  Part changes;
  const auto put = [&changes](What what, const auto& binding) {
    Json entry = bindingEntry(binding.first);
    entry["list"] = binding.second;
    changes.add(what, entry);
  };
  compare(
      before.bindings, after.bindings, [&](const auto& binding) { put(removed, binding); },
      [&](const auto& binding) { put(added, binding); },
      [&](const auto& old, const auto& now) {
        if (old.second == now.second) return;
        Json entry = bindingEntry(now.first);
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
  const auto put = [&changes](What what, const auto& one) {
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

std::deque<std::string> difference(const Config::Model& before, const Config::Model& after) {
  Pieces all;
  const auto add = [&all](std::string_view opening, Part&& part) {
    all.add(opening);
    all.add(part.take());
  };
  add("{\"lists\":", listsDifference(before, after));
  add(",\"bindings\":", bindingsDifference(before, after));
  add(",\"portChannels\":", namesDifference(before.portChannels, after.portChannels));
  add(",\"mirrorSessions\":", namesDifference(before.mirrorSessions, after.mirrorSessions));
  all.add("}");
  return all.take();
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
