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

/// The agent without its ports: the state tree, the plugin in its registries, and the configuration that
/// operators gave it. One a process.
class Core {
 public:
  Core();
  Core(const Core&) = delete;
  Core& operator=(const Core&) = delete;
  /// Retires and closes the plugin.
  ~Core();

  /// Opens a plugin library, in place of the one that is loaded, and runs the phases of what it registers.
  /// Returns what went wrong; then no plugin is loaded.
  std::optional<std::string> loadPlugin(const std::string& path);
  /// Retires the plugin and closes its library; returns why that could not be done. Without one does nothing.
  std::optional<std::string> unloadPlugin();

  /// Has port-channels and mirror sessions be those of a model, the lists and bindings of which do not count.
  /// Returns what is wrong with the port-channels; then nothing has changed.
  std::optional<std::string> interfacesAre(const Config::Model& interfaces);
  /// Why they cannot be, if so.
  static std::optional<std::string> whyNot(const Config::Model& interfaces);

  /// The entities of one source.
  struct Source {
    Kelp::Ptr<Acl::Input::Config> lists;
    Kelp::Ptr<Acl::IntfConfig> bindings;
  };
  /// The source of an input's name, made when there is none; of an empty name the command line's.
  Source sourceIs(const std::string& input);
  void sourceDel(const std::string& input);
  std::vector<std::string> inputs() const;
  /// What a source is called among all of them: "cli", or "input/" and the name of an input.
  static std::string sourceName(const std::string& input);
  /// The sources of lists by what they are called so; null when there is none.
  Kelp::Ptr<const Acl::Config> source(std::string_view name) const;
  std::vector<std::string> sources() const;
  /// The published status as a mounted entity, with or without a plugin: for whoever fills it beforehand.
  Kelp::Ptr<Acl::StatusDp> mountedStatus() const;

  const Kelp::Ptr<Velo::VeloNamedCounters>& namedCounters() const { return namedCounters_; }
  const Velo::PortChannels& portChannels() const { return portChannels_; }
  Velo::PluginManager& manager() { return manager_; }
  const Velo::PluginManager& manager() const { return manager_; }

  const InForce& inForce() const { return inForce_; }

 private:
  Kelp::Ptr<Zeb::Entity> entity(std::string_view path) const;

  Velo::PluginManager manager_;
  Velo::PluginContext context_;
  const Kelp::Ptr<Velo::VeloNamedCounters> namedCounters_;
  Velo::PortChannels portChannels_;
  std::string plugin_;
  const InForce inForce_;
};

}  // namespace Agent
