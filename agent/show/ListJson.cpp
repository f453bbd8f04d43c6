#include <agent/core/Reserve.h>
#include <agent/core/Words.h>
#include <agent/show/ListJson.h>

namespace Agent {

using Json = nlohmann::ordered_json;

namespace {

Json bindingsJson(const ListReport& list) {
  Json all = Json::array();
  for (const auto& binding : list.bindings) {
    Refusable::check();
    Json one = boundAtWords(binding.interface, binding.direction);
    addSources(one, binding.sources);
    all.push_back(std::move(one));
  }
  return all;
}

}  // namespace

void addSources(Json& document, const std::vector<std::string>& sources) {
  document["source"] = sources.empty() ? Json(nullptr) : Json(sources.front());
  Json& overridden = document["overridden"] = Json::array();
  for (size_t i = 1; i < sources.size(); ++i) overridden.push_back(sources[i]);
}

Json matchesJson(const MatchCount& count) { return {{"in", count.in}, {"out", count.out}}; }

Json bytesJson(const MatchCount& count) { return {{"in", count.bytesIn}, {"out", count.bytesOut}}; }

Json lastMatchJson(const MatchCount& count) { return count.last ? Json(*count.last) : Json(nullptr); }

Json ruleJson(const RuleReport& rule) {
  Json one = ruleWords(rule.sequence, rule.text);
  if (!rule.remark.empty()) one["remark"] = rule.remark;
  one["id"] = rule.id;
  one["matches"] = matchesJson(rule.matches);
  one["bytes"] = bytesJson(rule.matches);
  one["lastMatch"] = lastMatchJson(rule.matches);
  if (rule.mirrored) one["mirrored"] = *rule.mirrored;
  return one;
}

Json headJson(const ListReport& list) {
  Json implicit = nullptr;
  if (list.implicitDrop) {
    implicit = {{"matches", matchesJson(*list.implicitDrop)},
                {"bytes", bytesJson(*list.implicitDrop)},
                {"lastMatch", lastMatchJson(*list.implicitDrop)}};
  }
  Json head = listWords(list.type, list.name);
  addSources(head, list.sources);
  head["bindings"] = bindingsJson(list);
  head["implicitDrop"] = std::move(implicit);
  if (!list.remarks.empty()) head["remarks"] = list.remarks;
  return head;
}

Json listJson(const ListReport& list) {
  Json whole = headJson(list);
  whole["rules"] = Json::array();
  for (const auto& rule : list.rules) whole["rules"].push_back(ruleJson(rule));
  return whole;
}

Json undefinedJson(const ListReport& list) {
  Json whole = listWords(list.type, list.name);
  whole["bindings"] = bindingsJson(list);
  return whole;
}

}  // namespace Agent
