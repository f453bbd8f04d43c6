#pragma once

#include <agent/config/Reader.h>

#include <filesystem>
#include <map>
#include <optional>
#include <string>
#include <vector>

namespace Agent {

/// The text of a file; nothing, with what is wrong added to `wrong`, when it cannot be read.
std::optional<std::string> readText(const std::string& path, std::vector<std::string>& wrong);
/// The files of a configuration directory in the order of their names; hidden files, backup files (ending in
/// ~) and directories do not count.
std::vector<std::filesystem::path> configFilesIn(const std::string& dir, std::vector<std::string>& wrong);

/// The configuration texts of a run: the command line's, read in order as one, and each file of a directory
/// as a source of its own.
class ConfigFiles {
 public:
  /// Reads all of them. Returns every mistake and every file that could not be read, a line each; then
  /// nothing is to be applied. `dir` empty: none.
  std::vector<std::string> read(const std::vector<std::string>& commandLine, const std::string& dir);

  /// Whether any of the texts defines a port-channel of this name.
  bool hasPortChannel(const std::string& name) const;

  const Config::Model& commandLine() const { return commandLine_; }
  /// Hands a model over, for whoever goes on with it; empty afterwards.
  Config::Model takeCommandLine() { return std::move(commandLine_); }
  std::map<std::string, Config::Model> takeInputs() { return std::move(inputs_); }
  /// By file name.
  const std::map<std::string, Config::Model>& inputs() const { return inputs_; }

 private:
  Config::Model commandLine_;
  std::map<std::string, Config::Model> inputs_;
};

}  // namespace Agent
