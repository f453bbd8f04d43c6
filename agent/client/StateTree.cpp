#include <agent/client/StateTree.h>
#include <agent/models/Documents.h>
#include <fmt/format.h>

#include <algorithm>
#include <map>

namespace Agent {

using Json = nlohmann::ordered_json;

namespace {

/// Types of lists as the models call them, without their prefix.
constexpr std::pair<std::string_view, std::string_view> typeWords[] = {
    {"ACL_IPV4", "ip"},      {"ACL_IPV6", "ipv6"},      {"ACL_L2", "mac"},
    {"ipv4-acl-type", "ip"}, {"ipv6-acl-type", "ipv6"}, {"eth-acl-type", "mac"},
};

struct DirectionWords {
  const char* ours;
  const char* theirs;
};
constexpr DirectionWords wordsOfDirections[] = {{"in", "ingress"}, {"out", "egress"}};

std::string entryName(const Json& entry) {
  if (entry.contains("name")) return entry.at("name").get<std::string>();
  return std::to_string(entry.at("sequence-id").get<uint64_t>());
}

/// One list as the agent shows it.
class CountedList {
 public:
  explicit CountedList(const Json& list) : list_(list) {
    for (const Json& rule : list.at("rules"))
      rules_[std::to_string(rule.at("sequence").get<uint64_t>())] = &rule;
    rules_[std::to_string(Models::endNumber)] = rules_[std::string(Models::endName)] =
        &list.at("implicitDrop");
  }

  /// Of an entry by its name or number, if the list has it. `direction`: null: of both.
  Json counts(const std::string& entry, const char* direction) const {
    const auto at = rules_.find(entry);
    if (at == rules_.end()) return Json::object();
    return {{"matched-packets", sum(at->second->at("matches"), direction)},
            {"matched-octets", sum(at->second->at("bytes"), direction)}};
  }

  /// Whether entries are its rules, one by one, and the end.
  bool hasTheRules(const Json& entries) const {
    const auto isRule = [this](const Json& entry) { return rules_.contains(entryName(entry)); };
    return entries.size() == list_.at("rules").size() + 1 &&
           std::all_of(entries.begin(), entries.end(), isRule);
  }

  /// Whether it is bound in exactly one place of a direction. Then all that it has counted in this direction
  /// was counted at this place.
  bool isOfOnePlace(std::string_view direction) const {
    size_t places = 0;
    for (const Json& binding : list_.at("bindings")) places += binding.at("direction") == direction;
    return places == 1;
  }

 private:
  /// Counters of 64 bits are texts in documents of both models.
  static std::string sum(const Json& count, const char* direction) {
    if (direction) return std::to_string(count.at(direction).get<uint64_t>());
    return std::to_string(count.at("in").get<uint64_t>() + count.at("out").get<uint64_t>());
  }

  const Json& list_;
  std::map<std::string, const Json*> rules_;
};

/// The lists that are shown, by type and name.
class Counted {
 public:
  explicit Counted(const Json& shown) {
    for (const Json& list : shown.at("lists")) {
      lists_.try_emplace({list.at("type").get<std::string>(), list.at("name").get<std::string>()}, list);
    }
  }

  /// Only when each rule is one entry: of parts of a rule nothing is known, and they may have other numbers.
  const CountedList* find(const Json& type, const Json& name, const Json& entries) const {
    const CountedList* list = find(type, name);
    return list && list->hasTheRules(entries) ? list : nullptr;
  }

 private:
  const CountedList* find(const Json& type, const Json& name) const {
    const std::string qualified = type.get<std::string>();
    const std::string_view word = std::string_view(qualified).substr(qualified.find(':') + 1);
    for (const auto& [theirs, ours] : typeWords) {
      const auto at =
          theirs == word ? lists_.find({std::string(ours), name.get<std::string>()}) : lists_.end();
      if (at != lists_.end()) return &at->second;
    }
    return nullptr;
  }

