#include <agent/core/Words.h>
#include <agent/proof/RulesText.h>
#include <agent/study/PacketComparison.h>
#include <fmt/format.h>

#include <algorithm>
#include <cstdint>
#include <vector>

namespace Agent {

using Json = nlohmann::ordered_json;

namespace {

struct Heading {
  const char* member;
  const char* text;
  const char* unjudged;  ///< what changes then besides verdicts; null: a verdict does
};
constexpr Heading headings[] = {
    {"opened", "passes, and was dropped", nullptr},
    {"closed", "is dropped, and passed", nullptr},
    {"mirrored", "meets the same verdict, and is copied elsewhere", "where packets are copied"},
    {"logged", "meets the same verdict, and is logged otherwise", "what is logged"},
    {"counted", "meets the same verdict, and is counted by another rule", "which rules count"}};

/// What else changes where no verdict does.
std::string unjudgedText(const Json& document) {
  std::string text;
  for (const Heading& each : headings) {
    const auto has = [&each](const Json& words) { return !words.at(each.member).at("boxes").empty(); };
    const auto hasOne = [&has](const Json& all) { return std::any_of(all.begin(), all.end(), has); };
    if (each.unjudged && (hasOne(document.at("lists")) || hasOne(document.at("bindings"))))
      text += fmt::format("{}{}", text.empty() ? ", only " : " and ", each.unjudged);
  }
  return text;
}

std::string decidingText(const Json& deciding) {
  std::vector<uint32_t> rules;
  for (const Json& each : deciding) {
    if (each.is_object()) rules.push_back(each.at("sequence").get<uint32_t>());
  }
  std::string text = rules.empty() ? "" : Proof::rulesText(rules);
  if (deciding.size() == 1 && rules.size() == 1)
    text += fmt::format(" ({})", deciding.front().at("text").get<std::string>());
  if (deciding.back().is_string()) text += (text.empty() ? "" : ", or ") + deciding.back().get<std::string>();
  return text;
}

std::string changesText(const Json& words) {
  std::string text;
  for (const Heading& each : headings) {
    const Json& changed = words.at(each.member);
    if (changed.at("boxes").empty()) continue;
    text += fmt::format("  {}:\n", each.text);
    for (const Json& box : changed.at("boxes"))
      text += fmt::format("    {}\n      before: {}\n      after: {}\n      for example: {}\n",
                          box.at("packets").get<std::string>(), decidingText(box.at("before")),
                          decidingText(box.at("after")), box.at("example").get<std::string>());
    if (changed.at("more") == true) text += "    and more (--boxes tells more of them)\n";
  }
  return text;
}

std::string boundText(const Json& places) {
  std::string text;
  for (const Json& place : places) text += (text.empty() ? "" : ", ") + boundAt(place);
  return text.empty() ? "bound nowhere" : text;
}

}  // namespace

std::string packetComparisonText(const Json& document) {
  std::string text;
  for (const Json& list : document.at("lists"))
    text += fmt::format("{} ({})\n{}", listTitle(list), boundText(list.at("bound")), changesText(list));
  for (const Json& place : document.at("bindings")) {
    const auto name = [&place](const char* member) {
      return place.at(member).is_null() ? "no list" : place.at(member).get<std::string>();
    };
    text += fmt::format("{}: {} access-group, before: {}, after: {}\n{}", boundAt(place),
                        place.at("type").get<std::string>(), name("listBefore"), name("listAfter"),
                        changesText(place));
  }
  for (const Json& note : document.at("notes")) text += note.get<std::string>() + "\n";
  for (const Json& what : document.at("unchecked"))
    text += fmt::format("not checked: {}\n", what.get<std::string>());
  if (document.at("same") == true)
    text +=
        text.empty() ? "nothing changes\n" : fmt::format("no verdict changes{}\n", unjudgedText(document));
  return text;
}

}  // namespace Agent
