#include <agent/show/Report.h>

namespace Agent {

Report makeReport(const Core& core, const Forwarder& forwarder) {
  const ListReader reader(core);
  Report report;
  for (const auto& key : reader.defined()) report.lists.push_back(reader.list(key));
  for (const auto& key : reader.undefined()) {
    report.undefined.push_back(reader.head(key));
  }
  for (auto at = core.namedCounters()->counter().begin(); at; at.next()) {
    report.drops[at.key().category.str()][at.key().facility.str()][at.key().reason.str()] = at.value();
  }
  for (const auto& [id, port] : forwarder.ports()) report.ports[id.name().str()] = *port;
  return report;
}

}  // namespace Agent
