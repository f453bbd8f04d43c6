#include <agent/replay/Report.h>
#include <agent/replay/StatusJson.h>

namespace Agent {

namespace {

using Json = nlohmann::ordered_json;

Json lastMatchOf(const MatchCount& count) { return count.last ? Json(*count.last) : Json(nullptr); }

Json matchesOf(const MatchCount& count) { return {{"in", count.in}, {"out", count.out}}; }

Json bindingsOf(const ListReport& list) {
  Json all = Json::array();
  for (const auto& binding : list.bindings) {
    Json one = {{"interface", binding.interface}, {"direction", Acl::stringValue(binding.direction)}};
    one["source"] = binding.sources.empty() ? Json(nullptr) : Json(binding.sources.front());
    one["overridden"] = Json::array();
    for (size_t i = 1; i < binding.sources.size(); ++i) one["overridden"].push_back(binding.sources[i]);
    all.push_back(std::move(one));
  }
  return all;
}

Json jsonOf(const ListReport& list) {
  Json rules = Json::array();
  for (const auto& rule : list.rules) {
    Json one = {{"sequence", rule.sequence}, {"text", rule.text}};
    if (!rule.remark.empty()) one["remark"] = rule.remark;
    one["id"] = rule.id;
    one["matches"] = matchesOf(rule.matches);
    one["lastMatch"] = lastMatchOf(rule.matches);
    if (rule.mirrored) one["mirrored"] = *rule.mirrored;
    rules.push_back(std::move(one));
  }
  Json overridden = Json::array();
  for (size_t i = 1; i < list.sources.size(); ++i) overridden.push_back(list.sources[i]);
  Json implicit = nullptr;
  if (list.implicitDrop) {
    implicit = {{"matches", matchesOf(*list.implicitDrop)}, {"lastMatch", lastMatchOf(*list.implicitDrop)}};
  }
  return {{"type", Acl::stringValue(list.type)},
          {"name", list.name},
          {"source", list.sources.empty() ? Json(nullptr) : Json(list.sources.front())},
          {"overridden", overridden},
          {"bindings", bindingsOf(list)},
          {"rules", rules},
          {"implicitDrop", implicit}};
}

}  // namespace

std::string reportJson(const Report& report, const Kelp::Ptr<const Acl::StatusDp>& status) {
  Json document = {{"frames", report.frames},
                   {"bytes", report.bytes},
                   {"passed", report.passed},
                   {"dropped", report.dropped}};
  document["lists"] = Json::array();
  for (const auto& list : report.lists) document["lists"].push_back(jsonOf(list));
  document["undefined"] = Json::array();
  for (const auto& list : report.undefined) {
    document["undefined"].push_back(
        {{"type", Acl::stringValue(list.type)}, {"name", list.name}, {"bindings", bindingsOf(list)}});
  }
  document["drops"] = Json(report.drops);
  if (document["drops"].is_null()) document["drops"] = Json::object();
  document["ports"] = Json::object();
  for (const auto& [name, port] : report.ports) {
    document["ports"][name] = {{"received", port.received},
                               {"sent", port.sent},
                               {"dropped", {{"in", port.droppedIn}, {"out", port.droppedOut}}},
                               {"mirrored", port.mirrored}};
  }
  document["status"] = status ? statusJson(*status) : Json(nullptr);
  return document.dump(2, ' ', false, Json::error_handler_t::replace) + "\n";
}

}  // namespace Agent
