#pragma once

#include <agent/config/Model.h>

#include <map>
#include <optional>
#include <string>
#include <vector>

namespace Agent {

/// The name that the command line's source has among those of files, none of which is empty.
inline const std::string commandLineName;

/// What all sources of configuration say, as plain values, in the order of their precedence: the command
/// line, then the inputs (the files of the directory) by name. Of a list, a port-channel or a mirror session
/// that several define, that of the first source is in force; never a mixture.
struct Sources {
  Config::Model commandLine;
  std::map<std::string, Config::Model> inputs;

  /// What the source of a name says; null when there is none.
  const Config::Model* find(const std::string& name) const;
  /// Puts what a source says, or that it goes (nothing), in the place of what it said before, which is
  /// returned.
  std::optional<Config::Model> exchange(const std::string& name, std::optional<Config::Model> now);

  /// Visits each source with its name, the one of the highest precedence first.
  template <class Visit>
  void forEach(const Visit& visit) const {
    visit(commandLineName, commandLine);
    for (const auto& [name, model] : inputs) visit(name, model);
  }

  /// The port-channels and mirror sessions in force: a model without lists and bindings.
  Config::Model interfaces() const;
  /// Why what the sources say cannot be in force together, if so.
  std::optional<std::string> whyNot() const;
  /// Whether any source defines a port-channel of this name.
  bool hasPortChannel(const std::string& name) const;
  /// The remarks that a source has behind the last rule of a list.
  std::vector<std::string> trailingRemarks(const std::string& name, const Config::Model::ListKey& list) const;
};

/// New content for a source; nothing: it has gone.
struct NewContent {
  std::string source;
  std::optional<Config::Model> model;
};

}  // namespace Agent
