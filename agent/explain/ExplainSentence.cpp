#include <agent/explain/Explain.h>

#include <vector>

namespace Agent {

using Json = nlohmann::ordered_json;

namespace {

std::string word(const Json& object, const char* member) { return object.at(member).get<std::string>(); }

/// "a, b and c".
std::string all(const std::vector<std::string>& parts) {
  std::string text;
  for (size_t i = 0; i < parts.size(); ++i)
    text += (i == 0 ? "" : i + 1 == parts.size() ? " and " : ", ") + parts[i];
  return text;
}

/// What a list did, as the end of "dropped ..." or "passes ...".
std::string decision(const Json& asked) {
  const std::string list = fmt::format("{} on {}", word(asked, "list"), word(asked, "interface"));
  if (asked.at("rule").is_null()) return fmt::format("because {} is not defined", list);
  if (asked.at("rule").is_string()) return fmt::format("because no rule of {} matches", list);
  return fmt::format("by rule {} of {}", asked.at("rule").get<uint32_t>(), list);
}

/// The decisions of the lists that let it pass.
std::string passing(const Json& document) {
  std::vector<std::string> parts;
  for (const Json& asked : document.at("asked")) {
    if (asked.at("action") == "permit") parts.push_back(decision(asked));
  }
  return parts.empty() ? "passes, no list is asked" : "passes " + all(parts);
}

std::string droppedOut(const Json& egress, const Json& document) {
  if (egress.contains("by")) return decision(document.at("asked").at(egress.at("by").get<size_t>()));
  return fmt::format("on {} ({})", word(egress, "port"), word(egress, "reason"));
}

}  // namespace

std::string explainSentence(const Json& document) {
  const Json& egress = document.at("egress");
  const bool passed = document.at("verdict") == "pass";
  if (!passed && egress.empty()) {
    const Json& asked = document.at("asked");
    if (!asked.empty() && asked.back().at("action") == "deny")
      return "dropped on its way in " + decision(asked.back());
    return fmt::format("dropped on its way in on {}: {}", word(document, "port"), word(document, "reason"));
  }
  std::vector<std::string> leaves, drops;
  for (const Json& one : egress) {
    if (one.at("verdict") == "pass")
      leaves.push_back(word(one, "port"));
    else
      drops.push_back(droppedOut(one, document));
  }
  const std::string dropped = drops.empty() ? "" : "dropped on its way out " + all(drops);
  if (!passed) return dropped;
  return fmt::format("{}, and leaves by {}{}{}", passing(document), leaves.empty() ? "no port" : all(leaves),
                     dropped.empty() ? "" : "; ", dropped);
}

}  // namespace Agent
