#include <Kelp/Assert.h>
#include <MemSlab/Slab.h>
#include <Velo/VeloPlugin.h>

#include <algorithm>

namespace Velo {

void VeloPluginBase::handleMountStatus(bool mounted) { mounted_ = mounted; }

void VeloPluginBase::doHiveMountsComplete(const Kelp::Ptr<Hive::EntityManager>& entities) {
  createLocalEntities();
  doMountsComplete(entities);
}

void VeloPluginBase::savePluginRef(const Kelp::Ptr<Hive::EntityManager>& entities) {
  KELP_ASSERT(entities, "a plugin is recorded with the state tree that it is to work with");
  entities_ = entities;
  context_->manager->pluginIs(Kelp::Ptr<VeloPluginBase>(this));
}

PluginManager::PluginManager()
    : sharedObjects_(MemSlab::make<SharedObjects>(registrant_)),
      counterHolder_(MemSlab::make<Counter::PktCounterCollectionHolder>(registrant_)),
      pipeline_(MemSlab::make<AllGenericPipelineSteps>(registrant_)) {}

PluginManager::~PluginManager() {
  while (!plugins_.empty()) pluginDel(plugins_.back()->name());
}

void PluginManager::pluginIs(const Kelp::Ptr<VeloPluginBase>& plugin) {
  pluginDel(plugin->name());
  plugins_.push_back(plugin);
}

void PluginManager::pluginDel(const Kelp::String& name) {
  auto at = std::find_if(plugins_.begin(), plugins_.end(),
                         [&](const auto& plugin) { return plugin->name() == name; });
  if (at == plugins_.end()) return;
  const Kelp::Ptr<VeloPluginBase> gone = *at;
  plugins_.erase(at);
  retire(gone);
}

void PluginManager::retire(const Kelp::Ptr<VeloPluginBase>& plugin) {
  pipeline_->removeStepsBy(plugin.get());
  counterHolder_->collectionsDelBy(plugin.get());
  sharedObjects_->sharedObjectsDelBy(plugin.get());
  std::erase(active_, plugin.get());
}

std::optional<std::string> PluginManager::runPhases(const Hive::MountProfiles& profiles) {
  std::optional<std::string> unmounted;
  for (const auto& plugin : Plugins(plugins_)) {
    if (std::find(active_.begin(), active_.end(), plugin.get()) != active_.end()) continue;
    const Registrant::Scope scope(registrant_, plugin.get());
    const Kelp::Ptr<Hive::EntityManager> entities = plugin->entityManager();
    KELP_ASSERT(entities, "a plugin is initialized with the state tree that it works on");
    const auto profile = profiles.find(plugin->hiveMountProfilePrefix().view());
    const auto failure = profile == profiles.end() ? std::nullopt : entities->mountProfile(profile->second);
    if (failure) unmounted = failure;
    plugin->handleMountStatus(!failure);
    plugin->doHiveMountsComplete(entities);
    plugin->setupPluginManager();
    plugin->activeInit();
    active_.push_back(plugin.get());
  }
  return unmounted;
}

Plugin::Loader<PluginContext>& DefaultPluginLoader() {
  static Plugin::Loader<PluginContext>& loader = *new Plugin::Loader<PluginContext>("Velo");
  return loader;
}

}  // namespace Velo
