#include <agent/show/ListJson.h>
#include <agent/show/Report.h>

namespace Agent {

using Json = nlohmann::ordered_json;

Json reportDocument(const Report& report, const Kelp::Ptr<const Acl::StatusDp>& status) {
  const FrameTotals& totals = report.totals;
  Json document = {{"frames", totals.frames},
                   {"bytes", totals.bytes},
                   {"passed", totals.passed},
                   {"dropped", totals.dropped}};
  document["lists"] = Json::array();
  for (const auto& list : report.lists) document["lists"].push_back(listJson(list));
  document["undefined"] = Json::array();
  for (const auto& list : report.undefined) document["undefined"].push_back(undefinedJson(list));
  document["drops"] = dropsJson(report.drops);
  document["ports"] = Json::object();
  for (const auto& [name, port] : report.ports) document["ports"][name] = portJson(port);
  document["status"] = status ? statusJson(*status) : Json(nullptr);
  return document;
}

std::string reportJson(const Report& report, const Kelp::Ptr<const Acl::StatusDp>& status) {
  return linesOf(reportDocument(report, status));
}

}  // namespace Agent
