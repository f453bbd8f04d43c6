// The content of a rollout's key.
#include <agent/fleet/Rollout.h>
#include <nlohmann/json.hpp>

#include <algorithm>
#include <utility>

namespace Agent {

namespace {

using Json = nlohmann::ordered_json;

constexpr std::pair<Rollout::Phase, const char*> phases[] = {{Rollout::Phase::running, "running"},
                                                             {Rollout::Phase::paused, "paused"},
                                                             {Rollout::Phase::back, "back"},
                                                             {Rollout::Phase::done, "done"}};

}  // namespace

const char* phaseName(Rollout::Phase phase) {
  return std::find_if(std::begin(phases), std::end(phases),
                      [phase](const auto& one) { return one.first == phase; })
      ->second;
}

std::string Rollout::json() const {
  Json stepTexts = Json::array();
  for (const RolloutStep& one : steps) stepTexts.push_back(one.text());
  const Json made = {{"id", id},
                     {"who", who},
                     {"why", why},
                     {"summary", summary},
                     {"began", began},
                     {"changed", changed},
                     {"steps", std::move(stepTexts)},
                     {"wait", wait},
                     {"maxFailures", maxFailures},
                     {"dropsFactor", dropsFactor},
                     {"mayOpen", mayOpen},
                     {"from", from},
                     {"agents", agents},
                     {"phase", phaseName(phase)},
                     {"step", step},
                     {"upTo", upTo},
                     {"met", met},
                     {"gone", gone ? Json(*gone) : Json(nullptr)},
                     {"result", result}};
  return made.dump(-1, ' ', false, Json::error_handler_t::replace);
}

std::optional<Rollout> Rollout::of(const std::string& text) {
  const Json read = Json::parse(text, nullptr, false);
  if (!read.is_object()) return std::nullopt;
  Rollout made;
  try {
    for (const auto& [name, to] : {std::pair{"id", &made.id},
                                   {"who", &made.who},
                                   {"why", &made.why},
                                   {"summary", &made.summary},
                                   {"from", &made.from},
                                   {"upTo", &made.upTo},
                                   {"result", &made.result}})
      *to = read.at(name).get<std::string>();
    for (const auto& [name, to] : {std::pair{"began", &made.began},
                                   {"changed", &made.changed},
                                   {"wait", &made.wait},
                                   {"dropsFactor", &made.dropsFactor}})
      *to = read.at(name).get<double>();
    for (const Json& one : read.at("steps")) {
      const auto step = RolloutStep::from(one.get<std::string>());
      if (!step) return std::nullopt;
      made.steps.push_back(*step);
    }
    made.maxFailures = read.at("maxFailures").get<uint64_t>();
    made.agents = read.at("agents").get<uint64_t>();
    made.mayOpen = read.at("mayOpen").get<bool>();
    made.step = read.at("step").get<size_t>();
    made.met = read.at("met").get<bool>();
    if (!read.at("gone").is_null()) made.gone = read.at("gone").get<std::vector<std::string>>();
    const auto phase = read.at("phase").get<std::string>();
    const auto known = std::find_if(std::begin(phases), std::end(phases),
                                    [&](const auto& one) { return phase == one.second; });
    if (known == std::end(phases) || made.steps.empty() || made.step >= made.steps.size())
      return std::nullopt;
    made.phase = known->first;
  } catch (const Json::exception&) {  // a member is missing, or is of another kind
    return std::nullopt;
  }
  return made;
}

}  // namespace Agent
