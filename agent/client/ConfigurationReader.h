#pragma once

#include <agent/change/Sources.h>
#include <agent/core/Texts.h>
#include <agent/proof/Sayings.h>

#include <cstdint>
#include <optional>
#include <set>
#include <string>
#include <utility>
#include <vector>

namespace CLI {
class App;
class Option;
}  // namespace CLI

namespace Agent {

class ControlClient;

/// What an agent has in force, source by source.
struct InForceSources {
  Sources sources;
  uint64_t revision = 0;  ///< of the agent's configuration, for an `apply` of what was made of it
};
/// Asks an agent for it. Nothing, with what is wrong, if that cannot be had.
std::optional<InForceSources> sourcesInForce(ControlClient& agent, std::string* wrong);

/// Reads configurations that a user names: a text or document, a directory, or `running`, what an agent has
/// in force.
class ConfigurationReader {
 public:
  static constexpr const char* running = "running";

  ConfigurationReader(TextLimits limits, std::string control)
      : limits_(limits), control_(std::move(control)) {}

  // Nothing, with what is wrong added to `mistakes`; that no agent answers is told at once, and is not.

  std::optional<Sources> read(const std::string& name, std::vector<std::string>& mistakes) const;
  /// Several texts that are one configuration; none: what the agent has in force.
  std::optional<Sources> readAsOne(const std::vector<std::string>& names,
                                   std::vector<std::string>& mistakes) const;
  /// The ports of the agent, if it is that configuration; none when they cannot be had, and of texts.
  std::set<std::string> portsOf(const std::string& name) const;

 private:
  std::optional<Sources> ofAgent(std::vector<std::string>& mistakes) const;
  std::optional<Sources> ofFiles(const std::vector<std::string>& files, const std::string& dir,
                                 std::vector<std::string>& mistakes) const;

  const TextLimits limits_;
  const std::string control_;
};

/// The options for how much may be spent on what is proven: `--proof-seconds` and `--proof-memory`.
class ProofOptions {
 public:
  /// `seconds`: when nothing else is said.
  explicit ProofOptions(double seconds = 60) : seconds_(seconds) {}

  /// `needed`: an option that must be given, too, where one of these is given. Null: there is none.
  void addTo(CLI::App& command, CLI::Option* needed = nullptr);
  /// And `--partly`, for what is told of lists.
  void addPartly(CLI::App& command, CLI::Option* needed = nullptr);
  Proof::Say say() const { return partly_ ? Proof::Say::partsToo : Proof::Say::oddities; }
  /// For work that begins now: from here on this thread gives way to others, as those of an agent. With a
  /// watcher when standard error is a terminal.
  Proof::Limits limits() const;

 private:
  double seconds_;
  int memory_ = 1024;
  bool partly_ = false;
};

}  // namespace Agent
