#pragma once

#include <agent/control/Command.h>
#include <agent/control/ControlClient.h>

#include <cstdint>
#include <optional>
#include <string>

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
  /// Has the agent carry out a change, and tells what became of it. `packets` is what that means for packets
  /// (PacketComparison.h), if that was asked for.
  Exit change(ControlClient& agent, nlohmann::ordered_json request,
              const nlohmann::ordered_json& packets = nullptr) const;
  bool isDryRun() const { return dryRun_; }

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
