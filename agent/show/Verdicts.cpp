#include <agent/show/Verdicts.h>

namespace Agent {

using Json = nlohmann::ordered_json;

Json hitWords(const Hit& hit) {
  return {{"direction", Acl::stringValue(hit.direction)},
          {"interface", hit.intf.name().view()},
          {"type", Acl::stringValue(hit.type)},
          {"list", hit.list.view()},
          {"rule", hit.sequence ? Json(hit.sequence) : Json("implicit")},
          {"action", Acl::stringValue(hit.action)}};
}

void addVerdict(Json& document, const Verdict& verdict, std::string_view reason) {
  document["verdict"] = verdictWord(verdict.passed());
  if (verdict.passed()) return;
  document["direction"] = Acl::stringValue(verdict.direction);
  document["reason"] = reason;
}

std::string_view verdictWord(bool passed) { return passed ? "pass" : "drop"; }

std::string uncountedReason(const Velo::PipelineStep& droppedBy) {
  return "dropped by " + droppedBy.name().str();
}

}  // namespace Agent
