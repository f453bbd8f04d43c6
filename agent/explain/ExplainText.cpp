#include <agent/core/Style.h>
#include <agent/core/Words.h>
#include <agent/explain/Explain.h>
#include <agent/show/Text.h>

namespace Agent {

using Json = nlohmann::ordered_json;

namespace {

/// The word, in colour if it is "deny" or "drop".
std::string coloured(const Style& style, const std::string& word) {
  if (word == "deny" || word == "drop") return style.red + word + style.off;
  return word;
}

std::string ruleLine(const Json& asked, const Style& style) {
  const std::string action = coloured(style, asked.at("action").get<std::string>());
  if (asked.at("rule").is_null()) return fmt::format("{}{}{}", style.red, notDefined, style.off);
  if (asked.at("rule").is_string()) return fmt::format("no rule matches: {}", action);
  return fmt::format("rule {} decides: {}   ({})", asked.at("rule").get<uint32_t>(), action,
                     asked.at("text").get<std::string>());
}

/// What becomes of the frame: one line, or a line for each port that it is to leave by.
std::string verdictText(const Json& document, const Style& style) {
  const Json& egress = document.at("egress");
  if (egress.empty()) {
    if (document.at("verdict") == "pass") return "pass on receipt; it leaves by no port\n";
    return fmt::format("{} {}: {}\n", coloured(style, "drop"), document.at("direction").get<std::string>(),
                       document.at("reason").get<std::string>());
  }
  std::string text;
  for (const Json& one : egress) {
    const std::string port = one.at("port").get<std::string>();
    text += one.at("verdict") == "pass" ? fmt::format("pass, leaves by {}\n", port)
                                        : fmt::format("{} out, on {}: {}\n", coloured(style, "drop"), port,
                                                      one.at("reason").get<std::string>());
  }
  return text;
}

std::string bridgeText(const Json& bridge) {
  std::string place = bridge.at("address").get<std::string>();
  if (const int vlan = bridge.at("vlan").get<int>()) place += fmt::format(" in vlan {}", vlan);
  if (bridge.at("port").is_null())
    return fmt::format("{} was not learned: it is looked for at every other port of the bridge\n", place);
  return fmt::format("{} was learned on {}, heard of {}\n", place, bridge.at("port").get<std::string>(),
                     timeText(0, bridge.at("age").get<double>()));
}

}  // namespace

std::string explainText(const Json& document, bool colour) {
  const Style style(colour);
  std::string text = fmt::format("{}{}{}  on {}\n", style.bold, document.at("frame").get<std::string>(),
                                 style.off, document.at("port").get<std::string>());
  for (const Json& assumed : document.value("assumed", Json::array()))
    text += fmt::format("({})\n", assumed.get<std::string>());
  for (const Json& asked : document.at("asked")) {
    const Json list = {{"type", asked.at("type")}, {"name", asked.at("list")}};
    text += fmt::format("\n{}: {}{}{}\n", boundAt(asked), style.bold, listTitle(list), style.off);
    for (const Json& near : asked.value("near", Json::array())) {
      std::string failed;
      for (const Json& field : near.at("failed")) {
        failed += fmt::format("{}{} (packet: {})", failed.empty() ? "" : ", ",
                              field.at("field").get<std::string>(), field.at("packet").get<std::string>());
      }
      const std::string rule = ruleTitle(near.at("rule").get<uint32_t>(), near.at("text").get<std::string>());
      text += fmt::format("  {}{}{}\n     not met: {}\n", style.dim, rule, style.off, failed);
    }
    const size_t skipped = asked.value("earlier", size_t{0}) - asked.value("near", Json::array()).size();
    if (skipped > 0)
      text += fmt::format("  {}({} more before it do not match){}\n", style.dim, skipped, style.off);
    text += fmt::format("  {}\n", ruleLine(asked, style));
  }
  if (document.at("asked").empty()) text += "\nno list is asked\n";
  text += "\n";
  for (const Json& session : document.at("mirrored"))
    text += fmt::format("a copy goes to mirror session {}\n", session.get<std::string>());
  const bool received = document.at("verdict") == "pass" || !document.at("egress").empty();
  if (received && document.contains("bridge")) text += bridgeText(document.at("bridge"));
  return text + verdictText(document, style) +
         fmt::format("{}{}{}\n", style.bold, document.at("sentence").get<std::string>(), style.off);
}

}  // namespace Agent
