#include <Kiv/Clock.h>
#include <agent/change/Effective.h>
#include <agent/change/WarningCollector.h>
#include <agent/core/Words.h>
#include <agent/proof/Sayings.h>
#include <agent/study/ListProof.h>
#include <fmt/format.h>

#include <algorithm>
#include <map>

namespace Agent {

using Json = nlohmann::ordered_json;

namespace {

/// A list in force, and where it stands.
struct Standing {
  const Config::ListKey* key;
  const Config::Model* model;

  const Config::List& list() const { return model->lists.at(*key); }
  Place placeOf(uint32_t rule) const {
    const Config::Notices& notices = model->notices;
    return rule == 0 ? notices.placeOf(notices.lists, *key)
                     : notices.placeOf(notices.rules, std::pair(*key, rule));
  }
};

std::vector<Standing> bySize(const Effective& effective) {
  std::vector<Standing> lists;
  for (const auto& [key, owner] : effective.lists) lists.push_back({&key, owner.model});
  std::stable_sort(lists.begin(), lists.end(), [](const Standing& a, const Standing& b) {
    return a.list().rules.size() < b.list().rules.size();
  });
  return lists;
}

/// Calls visit(list, sayings) for each list of which `isAsked` says so.
template <class IsAsked, class Visit>
void proveEach(const Effective& effective, const Proof::Limits& limits, Proof::Say say,
               const IsAsked& isAsked, const Visit& visit) {
  const Kelp::Duration begin = Kiv::steadyClock().now();
  for (const Standing& at : bySize(effective)) {
    if (!isAsked(*at.key)) continue;
    visit(at, Proof::sayingsOf(at.list(), limits.leftSince(begin, Kiv::steadyClock().now()), say));
  }
}

std::string cutOffText(const Standing& at, const Proof::Sayings& said) {
  return fmt::format("{}: {}", listTitle(at.key->first, at.key->second), said.cutOff);
}

Json findingJson(const Proof::Saying& saying) {
  Json finding = {{"code", saying.code.kind().code}, {"text", saying.text}};
  if (!saying.example.empty()) finding["example"] = saying.example;
  if (!saying.by.empty()) finding["by"] = saying.by;
  return finding;
}

/// Puts what is said of a list into its document.
void addSayings(Json& list, const Standing& at, const Proof::Sayings& said) {
  std::map<uint32_t, Json> found;  // by rule
  for (const Proof::Saying& each : said.all)
    found.try_emplace(each.sequence, Json::array()).first->second.push_back(findingJson(each));
  const auto& rules = at.list().rules;
  for (Json& rule : list.at("rules")) {
    const auto known = rules.find(rule.at("sequence").get<uint32_t>());
    const bool same = known != rules.end() && Config::common(known->second).text.view() ==
                                                  rule.at("text").get_ref<const std::string&>();
    const auto of = same ? found.find(known->first) : found.end();
    rule["findings"] = of == found.end() ? Json::array() : of->second;
  }
  const auto whole = found.find(0);
  list["findings"] = whole == found.end() ? Json::array() : whole->second;
}

}  // namespace

ListProof proveLists(const Layers& layers, const Proof::Limits& limits,
                     const std::optional<std::string>& source, Proof::Say say) {
  const Effective effective(layers);
  ListProof proof;
  WarningCollector found;
  const auto isAsked = [&](const Config::ListKey& key) {
    return !source || effective.lists.at(key).source == *source;
  };
  proveEach(effective, limits, say, isAsked, [&](const Standing& at, const Proof::Sayings& said) {
    const std::string title = listTitle(at.key->first, at.key->second);
    for (const Proof::Saying& each : said.all)
      found.add({each.code, at.placeOf(each.sequence), title + " " + each.text, each.example, each.by});
    if (!said.cutOff.empty()) proof.unchecked.push_back(cutOffText(at, said));
  });
  proof.warnings = found.take();
  return proof;
}

void addFindings(Json& document, const Layers& layers, const Proof::Limits& limits, Proof::Say say) {
  const Effective effective(layers);
  // A new member moves the others, so it comes first.
  document["unchecked"] = Json::array();
  std::map<std::string, Json*> lists;  // by title
  for (Json& list : document.at("lists")) lists[listTitle(list)] = &list;
  const auto listOf = [&lists](const Config::ListKey& key) {
    const auto at = lists.find(listTitle(key.first, key.second));
    return at == lists.end() ? nullptr : at->second;
  };
  const auto isAsked = [&](const Config::ListKey& key) { return listOf(key) != nullptr; };
  proveEach(effective, limits, say, isAsked, [&](const Standing& at, const Proof::Sayings& said) {
    addSayings(*listOf(*at.key), at, said);
    if (!said.cutOff.empty()) document["unchecked"].push_back(cutOffText(at, said));
  });
}

}  // namespace Agent
