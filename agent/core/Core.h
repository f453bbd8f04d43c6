#pragma once

#include <Acl/AclConfigAggregatorSm.h>
#include <Acl/Counters.h>
#include <Acl/IntfConfigSm.h>
#include <Acl/Model.h>
#include <Acl/Status.h>
#include <Hive/EntityManager.h>
#include <Velo/Mirroring.h>
#include <Velo/NamedCounters.h>
#include <Velo/PortChannels.h>
#include <Velo/VeloPlugin.h>
#include <agent/config/Reader.h>

#include <functional>
#include <map>
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

  /// The configuration to put in force: the command line's and, by name, that of each further source. Returns
  /// what is wrong with their port-channels; then nothing has changed.
  std::optional<std::string> apply(const Config::Model& commandLine,
                                   const std::map<std::string, Config::Model>& inputs);
  /// Why a configuration cannot be applied, if so.
  static std::optional<std::string> whyNot(const Config::Model& commandLine,
                                           const std::map<std::string, Config::Model>& inputs);

  // For a change that is carried out bit by bit, see control/Changeover.h.

  /// The same for port-channels and mirror sessions only.
  std::optional<std::string> applyInterfaces(const Config::Model& commandLine,
                                             const std::map<std::string, Config::Model>& inputs);
  /// The entities of one source.
  struct Source {
    Kelp::Ptr<Acl::Input::Config> lists;
    Kelp::Ptr<Acl::IntfConfig> bindings;
  };
  /// The source of an input's name, made when there is none; of an empty name the command line's.
  Source sourceIs(const std::string& input);
  void sourceDel(const std::string& input);
  /// A list of the merged configuration, by which the plugin judges packets; null when there is none.
  Kelp::Ptr<Acl::AclConfig> mergedList(Acl::AclType type, const Kelp::String& name) const;
  /// See Acl::AclConfigAggregatorSm.
  bool takeOver(Acl::AclType type, const Kelp::String& name, size_t most);

  /// Asked, while it is set, for the id of every rule that comes into a source ("cli", or "input/" and a
  /// name); an empty id says that the rule is a new one.
  using RuleIdMemory = std::function<Kiv::UniqueId(const std::string& source, const Config::List& list,
                                                   const Config::Rule& rule)>;
  void ruleIdMemoryIs(RuleIdMemory memory) { ruleIdMemory_ = std::move(memory); }
  /// The sources of lists by their names, as ruleIdMemoryIs() has them; null when there is none.
  Kelp::Ptr<const Acl::Config> source(std::string_view name) const;
  std::vector<std::string> sources() const;
  /// The published status as a mounted entity, with or without a plugin: for whoever fills it beforehand.
  Kelp::Ptr<Acl::StatusDp> mountedStatus() const;

  const Kelp::Ptr<Velo::VeloNamedCounters>& namedCounters() const { return namedCounters_; }
  const Velo::PortChannels& portChannels() const { return portChannels_; }
  Velo::PluginManager& manager() { return manager_; }
  const Velo::PluginManager& manager() const { return manager_; }

  // What the loaded plugin works with, found by the names of its attributes; null when it has no such thing.
  Kelp::Ptr<const Acl::Config> lists() const;
  Kelp::Ptr<const Acl::IntfConfig> bindings() const;
  Kelp::Ptr<const Acl::AclConfigAggregatorSm> listSources() const;
  Kelp::Ptr<const AclAgent::IntfConfigSm> bindingSources() const;
  Kelp::Ptr<const Acl::StatusDp> status() const;
  std::vector<Kelp::Ptr<Velo::Counter::VeloDpAclCounterColl>> counters() const;

  /// The first list or binding in force that the status does not show, or shows without an implicit rule;
  /// nothing when all are there, and for a plugin that publishes no status.
  std::optional<std::string> unpublished() const;

 private:
  template <class T>
  Kelp::Ptr<T> pluginAttribute(std::string_view name) const;
  void applySource(const std::string& source, const Config::Model& model,
                   const Kelp::Ptr<Acl::Input::Config>& lists);
  Kelp::Ptr<Zeb::Entity> entity(std::string_view path) const;

  Velo::PluginManager manager_;
  Velo::PluginContext context_;
  const Kelp::Ptr<Velo::VeloNamedCounters> namedCounters_;
  Velo::PortChannels portChannels_;
  RuleIdMemory ruleIdMemory_;
  std::string plugin_;
};

}  // namespace Agent
