#pragma once

#include <agent/config/Model.h>

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <vector>

namespace Agent {

/// The name of the command line's source. All other sources but the fleet's are named after files, so that it
/// is unique.
inline const std::string commandLineName;
/// The name of the source that an agent has from its fleet. No file that is read ends in ~; and it comes
/// behind the names of files, as what is nearer to the agent counts more.
inline const std::string fleetName = "~fleet~";
/// What people call a source: Core::commandLineSource that of the command line, `fleet` that of the fleet,
/// all others by their names.
std::string sourceTitle(const std::string& name);
std::string sourceOfTitle(const std::string& title);
/// Why no file of the directory can have this name, as people could not tell its source from the command
/// line's or the fleet's; nothing if one can.
std::optional<std::string> whyNoSource(const std::string& name);

/// Sources by name with their content, that of the highest precedence first. Does not own the content.
using Layers = std::vector<std::pair<std::string, const Config::Model*>>;

/// The port-channels and mirror sessions that are in force, as a model without lists and bindings.
Config::Model mergedInterfaces(const Layers& layers);

/// The content of all sources of configuration, as plain values, in the order of their precedence: the
/// command line, then the inputs (the files of the directory, and what the fleet has) by name. If several
/// sources define the same list, port-channel or mirror session, that of the first one is in force; they are
/// never mixed.
struct Sources {
  Config::Model commandLine;
  std::map<std::string, Config::Model> inputs;
  uint64_t version = 0;  ///< another one after every exchange()

  /// The content of a source; null when there is no such source.
  const Config::Model* find(const std::string& name) const;
  /// Replaces the content of a source, or deletes it when `now` is nothing. Returns the content before.
  std::optional<Config::Model> exchange(const std::string& name, std::optional<Config::Model> now);

  /// Calls visit(name, content) for each source, that of the highest precedence first.
  template <class Visit>
  void forEach(const Visit& visit) const {
    visit(commandLineName, commandLine);
    for (const auto& [name, model] : inputs) visit(name, model);
  }

  /// Replaces what the reader noticed of a source, which must be there.
  void noticesAre(const std::string& name, Config::Notices notices);

  Layers layers() const;
  /// The layers if a source had another content; null: if there were no such source.
  Layers layersWith(const std::string& name, const Config::Model* now) const;
  Config::Model interfaces() const { return mergedInterfaces(layers()); }
  /// Why these sources cannot be in force together; nothing if they can.
  std::optional<std::string> whyNot() const;
  /// Why there can be no port of this name: a source defines a port-channel of that name. Nothing if none
  /// does.
  std::optional<std::string> whyNoPort(const std::string& name) const;
  /// The remarks that stand behind the last rule of a list in a source.
  std::vector<std::string> trailingRemarks(const std::string& name, const Config::Model::ListKey& list) const;
};

/// A model that was made of something, or what is wrong with that.
struct MadeModel {
  std::optional<Config::Model> model;
  std::vector<std::string> mistakes;  ///< each with its place, or a sentence
};

/// New content for a source; without a model the source is deleted.
struct NewContent {
  std::string source;
  std::optional<Config::Model> model;
};

}  // namespace Agent
