#pragma once

#include <Plugin/InterfaceVersion.h>

#include <list>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace Plugin {

/// Is called with the agent's context as soon as there is one: the instance of a plugin.
template <class Context>
class PluginInitCaller {
 public:
  virtual ~PluginInitCaller() = default;
  virtual void init(Context* context) = 0;
  /// Called before the library is closed: releases what init() has made.
  virtual void letGo() {}
};

namespace Impl {

/// Opens plugin libraries and keeps a list of the plugins that they register. There is one loader for each
/// kind of plugin, used on the agent's main thread.
class LoaderImpl {
 public:
  class InitCaller {
   public:
    virtual ~InitCaller() = default;
    virtual void letGo() = 0;
  };
  struct Registration {
    std::string name;
    std::string kind;
    std::string shortName;
    std::string options;
    std::string interfaceVersion;
    InitCaller* initCaller;
    void* library;     ///< null for a plugin that is linked into the program
    std::string path;  ///< absolute
  };

  explicit LoaderImpl(std::string kind) : kind_(std::move(kind)) {}
  LoaderImpl(const LoaderImpl&) = delete;
  LoaderImpl& operator=(const LoaderImpl&) = delete;

  const std::string& kind() const { return kind_; }
  const std::vector<Registration>& plugins() const { return plugins_; }

  /// Called by a library while it is being opened. `options` is kept and has no use yet.
  void registerPlugin(std::string_view name, std::string_view kind, std::string_view shortName,
                      std::string_view options, std::string_view version, InitCaller* caller);
  /// Called by a library while it is being closed.
  void unregisterPlugin(const InitCaller* caller);

  /// Opens a library, which registers its plugins; does not initialise them. A library with another interface
  /// version is not opened at all. Returns a sentence that says why it failed, with the path; then nothing
  /// has changed. To replace a plugin, unload the old one first: the objects of two plugins with the same
  /// name could not be told apart.
  std::optional<std::string> load(const std::string& path);

  /// Closes the library of a plugin. The agent must have released everything that it got from the plugin;
  /// then the instance releases its own objects. If objects of the library's types are still alive after
  /// that, the library stays open, and the returned sentence names them.
  std::optional<std::string> unload(std::string_view name);

 private:
  /// What is wrong with the plugins from this index on; nothing if they are right.
  std::optional<std::string> refusalOf(size_t first) const;

  const std::string kind_;
  std::vector<Registration> plugins_;
};

}  // namespace Impl

/// A loader for plugins that are initialised with a Context.
template <class Context>
class Loader : public Impl::LoaderImpl {
 public:
  using LoaderImpl::LoaderImpl;

  /// Calls one instance's init; refers to the loader and the instance.
  class LoaderInitCallerWithContext : public InitCaller {
   public:
    LoaderInitCallerWithContext(Loader& loader, PluginInitCaller<Context>& instance)
        : loader_(loader), instance_(instance) {}
    void call(Context* context) { instance_.init(context); }
    void letGo() override { instance_.letGo(); }
    Loader& loader() const { return loader_; }

   private:
    Loader& loader_;
    PluginInitCaller<Context>& instance_;
  };

  /// Adds a caller at the front of the list. The list does not own it.
  void initCallerIs(LoaderInitCallerWithContext& caller) { initCallers_.push_front(&caller); }
  void initCallerDel(LoaderInitCallerWithContext& caller) { initCallers_.remove(&caller); }

  /// Initialises every registered plugin, the latest first.
  void callInit(Context* context) {
    const auto callers = initCallers_;
    for (LoaderInitCallerWithContext* caller : callers) caller->call(context);
  }
  /// Initialises the plugins of one name.
  void callInit(Context* context, std::string_view name) {
    for (const Registration& plugin : std::vector(plugins())) {
      if (plugin.name == name) static_cast<LoaderInitCallerWithContext*>(plugin.initCaller)->call(context);
    }
  }

 private:
  std::list<LoaderInitCallerWithContext*> initCallers_;
};

/// Base of a plugin library's one global instance: registers itself with a loader for as long as it lives.
template <class Context>
class PluginBase : public PluginInitCaller<Context> {
 public:
  PluginBase(const PluginBase&) = delete;
  PluginBase& operator=(const PluginBase&) = delete;
  ~PluginBase() override {
    loader_.unregisterPlugin(&caller_);
    loader_.initCallerDel(caller_);
  }

 protected:
  PluginBase(Loader<Context>& loader, std::string_view name, std::string_view shortName)
      : loader_(loader), caller_(loader, *this) {
    loader_.initCallerIs(caller_);
    loader_.registerPlugin(name, loader_.kind(), shortName, "", interfaceVersion, &caller_);
  }

 private:
  Loader<Context>& loader_;
  typename Loader<Context>::LoaderInitCallerWithContext caller_;
};

}  // namespace Plugin
