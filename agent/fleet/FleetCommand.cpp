#include <Kiv/Clock.h>
#include <agent/client/Screen.h>
#include <agent/core/Document.h>
#include <agent/core/Output.h>
#include <agent/core/Terminal.h>
#include <agent/fleet/FleetCommand.h>
#include <agent/fleet/FleetKeys.h>
#include <agent/fleet/FleetSight.h>
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <utility>

namespace Agent {

namespace {

using Json = nlohmann::ordered_json;

constexpr const char* fleetExitText =
    "\nExit status: 0 done, 1 the store could not be asked, 2 bad usage or configuration, or it was refused or went back.";

/// Seconds between two looks of --watch.
constexpr double betweenLooks = 2;

class FleetCommand final : public ProgramCommand {
 public:
  explicit FleetCommand(CLI::App& program)
      : ProgramCommand(program, "fleet",
                       "Look at all agents of a fleet, and change their lists; needs no agent.") {
    app().require_subcommand(1);
    app().footer(
        "velo run --fleet joins a fleet. Each command has a help of its own: velo fleet COMMAND --help." +
        std::string(fleetExitText));
    for (const auto make :
         {fleetStatusAction, fleetShowAction, fleetDiffAction, fleetApplyAction, fleetHistoryAction,
          fleetRollbackAction, fleetRolloutAction, fleetExplainAction, fleetForgetAction})
      actions_.push_back(make(app()));
  }

  Exit run(const std::string& plugin) const override {
    const auto given =
        std::find_if(actions_.begin(), actions_.end(), [](const auto& one) { return one->parsed(); });
    return (*given)->carryOut(plugin);
  }

 private:
  std::vector<std::unique_ptr<FleetAction>> actions_;
};

class FleetStatusAction final : public FleetAction {
 public:
  explicit FleetStatusAction(CLI::App& fleet)
      : FleetAction(fleet, "status", "Tell of each agent what it has in force, and what it is to have.") {
    app().add_flag("--watch", watch_, "as a full screen, again and again, until q or Ctrl-C");
  }

 private:
  Exit run(Etcd& etcd, const std::string&) const override {
    if (watch_ && !json() && isScreen(STDOUT_FILENO)) return watch(etcd);
    auto sight = fleetSight(etcd);
    if (!sight) return failed(sight.wrong);
    const Json document = fleetStatusDocument(*sight.value);
    return print(document, textOf(document));
  }
  static std::string textOf(const Json& document) {
    return fleetStatusText(document, wantsColour(STDOUT_FILENO), Kiv::wallClock().now().seconds());
  }
  static Exit watch(Etcd& etcd) {
    Screen screen;
    for (std::string input; input.find('q') == std::string::npos;) {
      const auto sight = fleetSight(etcd);
      std::vector<std::string> rows;
      std::string text = sight ? textOf(fleetStatusDocument(*sight.value)) : sight.wrong + "\n";
      const ScreenSize size = Screen::size();
      for (size_t at = 0, end = 0;
           rows.size() < size.rows && (end = text.find('\n', at)) != std::string::npos; at = end + 1)
        rows.push_back(text.substr(at, end - at).substr(0, size.columns));
      if (!screen.draw(rows) || !screen.wait(betweenLooks, input)) break;
    }
    return exitDone;
  }

  bool watch_ = false;
};

/// An agent that will not come back is listed as gone for ever, unless somebody says so.
class FleetForgetAction final : public FleetAction {
 public:
  explicit FleetForgetAction(CLI::App& fleet)
      : FleetAction(fleet, "forget", "Forget an agent that is gone for good: it is listed no more.",
                    "The texts of its own stay. An agent that comes back is listed again.") {
    app().add_option("agent", agent_, "its name")->required()->type_name("AGENT");
  }

 private:
  Exit run(Etcd& etcd, const std::string&) const override {
    const auto sight = fleetSight(etcd);
    if (!sight) return failed(sight.wrong);
    const auto known = sight.value->agents.find(agent_);
    if (known == sight.value->agents.end()) return failed(sight.value->whyNoAgent(agent_));
    if (!known->second.state.is_null()) {
      complain("agent " + agent_ + " is not gone");
      return exitUsage;
    }
    const auto done = etcd.txn({.compares = {{stateKey(agent_), 0}}, .deletes = {{.key = knownKey(agent_)}}});
    if (!done) return failed(done.wrong);
    if (!done.value->succeeded) return failed("agent " + agent_ + " has come back meanwhile");
    return print({{"agent", agent_}, {"revision", done.value->revision}},
                 "agent " + agent_ + " is forgotten\n");
  }

  std::string agent_;
};

class FleetDiffAction final : public FleetAction {
 public:
  explicit FleetDiffAction(CLI::App& fleet)
      : FleetAction(fleet, "diff",
                    "Tell which agents have the same lists of the fleet in force, and which have others.") {}

 private:
  Exit run(Etcd& etcd, const std::string&) const override {
    auto sight = fleetSight(etcd);
    if (!sight) return failed(sight.wrong);
    const Json document = fleetDiffDocument(*sight.value);
    return print(document, fleetDiffText(document));
  }
};

}  // namespace

FleetAction::FleetAction(CLI::App& fleet, const char* name, const char* help, const std::string& footer)
    : app_(fleet.add_subcommand(name, help)) {
  app().footer(footer + fleetExitText);
  app().add_flag("--json", json_, "one JSON document instead of text");
  addFleetStore(app(), store_);
  CLI::Option* const store = app().get_option("--fleet");
  store->description(store->get_description() + " (environment: VELO_FLEET)");
  store->required()->envname("VELO_FLEET");
}

bool FleetAction::parsed() const { return app_->parsed(); }

Exit FleetAction::carryOut(const std::string& plugin) const {
  std::string wrong;
  auto place = placeOf(store_, &wrong);
  if (!place) {
    complain("--fleet: " + wrong);
    return exitUsage;
  }
  if (const auto why = whyReadable(*place); !why.empty()) complain("--fleet-login: " + why);
  Http http(place->credentials);
  Etcd etcd(http, std::move(*place));
  return run(etcd, plugin);
}

Exit FleetAction::failed(const std::string& why) {
  complain(why);
  return exitUnread;
}

Exit FleetAction::print(const Json& document, const std::string& text, Exit otherwise) const {
  return Agent::print(json() ? linesOf(document) : text) ? otherwise : exitUnread;
}

std::unique_ptr<ProgramCommand> fleetCommand(CLI::App& program) {
  return std::make_unique<FleetCommand>(program);
}
std::unique_ptr<FleetAction> fleetStatusAction(CLI::App& fleet) {
  return std::make_unique<FleetStatusAction>(fleet);
}
std::unique_ptr<FleetAction> fleetForgetAction(CLI::App& fleet) {
  return std::make_unique<FleetForgetAction>(fleet);
}
std::unique_ptr<FleetAction> fleetDiffAction(CLI::App& fleet) {
  return std::make_unique<FleetDiffAction>(fleet);
}

}  // namespace Agent
