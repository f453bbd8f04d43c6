#include <agent/core/Style.h>
#include <agent/show/Report.h>
#include <agent/show/Text.h>

namespace Agent {

std::string reportText(const Report& report, bool colour) {
  const nlohmann::ordered_json document = reportDocument(report, nullptr);
  const TextStyle how{colour};
  const Style style(colour);
  std::string text = listsText(document, how);
  if (!report.undefined.empty()) text += "\n";
  if (!report.drops.empty()) text += dropsText(document.at("drops"), how) + "\n";
  text += portsText(document.at("ports"), how);
  const FrameTotals& totals = report.totals;
  text += fmt::format("\n{}{} frames, {} bytes: {} passed, {} dropped{}\n", style.bold, totals.frames,
                      totals.bytes, totals.passed, totals.dropped, style.off);
  return text;
}

}  // namespace Agent
