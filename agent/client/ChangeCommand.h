#pragma once

#include <agent/client/Command.h>
#include <agent/client/ControlClient.h>

#include <cstdint>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace Agent {

/// A command that changes the command line's configuration: what all of them can be told, and what they tell.
class ChangeCommand : public Command {
 protected:
  using Command::Command;

  /// Adds `--control` and the options of all changes.
  void addChange();

  /// Sends a text to the agent; false when that went wrong.
  bool sent(ControlClient& agent, const std::string& name, const std::string& text, Exit* exit) const;
  /// A change that is refused.
  Exit notApplied(const nlohmann::ordered_json& error) const { return tellRefusal(error, "applied"); }
  /// What this program has found out about a change, and tells with it.
  struct Told {
    nlohmann::ordered_json packets = nullptr;  ///< what it means for packets (PacketComparison.h), or null
    nlohmann::ordered_json warnings = nlohmann::ordered_json::array();  ///< besides those of the agent
    std::vector<std::string> unchecked{};
  };
  /// Has the agent carry out a change, and tells what became of it.
  Exit change(ControlClient& agent, nlohmann::ordered_json request, const Told& told) const;
  Exit change(ControlClient& agent, nlohmann::ordered_json request) const {
    return change(agent, std::move(request), Told());
  }
  bool isDryRun() const { return dryRun_; }
  bool isStrict() const { return leave_.strict; }

 private:
  std::string noteOf(const nlohmann::ordered_json& done) const;

  bool dryRun_ = false, save_ = false;
  Leave leave_;
  std::optional<uint32_t> confirm_;
};

/// What was saved, and where.
struct SavedFile {
  std::string path;
  nlohmann::ordered_json restart;  ///< as in the status, afterwards
};

/// Writes the command line's configuration of an agent to a file, or, without a path, to the one that the
/// agent was given. Not while a change waits to be confirmed. Nothing after a complaint. The agent's log is
/// told, whatever became of it.
std::optional<SavedFile> saveConfiguration(ControlClient& agent, const std::string& path, Exit* exit);

}  // namespace Agent
