#include <agent/show/Verdicts.h>

#include <algorithm>

namespace Agent {

using Json = nlohmann::ordered_json;

namespace {

std::string_view verdictWord(bool passed) { return passed ? "pass" : "drop"; }

}  // namespace

void Fate::mirroredAdd(const Kelp::String& session) {
  if (std::find(mirrored.begin(), mirrored.end(), session) == mirrored.end()) mirrored.push_back(session);
}

void Fate::egressAdd(const Nimnet::IntfId& to, bool left, const Kelp::String& dropReason) {
  Egress one{to, left};
  if (!left) one.reason = dropReason;
  // The lists that were asked since the port before are those of this one; the last of them decided.
  if (!left && hits.size() > hitsBefore_ && hits.back().action == Acl::Action::deny)
    one.by = static_cast<uint32_t>(hits.size() - 1);
  hitsBefore_ = hits.size();
  egress.push_back(std::move(one));
}

void Fate::verdictIs(const Verdict& verdict, const Kelp::String& dropReason) {
  passed = verdict.passed();
  direction = verdict.direction;
  if (!passed) reason = egress.empty() ? dropReason : egress.front().reason;
}

void Fate::clear() {
  port = {};
  passed = true;
  direction = Acl::AclDirection::in;
  reason = {};
  hits.clear();
  egress.clear();
  addressed = false;
  mirrored.clear();
  hitsBefore_ = 0;
}

bool decidedByAddresses(const Fate& fate) {
  return fate.addressed || std::any_of(fate.hits.begin(), fate.hits.end(),
                                       [](const Hit& hit) { return hit.type == Acl::AclType::mac; });
}

Json hitWords(const Hit& hit) {
  Json rule;
  if (hit.defined) rule = hit.sequence ? Json(hit.sequence) : Json("implicit");
  return {{"direction", Acl::stringValue(hit.direction)},
          {"interface", hit.intf.name().view()},
          {"type", Acl::stringValue(hit.type)},
          {"list", hit.list.view()},
          {"rule", std::move(rule)},
          {"action", Acl::stringValue(hit.action)}};
}

Json egressWords(const Egress& egress) {
  Json words = {{"port", egress.port.name().view()}, {"verdict", verdictWord(egress.passed)}};
  if (!egress.passed) words["reason"] = egress.reason.view();
  if (egress.by) words["by"] = *egress.by;
  return words;
}

Json mirroredWords(const Fate& fate) {
  Json words = Json::array();
  for (const Kelp::String& session : fate.mirrored) words.push_back(session.view());
  return words;
}

void addVerdict(Json& document, const Fate& fate) {
  document["verdict"] = verdictWord(fate.passed);
  if (fate.passed) return;
  document["direction"] = Acl::stringValue(fate.direction);
  document["reason"] = fate.reason.view();
}

void addHits(Json& document, const Fate& fate) {
  Json& hits = document["hits"] = Json::array();
  for (const Hit& hit : fate.hits) hits.push_back(hitWords(hit));
  document["mirrored"] = mirroredWords(fate);
}

std::string uncountedReason(const Velo::PipelineStep& droppedBy) {
  return "dropped by " + droppedBy.name().str();
}

}  // namespace Agent
