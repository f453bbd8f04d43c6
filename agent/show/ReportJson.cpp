#include <agent/show/Report.h>

namespace Agent {

using Json = nlohmann::ordered_json;

Json reportDocument(const Report& report, const Kelp::Ptr<const Acl::StatusDp>& status) {
  Json document = {{"frames", report.frames},
                   {"bytes", report.bytes},
                   {"passed", report.passed},
                   {"dropped", report.dropped}};
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
  return reportDocument(report, status).dump(2, ' ', false, Json::error_handler_t::replace) + "\n";
}

}  // namespace Agent
