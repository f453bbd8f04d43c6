#pragma once

#include <Acl/Model.h>
#include <Acl/Status.h>
#include <Hive/EntityManager.h>
#include <Velo/Mirroring.h>
#include <Velo/NamedCounters.h>
#include <Velo/PortChannels.h>
#include <Velo/VeloPlugin.h>
#include <agent/config/Model.h>
#include <agent/core/InForce.h>

#include <optional>
#include <string>
#include <vector>

namespace Agent {

/// The agent without its ports: the state tree with the configuration in it, and the plugin with what it has
/// registered. A process has one.
class Core {
 public:
  Core();
  Core(const Core&) = delete;
  Core& operator=(const Core&) = delete;
  /// Retires and closes the plugins.
  ~Core();

  /// Opens a plugin library, in place of all that are loaded, and further ones beside it, and runs the phases
  /// of their plugins. Returns what went wrong; then no plugin is loaded.
  std::optional<std::string> loadPlugin(const std::string& path,
                                        const std::vector<std::string>& further = {});
  /// Retires all plugins and closes their libraries. Returns why that could not be done. Without a plugin it
  /// does nothing.
  std::optional<std::string> unloadPlugin();

  /// Replaces port-channels and mirror sessions by those of a model; its lists and bindings are not looked
  /// at. Returns what is wrong with the port-channels; then nothing has changed.
  std::optional<std::string> interfacesAre(const Config::Model& interfaces);
  /// Why they cannot be those of a model; nothing if they can.
  static std::optional<std::string> whyNot(const Config::Model& interfaces);

  /// The entities that one source of configuration has in the state tree.
  struct Source {
    Kelp::Ptr<Acl::Input::Config> lists;
    Kelp::Ptr<Acl::IntfConfig> bindings;
  };
  /// The source of an input, made when there is none. An empty name means the command line.
  Source sourceIs(const std::string& input);
  void sourceDel(const std::string& input);
  std::vector<std::string> inputs() const;
  /// What the source of the command line is called.
  static constexpr std::string_view commandLineSource = "cli";
  /// The full name of a source: that of the command line's, else "input/" and the name of the input.
  static std::string sourceName(const std::string& input);
  /// The lists of the source of a full name; null when there is no such source.
  Kelp::Ptr<const Acl::Config> source(std::string_view name) const;
  /// The full names of all sources.
  std::vector<std::string> sources() const;
  /// The published status in the state tree. It is there before a plugin is, so that it can be filled first.
  Kelp::Ptr<Acl::StatusDp> mountedStatus() const;

  const Kelp::Ptr<Velo::VeloNamedCounters>& namedCounters() const { return namedCounters_; }
  const Velo::PortChannels& portChannels() const { return portChannels_; }
  Velo::PluginManager& manager() { return manager_; }
  const Velo::PluginManager& manager() const { return manager_; }

  const InForce& inForce() const { return inForce_; }

 private:
  std::optional<std::string> addPlugin(const std::string& path);
  Kelp::Ptr<Zeb::Entity> entity(std::string_view path) const;

  Velo::PluginManager manager_;
  Velo::PluginContext context_;
  const Kelp::Ptr<Velo::VeloNamedCounters> namedCounters_;
  Velo::PortChannels portChannels_;
  std::vector<std::string> plugins_;
  const InForce inForce_;
};

}  // namespace Agent
