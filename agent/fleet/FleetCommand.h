#pragma once

#include <agent/commands/ProgramCommand.h>
#include <agent/fleet/FleetOptions.h>

#include <memory>
#include <string>
#include <vector>

namespace Agent {

/// A command behind `velo fleet`. It speaks to the store only, and needs no agent.
class FleetAction {
 public:
  FleetAction(const FleetAction&) = delete;
  FleetAction& operator=(const FleetAction&) = delete;
  virtual ~FleetAction() = default;

  bool parsed() const;
  /// Carries it out; complaints go to standard error.
  Exit carryOut(const std::string& plugin) const;

 protected:
  /// Adds the command, with `--json` and where the store is. `footer` stands in the help before the meaning
  /// of the exit status.
  FleetAction(CLI::App& fleet, const char* name, const char* help, const std::string& footer = {});

  CLI::App& app() const { return *app_; }
  bool json() const { return json_; }
  /// `plugin` is the library for work in this process.
  virtual Exit run(Etcd& etcd, const std::string& plugin) const = 0;
  /// Tells why the store could not be asked.
  static Exit failed(const std::string& why);
  /// Prints a result: the document, or a text.
  Exit print(const nlohmann::ordered_json& document, const std::string& text,
             Exit otherwise = exitDone) const;

 private:
  CLI::App* const app_;
  FleetOptions store_;
  bool json_ = false;
};

/// `velo fleet` with all of them.
std::unique_ptr<ProgramCommand> fleetCommand(CLI::App& program);

// The commands behind it.
std::unique_ptr<FleetAction> fleetStatusAction(CLI::App& fleet);
std::unique_ptr<FleetAction> fleetShowAction(CLI::App& fleet);
std::unique_ptr<FleetAction> fleetDiffAction(CLI::App& fleet);
std::unique_ptr<FleetAction> fleetApplyAction(CLI::App& fleet);
std::unique_ptr<FleetAction> fleetHistoryAction(CLI::App& fleet);
std::unique_ptr<FleetAction> fleetRollbackAction(CLI::App& fleet);
std::unique_ptr<FleetAction> fleetRolloutAction(CLI::App& fleet);
std::unique_ptr<FleetAction> fleetForgetAction(CLI::App& fleet);
std::unique_ptr<FleetAction> fleetExplainAction(CLI::App& fleet);

}  // namespace Agent
