// Rollouts, for those who begin them and look on.
#include <Kiv/Clock.h>
#include <agent/core/Output.h>
#include <agent/fleet/FleetCommand.h>
#include <agent/fleet/FleetKeys.h>
#include <agent/fleet/FleetRollout.h>
#include <fmt/format.h>
#include <pwd.h>
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <charconv>
#include <chrono>
#include <cstdio>
#include <functional>
#include <thread>
#include <utility>

namespace Agent {

namespace {

using Json = nlohmann::ordered_json;

constexpr double longestWait = 7 * 86400;

/// Agents that are there have the texts before again within moments.
constexpr double untilBack = 30;

/// Whether there is nothing more to wait for: behind a step back all have told of it.
bool isSettled(const Json& document) {
  if (!document.is_object() || document.at("phase") != "back") return true;
  const Json& turn = document.at("turn");
  return turn.at("behind").empty() && turn.at("refused").empty() && turn.at("hindered").empty();
}

/// Seconds: "60", "60s", "5m", "1h".
std::optional<double> readWait(const std::string& text) {
  const size_t unit = text.find_first_not_of("0123456789.");
  const std::string name = unit == std::string::npos ? "s" : text.substr(unit);
  const double factor = name == "s" ? 1 : name == "m" ? 60 : name == "h" ? 3600 : 0;
  double number = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + std::min(unit, text.size()), number);
  if (error != std::errc() || end != text.data() + std::min(unit, text.size())) return std::nullopt;
  const double seconds = number * factor;
  return seconds > 0 && seconds <= longestWait ? std::optional(seconds) : std::nullopt;
}

std::string whyNoWait(const std::string& text) {
  return readWait(text) ? "" : "\"" + text + "\" is no time: as in 60s, 5m or 1h, a week at most";
}
std::string whyNoSteps(const std::string& text) {
  std::string wrong;
  readSteps(text, &wrong);
  return wrong;
}
std::string whyNoStopIf(const std::string& text) {
  return readStopIf(text) ? "" : "\"" + text + "\" is no condition: as in 'drops rate > 2x'";
}

class FleetRolloutAction final : public FleetAction {
 public:
  explicit FleetRolloutAction(CLI::App& fleet)
      : FleetAction(
            fleet, "rollout", "Look at rollouts (velo fleet apply --steps), and steer them, from anywhere.",
            "status: how far they are. pause: it goes no further, and not back either. resume: it goes on, and watches the step anew.\nabort: all agents go back to the texts before. follow: look on until it is over, and see to it when nobody else does.") {
    app()
        .add_option("what", what_, "status, pause, resume, abort or follow")
        ->required()
        ->check(CLI::IsMember({"status", "pause", "resume", "abort", "follow"}))
        ->type_name("WHAT");
    app()
        .add_option("group", group_, "the group (of status: all)")
        ->check([](const std::string& text) {
          const auto why = whyNoGroup(text);
          return why ? "\"" + text + "\": " + *why : "";
        })
        ->type_name("GROUP");
  }

 private:
  Exit run(Etcd& etcd, const std::string&) const override {
    if (what_ == "status") return status(etcd);
    if (group_.empty()) {
      complain("rollout " + what_ + " needs a group");
      return exitUsage;
    }
    std::string wrong;
    if (what_ == "follow")
      wrong = followRollout(etcd, group_, callerName(), !json()).wrong;
    else
      wrong = changeRollout(etcd, group_, change(), callerName());
    return wrong.empty() ? status(etcd) : failed(wrong);
  }
  RolloutChange change() const {
    if (what_ == "pause")
      return [](const Rollout& rollout, const RolloutView&) { return pausedRollout(rollout); };
    if (what_ == "resume") return resumedRollout;
    return [](const Rollout& rollout, const RolloutView&) {
      return abortedRollout(rollout, callerName() + " has aborted it");
    };
  }
  Exit status(Etcd& etcd) const {
    const auto sight = fleetSight(etcd);
    if (!sight) return failed(sight.wrong);
    Json rollouts = Json::array();
    std::string text;
    for (const std::string& group : sight.value->rolloutGroups()) {
      if (!group_.empty() && group != group_) continue;
      if (!FleetPlace(sight.value->texts, textsPrefix(group)).rollout()) continue;
      rollouts.push_back(rolloutDocument(*sight.value, group));
      text += rolloutText(rollouts.back(), Kiv::wallClock().now().seconds());
    }
    if (text.empty()) text = "there is no rollout\n";
    return print({{"revision", sight.value->revision}, {"rollouts", std::move(rollouts)}}, text);
  }

