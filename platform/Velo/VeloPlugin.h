#pragma once

#include <Hive/EntityManager.h>
#include <Plugin/Loader.h>
#include <Velo/Counter.h>
#include <Velo/Pipeline.h>
#include <Velo/SharedObjects.h>

#include <optional>
#include <string>
#include <vector>

namespace Velo {

class PluginManager;
class VeloPluginBase;

/// What the agent gives a plugin's init: both live as long as the agent.
struct PluginContext {
  PluginManager* manager = nullptr;
  Kelp::Ptr<Hive::EntityManager> entityManager;
};

/// A plugin as the framework sees it: an entity that is led through phases. Their order is: the mounts
/// (handleMountStatus, doHiveMountsComplete, createLocalEntities, doMountsComplete, which calls
/// mountsComplete); then setupPluginManager; then activeInit, or standbyInit and later switchoverInit and
/// activeInit.
class VeloPluginBase : public Zeb::Entity {
  ZEB_ENTITY(VeloPluginBase, Zeb::Entity)

 public:
  void pluginCtxIs(PluginContext* context) { context_ = context; }
  PluginContext* pluginCtx() const { return context_; }

  /// Called before the mounts; `mounted`: whether everything in the plugin's mount profile could be mounted.
  /// A plugin whose mounts failed still goes through its phases, with what is there.
  virtual void handleMountStatus(bool mounted);
  virtual void doHiveMountsComplete(const Kelp::Ptr<Hive::EntityManager>& entities);
  virtual void createLocalEntities() {}
  virtual void doMountsComplete(const Kelp::Ptr<Hive::EntityManager>& entities) { mountsComplete(entities); }
  virtual void mountsComplete(const Kelp::Ptr<Hive::EntityManager>&) {}
  virtual void setupPluginManager() {}
  virtual void standbyInit() {}
  virtual void switchoverInit() {}
  virtual void activeInit() {}

  /// Registers the plugin with the framework, in place of an earlier one with its name. `entities` is the
  /// state tree in which its profile is mounted.
  virtual void savePluginRef(const Kelp::Ptr<Hive::EntityManager>& entities);
  /// Null before savePluginRef.
  const Kelp::Ptr<Hive::EntityManager>& entityManager() const { return entities_; }
  /// The name of the plugin's mount profile. If the agent has no profile of that name, nothing is mounted.
  virtual Kelp::String hiveMountProfilePrefix() const { return name(); }
  bool mounted() const { return mounted_; }

 protected:
  explicit VeloPluginBase(Kelp::String name) : Entity(std::move(name)) {}

 private:
  PluginContext* context_ = nullptr;
  Kelp::Ptr<Hive::EntityManager> entities_;
  bool mounted_ = false;
};

/// Base of the plugins of this agent.
class VeloPlugin : public VeloPluginBase {
  ZEB_ENTITY(VeloPlugin, VeloPluginBase)

 public:
  /// The manager of the context that the plugin was given.
  PluginManager* manager() const { return pluginCtx()->manager; }

 protected:
  using VeloPluginBase::VeloPluginBase;
};

/// The agent's side of its plugins: the registries that they put objects into, and the plugins themselves. It
/// leads the plugins through their phases. When a plugin goes, it removes everything from the registries that
/// the plugin has registered.
class PluginManager {
 public:
  PluginManager();
  PluginManager(const PluginManager&) = delete;
  PluginManager& operator=(const PluginManager&) = delete;
  ~PluginManager();

  const Kelp::Ptr<SharedObjects>& sharedObjects() const { return sharedObjects_; }
  const Kelp::Ptr<Counter::PktCounterCollectionHolder>& counterHolder() const { return counterHolder_; }
  const Kelp::Ptr<AllGenericPipelineSteps>& pipeline() const { return pipeline_; }

  using Plugins = std::vector<Kelp::Ptr<VeloPluginBase>>;
  const Plugins& plugins() const { return plugins_; }
  void pluginIs(const Kelp::Ptr<VeloPluginBase>& plugin);
  /// Retires the plugin of a name, if there is one.
  void pluginDel(const Kelp::String& name);

  /// Leads every new plugin through its phases up to activeInit, with its profile mounted in the state tree
  /// that it was registered with. Returns what could not be mounted.
  std::optional<std::string> runPhases(const Hive::MountProfiles& profiles);

 private:
  void retire(const Kelp::Ptr<VeloPluginBase>& plugin);

  Registrant registrant_;
  const Kelp::Ptr<SharedObjects> sharedObjects_;
  const Kelp::Ptr<Counter::PktCounterCollectionHolder> counterHolder_;
  const Kelp::Ptr<AllGenericPipelineSteps> pipeline_;
  Plugins plugins_;
  std::vector<const VeloPluginBase*> active_;
};

/// The agent's loader for its plugins.
Plugin::Loader<PluginContext>& DefaultPluginLoader();

}  // namespace Velo