  std::map<std::pair<std::string, std::string>, CountedList> lists_;
};

/// The counters of each entry of a list for one direction, under its key.
Json ofPlace(const CountedList& list, const Json& entries, const char* direction, const char* key) {
  Json all = Json::array();
  for (const Json& entry : entries) {
    const Json counts = list.counts(entryName(entry), direction);
    if (counts.empty()) continue;
    Json one{{key, entry.at(key)}};
    one.update(counts);
    all.push_back(std::move(one));
  }
  return all;
}

/// What is in force is what is configured: beside each `config` the model has a `state`.
void addStates(Json& tree) {
  if (tree.is_object() && tree.contains("config")) tree["state"] = tree.at("config");
  for (auto& [name, below] : tree.items()) {
    if (below.is_structured() && name != "config" && name != "state") addStates(below);
  }
}

void addOpenConfig(Json& acl, const Counted& counted) {
  addStates(acl);
  std::map<std::pair<std::string, std::string>, const Json*> entriesOf;
  for (Json& set : acl["acl-sets"]["acl-set"]) {
    const CountedList* list = counted.find(set.at("type"), set.at("name"), set["acl-entries"]["acl-entry"]);
    for (Json& entry : set["acl-entries"]["acl-entry"]) {
      if (list) entry["state"].update(list->counts(entryName(entry), nullptr));
    }
    entriesOf[{set.at("type"), set.at("name")}] = &set["acl-entries"]["acl-entry"];
  }
  if (!acl.contains("interfaces")) return;
  for (Json& place : acl["interfaces"]["interface"]) {
    for (const auto& [ours, theirs] : wordsOfDirections) {
      const std::string sets = fmt::format("{}-acl-sets", theirs), set = fmt::format("{}-acl-set", theirs);
      if (!place.contains(sets)) continue;
      for (Json& bound : place[sets][set]) {
        const auto entries = entriesOf.find({bound.at("type"), bound.at("set-name")});
        if (entries == entriesOf.end()) continue;
        const CountedList* list = counted.find(bound.at("type"), bound.at("set-name"), *entries->second);
        if (!list || !list->isOfOnePlace(ours)) continue;
        for (const Json& state : ofPlace(*list, *entries->second, ours, "sequence-id"))
          bound["acl-entries"]["acl-entry"].push_back(
              {{"sequence-id", state.at("sequence-id")}, {"state", state}});
      }
    }
  }
}

void addIetf(Json& acls, const Counted& counted) {
  std::map<std::string, const Json*> byName;
  for (Json& acl : acls["acl"]) {
    byName[acl.at("name")] = &acl;
    const CountedList* list = counted.find(acl.at("type"), acl.at("name"), acl["aces"]["ace"]);
    for (Json& ace : acl["aces"]["ace"]) {
      const Json counts = list ? list->counts(entryName(ace), nullptr) : Json::object();
      if (!counts.empty()) ace["statistics"] = counts;
    }
  }
  if (!acls.contains("attachment-points")) return;
  for (Json& place : acls["attachment-points"]["interface"]) {
    for (const auto& [ours, theirs] : wordsOfDirections) {
      if (!place.contains(theirs)) continue;
      for (Json& bound : place[theirs]["acl-sets"]["acl-set"]) {
        const auto at = byName.find(bound.at("name"));
        if (at == byName.end()) continue;
        const CountedList* list =
            counted.find(at->second->at("type"), bound.at("name"), at->second->at("aces").at("ace"));
        if (list && list->isOfOnePlace(ours))
          bound["ace-statistics"] = ofPlace(*list, at->second->at("aces").at("ace"), ours, "name");
      }
    }
  }
}

}  // namespace

bool hasState(Models::Format format) {
  return format == Models::Format::ietf || format == Models::Format::openConfig;
}

Json withState(Json document, Models::Format format, const Json& shown) {
  const Counted counted(shown);
  for (auto& [root, tree] : document.items()) {
    if (format == Models::Format::ietf)
      addIetf(tree, counted);
    else
      addOpenConfig(tree, counted);
  }
  return document;
}

}  // namespace Agent
