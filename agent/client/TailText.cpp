#include <agent/client/TailText.h>
#include <agent/core/Style.h>
#include <agent/core/Words.h>
#include <agent/show/Text.h>
#include <fmt/format.h>

#include <algorithm>

namespace Agent {

using Json = nlohmann::ordered_json;

namespace {

std::string word(const Json& object, const char* member) { return object.at(member).get<std::string>(); }

/// "FROM-ALICE 10".
std::string decidedBy(const Json& hit) {
  return fmt::format("{} {}", word(hit, "list"), valueText(hit.at("rule")));
}

void add(std::string& text, const std::string& more) { text += (text.empty() ? "" : ", ") + more; }

/// The list and rule that dropped a frame at a port; the reason when no list did.
std::string droppedBy(const Json& egress, const Json& hits) {
  return egress.contains("by") ? decidedBy(hits.at(egress.at("by").get<size_t>()))
                               : fmt::format("({})", word(egress, "reason"));
}

/// Which rules decided about a frame.
std::string deciders(const Json& frame) {
  const Json &hits = frame.at("hits"), &egress = frame.at("egress");
  const bool passed = frame.at("verdict") == "pass";
  std::string text;
  if (!passed && egress.empty()) {
    const bool byList = !hits.empty() && hits.back().at("action") == "deny";
    return byList ? decidedBy(hits.back()) : fmt::format("({})", word(frame, "reason"));
  }
  for (const Json& hit : hits) {
    if (passed && hit.at("action") == "permit") add(text, decidedBy(hit));
  }
  for (const Json& one : egress) {
    if (one.at("verdict") == "pass") continue;
    const std::string by = droppedBy(one, hits);
    add(text, passed ? fmt::format("not {}: {}", word(one, "port"), by) : by);
  }
  return text.empty() ? "-" : text;
}

}  // namespace

std::string TailText::lines(const Json& frame) {
  const Style style(colour_);
  const std::string port = word(frame, "port"), by = deciders(frame);
  constexpr size_t widestBy = 40;  // longer ones do not move the lines behind them
  port_ = std::max(port_, port.size());
  by_ = std::max(by_, std::min(by.size(), widestBy));
  const bool dropped = frame.at("verdict") == "drop";
  const std::string verdict =
      fmt::format("{}{}{}", dropped ? style.red : "", word(frame, "verdict"), dropped ? style.off : "");
  constexpr size_t date = sizeof "2026-11-22";
  return passedOver(frame.at("passedOver").get<uint64_t>()) +
         fmt::format("{}  {:<{}}  {}  {:<{}}  {}\n",
                     timeText(frame.at("time").get<double>(), std::nullopt).substr(date), port, port_,
                     verdict, by, by_, word(frame, "packet"));
}

std::string TailText::passedOver(uint64_t frames) {
  return frames == 0 ? "" : fmt::format("... {} passed over\n", countText(frames, "packet"));
}

}  // namespace Agent
