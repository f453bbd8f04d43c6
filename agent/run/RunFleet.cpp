#include <agent/core/Background.h>
#include <agent/run/Capabilities.h>
#include <agent/run/RunFleet.h>

#include <utility>

namespace Agent {

namespace {

/// How long an agent without lists waits for its fleet before it says so, again and again.
constexpr double untilWaitingIsTold = 10;

}  // namespace

void RunFleet::warn(const std::string& text) const {
  tell_({Severity::warning, "fleet: " + text, {{"VELO_EVENT", "fleet"}}});
}

std::optional<std::string> RunFleet::join(ConfigFiles& files, Past& past) {
  if (!options_.given()) {
    past.fleet.reset();
    return std::nullopt;
  }
  std::string why;
  auto place = placeOf(options_, &why);
  if (!place) return "--fleet: " + why;
  if (const auto readable = whyReadable(*place); !readable.empty()) warn("--fleet-login: " + readable);
  withoutCapabilities([&] {
    link_ = std::make_unique<FleetLink>(std::move(*place), identity(), tell_);
    link_->start();
  });
  std::vector<std::string> wrong;
  if (past.fleet) {
    if (take(past.fleet, files, past, wrong)) return std::nullopt;
    for (const std::string& mistake : wrong) warn(mistake);
    warn("what was in force last cannot be read any more");
  }
  for (;;) {
    SharedFleetContent content = link_->wait(untilWaitingIsTold);
    if (!content) {
      warn("nothing is forwarded before its lists are there");
      continue;
    }
    wrong.clear();
    if (take(content, files, past, wrong)) return std::nullopt;
    for (const std::string& mistake : wrong) warn(mistake);
    link_->stateIs(FleetAgent::waitingState(identity(), *content, wrong));
  }
}

bool RunFleet::take(SharedFleetContent content, ConfigFiles& files, Past& past,
                    std::vector<std::string>& wrong) {
  MadeModel made = readFleet(*content, limits_);
  wrong = std::move(made.mistakes);
  if (!made.model) return false;
  files.inputIs(fleetName, std::move(*made.model));
  past.fleet = std::move(content);
  return true;
}

void RunFleet::open(const std::function<FleetAgent::World(FleetLink&)>& world) {
  if (link_) agent_ = std::make_unique<FleetAgent>(world(*link_), identity());
}

void RunFleet::close() {
  agent_.reset();
  link_.reset();
}

nlohmann::ordered_json RunFleet::report() const { return agent_ ? agent_->report() : nullptr; }

}  // namespace Agent
