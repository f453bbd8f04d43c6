#include <agent/change/History.h>
#include <agent/fleet/Rollout.h>
#include <fmt/format.h>

#include <algorithm>
#include <charconv>
#include <utility>

namespace Agent {

namespace {

constexpr const char* nobodysPlace = "0000000000000000";
constexpr const char* lastPlace = "ffffffffffffffff";
/// A fleet that dropped nothing may drop so many frames a second all the same.
constexpr double leastBefore = 1;
/// So many steps are as many as anybody needs.
constexpr size_t mostSteps = 100;

/// The places in the order of the agents that are there: a step is for somebody who tries the texts.
std::vector<std::string> placesOf(const Rollout& rollout, const RolloutView& view) {
  std::vector<std::string> places;
  for (const auto& [name, agent] : view.agents) {
    if (agent.isThere) places.push_back(rollout.placeOf(name));
  }
  std::sort(places.begin(), places.end());
  return places;
}

/// Its step begins, or begins anew.
Rollout watchedAnew(Rollout rollout, const RolloutView& view) {
  rollout.met = false;
  rollout.agents = view.agents.size();
  rollout.gone.emplace();
  for (const auto& [name, agent] : view.agents) {
    if (!agent.isThere && rollout.isTurn(name)) rollout.gone->push_back(name);
  }
  if (rollout.gone->size() > Rollout::mostGone) rollout.gone.reset();
  return rollout;
}

/// It has come to its step, which is everybody's turn if it is the last one.
Rollout atStep(Rollout rollout, const RolloutView& view, std::string upTo) {
  rollout.upTo = std::move(upTo);
  return watchedAnew(std::move(rollout), view);
}

/// The first step from `step` on that is somebody's turn who had none, or else the last one.
Rollout fromStep(Rollout rollout, const RolloutView& view, size_t step) {
  const std::vector<std::string> places = placesOf(rollout, view);
  for (rollout.step = step; rollout.step + 1 < rollout.steps.size(); ++rollout.step) {
    const uint64_t count =
        std::min<uint64_t>(rollout.steps[rollout.step].of(view.agents.size()), places.size());
    if (count > 0 && places[count - 1] > rollout.upTo) {
      std::string upTo = places[count - 1];
      return atStep(std::move(rollout), view, std::move(upTo));
    }
  }
  return atStep(std::move(rollout), view, lastPlace);
}

Rollout goneBack(Rollout rollout, std::string why) {
  rollout.phase = Rollout::Phase::back;
  rollout.result = std::move(why);
  return rollout;
}

/// What speaks against the new texts, in sentences, and whether somebody has not told of them yet, or cannot
/// take them now.
struct Findings {
  std::vector<std::string> failures;
  bool areBehind = false, areHindered = false;
  double before = 0, since = 0;  // frames a second
};

Findings findingsOf(const Rollout& rollout, const RolloutView& view) {
  Findings found;
  for (const auto& [name, agent] : view.agents) {
    if (!rollout.isTurn(name)) continue;
    const bool wasGone =
        rollout.gone && std::find(rollout.gone->begin(), rollout.gone->end(), name) != rollout.gone->end();
    if (!agent.isThere) {
      if (rollout.gone && !wasGone) found.failures.push_back(name + " is gone");
    } else if (agent.stands == RolloutAgent::Stands::refused) {
      found.failures.push_back(name + " has refused it");
    } else if (agent.stands == RolloutAgent::Stands::behind) {
      // Who comes back is caught up, and who comes to the group, or gets other texts, has its own time.
      if (wasGone) continue;
      found.areBehind = true;
      if (agent.behindFor >= rollout.wait) found.failures.push_back(name + " does not tell that it has it");
    } else if (agent.stands == RolloutAgent::Stands::hindered) {
      found.areHindered = true;
    } else if (agent.before && agent.since) {
      found.before += *agent.before;
      found.since += *agent.since;
    }
  }
  return found;
}

std::string sentenceOf(const std::vector<std::string>& failures) {
  constexpr size_t most = 3;
  const size_t shown = std::min(failures.size(), most);
  return fmt::format("{}{}",
                     fmt::join(failures.begin(), failures.begin() + static_cast<std::ptrdiff_t>(shown), ", "),
                     failures.size() > shown ? fmt::format(" and {} more", failures.size() - shown) : "");
}

/// Why it is to go back now; empty if it is not.
std::string whyBack(const Rollout& rollout, const RolloutView& view, const Findings& found) {
  if (view.texts != rollout.from) return "somebody else has changed the texts of the group";
  if (found.failures.size() > rollout.maxFailures) return sentenceOf(found.failures);
  if (rollout.dropsFactor > 0 && found.since > rollout.dropsFactor * std::max(found.before, leastBefore))
    return fmt::format("{:.1f} frames a second are dropped, {:.1f} before", found.since, found.before);
  return "";
}

std::optional<uint64_t> numberIn(std::string_view text) {
  uint64_t number = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
  if (error != std::errc() || end != text.data() + text.size()) return std::nullopt;
  return number;
}

}  // namespace

uint64_t RolloutStep::of(uint64_t agents) const {
  return isPercent ? std::max<uint64_t>(1, (std::min<uint64_t>(count, 100) * agents + 99) / 100) : count;
}

std::string RolloutStep::text() const { return fmt::format("{}{}", count, isPercent ? "%" : ""); }

std::optional<RolloutStep> RolloutStep::from(const std::string& text) {
  const bool isPercent = text.ends_with('%');
  const auto count = numberIn(std::string_view(text).substr(0, text.size() - isPercent));
  if (!count || *count == 0 || (isPercent && *count > 100)) return std::nullopt;
  return RolloutStep{*count, isPercent};
}

std::string Rollout::placeOf(const std::string& agent) const {
  return fmt::format("{:016x}", digestOf(id + "/" + agent));
}

Rollout begunRollout(Rollout rollout, const RolloutView& view) {
  rollout.phase = Rollout::Phase::running;
  rollout.from = view.texts;
  rollout.upTo = nobodysPlace;
  rollout.result.clear();
  return fromStep(std::move(rollout), view, 0);
}

std::optional<Rollout> nextRollout(const Rollout& rollout, const RolloutView& view, double seconds) {
  if (rollout.phase != Rollout::Phase::running) return std::nullopt;
  const Findings found = findingsOf(rollout, view);
  if (std::string why = whyBack(rollout, view, found); !why.empty()) return goneBack(rollout, std::move(why));
  const bool isLate = seconds >= rollout.wait;
  Rollout after = rollout;
  after.met = true;
  if (!rollout.met) {
    // Who has had all the time has failed by now; who has not may have come a second ago, as somebody always
    // does in a large fleet.
    const bool isMet = !found.areHindered && (!found.areBehind || isLate);
    return isMet ? std::optional(after) : std::nullopt;
  }
  if (!isLate) return std::nullopt;
  // All that are left may have had their turn with the step that is over.
  const std::vector<std::string> places = placesOf(rollout, view);
  if (rollout.step + 1 >= rollout.steps.size() || places.empty() || places.back() <= rollout.upTo) {
    after.phase = Rollout::Phase::done;
    return after;
  }
  return fromStep(std::move(after), view, rollout.step + 1);
}

std::optional<Rollout> pausedRollout(Rollout rollout) {
  if (rollout.phase != Rollout::Phase::running) return std::nullopt;
  rollout.phase = Rollout::Phase::paused;
  return rollout;
}

std::optional<Rollout> resumedRollout(Rollout rollout, const RolloutView& view) {
  if (rollout.phase != Rollout::Phase::paused) return std::nullopt;
  rollout.phase = Rollout::Phase::running;
  return watchedAnew(std::move(rollout), view);
}

std::optional<Rollout> abortedRollout(Rollout rollout, const std::string& why) {
  if (!rollout.isActive()) return std::nullopt;
  return goneBack(std::move(rollout), why);
}

std::optional<std::vector<RolloutStep>> readSteps(const std::string& text, std::string* wrong) {
  std::vector<RolloutStep> steps;
  for (size_t at = 0; at <= text.size();) {
    const size_t end = std::min(text.find(',', at), text.size());
    const auto step = RolloutStep::from(text.substr(at, end - at));
    if (!step || steps.size() == mostSteps) {
      *wrong = fmt::format("\"{}\" is no step: a number of agents, or a part of them as in 10%",
                           text.substr(at, end - at));
      return std::nullopt;
    }
    steps.push_back(*step);
    at = end + 1;
  }
  if (!steps.back().isPercent || steps.back().count != 100) steps.push_back({100, true});
  return steps;
}

std::optional<double> readStopIf(const std::string& text) {
  constexpr std::string_view begin = "drops rate > ";
  if (!text.starts_with(begin) || !text.ends_with('x')) return std::nullopt;
  double factor = 0;
  const auto [end, error] = std::from_chars(text.data() + begin.size(), text.data() + text.size(), factor);
  if (error != std::errc() || end != text.data() + text.size() - 1 || !(factor > 0) || factor > 1e9)
    return std::nullopt;
  return factor;
}

}  // namespace Agent
