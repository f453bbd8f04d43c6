// Shows of traces: the facilities that there are, and the latest lines.
#include <Blip/FastTrace.h>
#include <Blip/Ring.h>
#include <Zeb/TraceHandle.h>
#include <agent/config/Mistake.h>
#include <agent/config/Nearest.h>
#include <agent/core/Reserve.h>
#include <agent/show/RuleNames.h>
#include <agent/show/Shows.h>
#include <agent/show/TraceFacilities.h>

#include <algorithm>

namespace Agent {

using Json = nlohmann::ordered_json;

namespace {

std::optional<std::string> whyNotIn(const std::vector<std::string>& known, std::string_view kind,
                                    std::string_view name) {
  if (std::find(known.begin(), known.end(), name) != known.end()) return std::nullopt;
  std::vector<std::string_view> names(known.begin(), known.end());
  const std::string wrong = fmt::format("there is no {} \"{}\"", kind, name);
  if (!Config::nearestNames(name, names).empty()) return Config::orNearest(wrong, name, names);
  // Somebody may have left out what stands before the last "::".
  std::erase_if(names, [name](std::string_view each) {
    const size_t colons = each.rfind("::");
    const std::string_view last = colons == each.npos ? each : each.substr(colons + 2);
    return Config::nearestNames(name, {&last, 1}).empty();
  });
  return Config::orMeant(wrong, names.empty() ? "" : Config::anyOf(names));
}

Json facilitiesOf(const World&) {
  Json facilities = Json::array(), fast = Json::array();
  for (const auto& facility : Zeb::TraceHandle::facilities()) {
    facilities.push_back({{"name", facility.name},
                          {"level", facility.level < 0 ? Json(nullptr) : Json(facility.level)},
                          {"used", facility.used}});
  }
  for (const std::string& name : Blip::fastTraceFacilities())
    fast.push_back({{"name", name}, {"on", Blip::fastTraceOn(name)}});
  return {{"facilities", std::move(facilities)}, {"fast", std::move(fast)}};
}

std::string facilitiesText(const Json& document, const TextStyle& style) {
  std::vector<std::vector<std::string>> lines = {{"facility", "levels on", ""}};
  for (const Json& facility : document.at("facilities")) {
    const Json& level = facility.at("level");
    lines.push_back({valueText(facility.at("name")),
                     level.is_null()    ? "none"
                     : level.get<int>() ? fmt::format("0 to {}", level.get<int>())
                                        : "0",
                     facility.at("used").get<bool>() ? "" : "nothing traces there"});
  }
  for (const Json& fast : document.at("fast"))
    lines.push_back({valueText(fast.at("name")), fast.at("on").get<bool>() ? "on" : "off", "fast"});
  return tableText(lines, {false, false, false}, style.colour);
}

Json traceOf(const World& world) {
  const RuleNames names(world.core);
  Json lines = Json::array(), rules = Json::array();
  Blip::ring().forEach([&](std::string_view line) {
    Refusable::check();
    lines.push_back(line);
    const std::string beside = names.beside(line);
    rules.push_back(beside.empty() ? Json(nullptr) : Json(beside.substr(1)));
  });
  return {{"lost", Blip::ring().lostCount()}, {"lines", std::move(lines)}, {"rules", std::move(rules)}};
}

std::string traceText(const Json& document, const TextStyle&) {
  std::string text;
  if (const auto lost = document.at("lost").get<uint64_t>())
    text = fmt::format("({} older lines are lost)\n", lost);
  const Json& lines = document.at("lines");
  for (size_t i = 0; i < lines.size(); ++i) {
    const Json& rule = document.at("rules").at(i);
    text += lines[i].get<std::string>() + (rule.is_null() ? "" : " " + rule.get<std::string>()) + "\n";
  }
  return text.empty()
             ? "nothing was traced; velo trace FACILITY/LEVEL switches a facility on, velo show trace-facilities lists them\n"
             : text;
}

constexpr Show traceRows[] = {
    {"trace", "", "the latest trace lines", whole<traceOf>, traceText},
    {"trace-facilities", "", "what velo trace can switch on, and what is on", whole<facilitiesOf>,
     facilitiesText},
};

}  // namespace

std::optional<std::string> whyNoFacility(std::string_view name) {
  std::vector<std::string> known;
  for (auto& facility : Zeb::TraceHandle::facilities()) {
    if (facility.used) known.push_back(std::move(facility.name));
  }
  return whyNotIn(known, "trace facility", name);
}

std::optional<std::string> whyNoFastFacility(std::string_view name) {
  return whyNotIn(Blip::fastTraceFacilities(), "facility with fast traces", name);
}

std::optional<std::string> traceByName(const Core& core, std::optional<NamedTraces>& named) {
  for (const auto& facility : Zeb::TraceHandle::facilities()) {
    if (!facility.used) return "--trace: " + whyNoFacility(facility.name).value_or(facility.name);
  }
  named.emplace(core);
  return std::nullopt;
}

std::span<const Show> traceShows() { return traceRows; }

}  // namespace Agent