  std::string what_, group_;
};

}  // namespace

void RolloutOptions::add(CLI::App& command) {
  CLI::Option* const steps =
      command
          .add_option(
              "--steps", steps_,
              "a rollout: so many agents of the group have the texts first, then more, and all in the end; each step is watched, and if it does harm all go back by themselves")
          ->check(whyNoSteps)
          ->type_name("1,10%,...");
  command
      .add_option("--wait", wait_,
                  "how long agents of a step have to take the texts, and how long it is watched then (60s)")
      ->check(whyNoWait)
      ->needs(steps)
      ->type_name("TIME");
  command
      .add_option("--max-failures", maxFailures_,
                  "so many agents may refuse the texts, or go while they are watched (0)")
      ->needs(steps)
      ->type_name("N");
  command
      .add_option(
          "--stop-if", stopIf_,
          "go back if agents that have the texts drop so many times as many frames a second as before: 'drops rate > 2x'")
      ->check(whyNoStopIf)
      ->needs(steps)
      ->type_name("CONDITION");
  command.add_flag("--detach", detach_, "begin it only: agents of the group see to the rest, where they may")
      ->needs(steps);
}

Rollout RolloutOptions::rollout() const {
  Rollout made;
  std::string wrong;
  made.steps = *readSteps(steps_, &wrong);
  made.wait = *readWait(wait_);
  made.maxFailures = maxFailures_;
  if (!stopIf_.empty()) made.dropsFactor = *readStopIf(stopIf_);
  return made;
}

Maybe<Json> followRollout(Etcd& etcd, const std::string& group, const std::string& who, bool tells) {
  RolloutDriver driver(etcd, group, who);
  Json last;
  std::string told, complained;
  std::optional<double> overSince;
  for (;;) {
    const double begin = Kiv::steadyClock().now().seconds();
    RolloutDriver::Look look = driver.look(begin, RolloutDriver::Looks::always);
    if (look.mayNot) return {{}, std::move(look.wrong)};
    if (std::exchange(complained, look.wrong) != look.wrong && !look.wrong.empty()) complain(look.wrong);
    if (!look.document.is_null()) last = std::move(look.document);
    const std::string line = last.is_null() ? "" : rolloutLine(last);
    if (tells && std::exchange(told, line) != line) {
      print(line + "\n");
      std::fflush(stdout);
    }
    if (look.isOver && !overSince) overSince = begin;
    if (look.isOver && (isSettled(last) || begin - *overSince > untilBack)) return {std::move(last)};
    const double pause = RolloutDriver::pauseBehind(Kiv::steadyClock().now().seconds() - begin);
    std::this_thread::sleep_for(std::chrono::duration<double>(pause));
  }
}

std::string callerName() {
  const passwd* const user = getpwuid(geteuid());
  char host[256] = "";
  gethostname(host, sizeof host - 1);
  return fmt::format("{}@{}", user ? user->pw_name : std::to_string(geteuid()),
                     static_cast<const char*>(host));
}

std::unique_ptr<FleetAction> fleetRolloutAction(CLI::App& fleet) {
  return std::make_unique<FleetRolloutAction>(fleet);
}

}  // namespace Agent
