#include <agent/show/Report.h>

namespace Agent {

Report makeReport(const Core& core, const Forwarder& forwarder, const FrameTotals& totals) {
  const ListReader reader(core);
  Report report;
  report.totals = totals;
  for (const auto& key : reader.defined()) report.lists.push_back(reader.list(key));
  for (const auto& key : reader.undefined()) report.undefined.push_back(reader.head(key));
  report.drops = dropsOf(core);
  for (const auto& [id, port] : forwarder.ports()) report.ports[id.name().str()] = *port;
  return report;
}

}  // namespace Agent
