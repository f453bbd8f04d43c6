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

/// What is remembered of the content of a file that was read.
struct FileContent {
  FileIdentity identity;
  uint64_t hash = 0;
  /// isSettled() when it was read; otherwise the content may differ in spite of the identity.
  bool settled = false;
};

/// How many mistakes are told of a text at most, when it comes from somebody else than the one who started
/// the agent.
inline constexpr size_t mostMistakes = 100;

/// The files of a configuration directory in the order of their names, without hidden files, backup files
/// (ending in ~) and directories.
std::vector<std::filesystem::path> configFilesIn(const std::string& dir, std::vector<std::string>& wrong);

/// Reads the configuration texts that an agent starts with: those of the command line, in order as one
/// source, and each file of a directory as a source of its own.
class ConfigFiles {
 public:
  /// Reads all of them. Returns a line for every mistake and for every file that could not be read; if there
  /// is any, the sources must not be used. `dir` empty: there is no directory.
  std::vector<std::string> read(const std::vector<std::string>& commandLine, const std::string& dir,
                                TextLimits limits = {});
  /// To be called before: the places of all rules are noticed, too.
  void noticeAllRules() { ofAllRules_ = true; }
  /// The same in two parts, with one reader for both. At most so many mistakes of each source are told.
  std::vector<std::string> readCommandLine(const std::vector<std::string>& paths, TextReader::Named named,
                                           TextReader& reader, size_t most = SIZE_MAX);
  std::vector<std::string> readDirectory(const std::string& dir, TextReader& reader, size_t most = SIZE_MAX);

  const Sources& sources() const { return sources_; }
  /// Replaces what the texts of the command line say.
  void commandLineIs(Config::Model model) { sources_.commandLine = std::move(model); }
  /// Adds an input that is no file.
  void inputIs(const std::string& name, Config::Model model) { sources_.inputs[name] = std::move(model); }
  /// Hands the sources over to the caller; none are left here.
  Sources takeSources() { return std::move(sources_); }
  const std::map<std::string, FileContent>& contents() const { return contents_; }

 private:
  Config::Model start() const;

  bool ofAllRules_ = false;
  Sources sources_;
  std::map<std::string, FileContent> contents_;  // of the inputs
};

}  // namespace Agent
