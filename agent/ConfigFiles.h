#pragma once

#include <agent/config/Reader.h>

#include <map>
#include <string>
#include <vector>

namespace Agent {

/// The configuration texts of a run: the command line's, read in order as one, and each file of a directory
/// as a source of its own.
class ConfigFiles {
 public:
  /// Reads all of them. Returns every mistake and every file that could not be read, a line each; then
  /// nothing is to be applied. `dir` empty: none; its hidden files and backup files (ending in ~) do not
  /// count.
  std::vector<std::string> read(const std::vector<std::string>& commandLine, const std::string& dir);

  /// Whether any of the texts defines a port-channel of this name.
  bool hasPortChannel(const std::string& name) const;

  const Config::Model& commandLine() const { return commandLine_; }
  /// By file name.
  const std::map<std::string, Config::Model>& inputs() const { return inputs_; }

 private:
  Config::Model commandLine_;
  std::map<std::string, Config::Model> inputs_;
};

}  // namespace Agent
