#include <Velo/VeloPlugin.h>
#include <Zeb/TypeModule.h>

// A small plugin for the loader's tests; also built as a twin that registers the same name, and with another
// interface version.

#ifndef TINY_VERSION
#define TINY_VERSION Plugin::interfaceVersion
#endif

namespace TinyPlugin {

class Thing : public Zeb::Entity {
  ZEB_ENTITY(Thing, Zeb::Entity)

 public:
  explicit Thing(const Kelp::String& name) : Entity(name) {}
};

Kelp::Ptr<Thing> thing(const Kelp::String& name) { return MemSlab::make<Thing>(name); }

namespace {

const Zeb::TypeModule module("TinyPlugin", {Zeb::typeEntry(&thing)});

/// Puts what it makes at "tiny" in the state tree, and keeps it, too.
class Instance : public Plugin::PluginInitCaller<Velo::PluginContext> {
 public:
  Instance() {
    Velo::DefaultPluginLoader().initCallerIs(caller_);
    Velo::DefaultPluginLoader().registerPlugin("TinyPlugin", "test", "Tiny", "", TINY_VERSION, &caller_);
  }
  ~Instance() override {
    Velo::DefaultPluginLoader().unregisterPlugin(&caller_);
    Velo::DefaultPluginLoader().initCallerDel(caller_);
  }
  void init(Velo::PluginContext* context) override {
    made_ = thing("made");
    context->entityManager->mountIs("tiny", made_);
  }
  void letGo() override { made_ = nullptr; }

 private:
  Plugin::Loader<Velo::PluginContext>::LoaderInitCallerWithContext caller_{Velo::DefaultPluginLoader(),
                                                                           *this};
  Kelp::Ptr<Thing> made_;
};
Instance instance;

}  // namespace
}  // namespace TinyPlugin
