#pragma once

#include <agent/change/Sources.h>
#include <agent/config/Reader.h>
#include <agent/core/Texts.h>

#include <filesystem>
#include <map>
#include <optional>
#include <string>
#include <vector>

namespace Agent {

/// What a file of a directory had in it when it was read.
struct FileContent {
  FileIdentity identity;
  uint64_t hash = 0;
  bool settled = false;  ///< it was, when the file was read: else the identity does not vouch for the content
};

/// Of a text that nobody can vouch for the first mistakes are told.
inline constexpr size_t mostMistakes = 100;
std::vector<std::string> textsOf(const std::vector<Config::Mistake>& mistakes);

/// The files of a configuration directory in the order of their names; hidden files, backup files (ending in
/// ~) and directories do not count.
std::vector<std::filesystem::path> configFilesIn(const std::string& dir, std::vector<std::string>& wrong);

/// The configuration texts of a run: the command line's, read in order as one, and each file of a directory
/// as a source of its own.
class ConfigFiles {
 public:
  /// Reads all of them. Returns every mistake and every file that could not be read, a line each; then
  /// nothing is to be applied. `dir` empty: none.
  std::vector<std::string> read(const std::vector<std::string>& commandLine, const std::string& dir,
                                TextLimits limits = {});

  const Sources& sources() const { return sources_; }
  /// Hands them over, for whoever goes on with them; empty afterwards.
  Sources takeSources() { return std::move(sources_); }
  const std::map<std::string, FileContent>& contents() const { return contents_; }

 private:
  Sources sources_;
  std::map<std::string, FileContent> contents_;  // of the inputs
};

}  // namespace Agent
