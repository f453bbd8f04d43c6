#include <Kelp/Assert.h>
#include <MemSlab/Slab.h>
#include <Plugin/Loader.h>
#include <Zeb/TypeModule.h>
#include <dlfcn.h>
#include <fmt/format.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <set>

namespace Plugin::Impl {

namespace {

/// The names of the reflected types of a library of which objects are alive, with how many.
std::string liveObjectsOf(void* library) {
  std::set<std::string> types;
  for (const Zeb::TypeModule* module : Zeb::typeModules()) {
    Dl_info info;
    if (!dladdr(module, &info)) continue;
    void* home = dlopen(info.dli_fname, RTLD_LAZY | RTLD_NOLOAD);
    if (home) dlclose(home);
    if (home != library) continue;
    for (const Zeb::TypeEntry& entry : module->entries()) types.emplace(entry.data->name());
  }
  std::string live;
  MemSlab::forEachSlab([&](const MemSlab::Slab& slab) {
    if (slab.liveCount() == 0 || !types.contains(slab.name())) return;
    live += fmt::format("{}{} {}", live.empty() ? "" : ", ", slab.liveCount(), slab.name());
  });
  return live;
}

/// The interface version in the file of a plugin. Sets `why` when there is none.
std::optional<std::string> versionIn(const std::string& path, std::string* why) {
  std::ifstream file(path, std::ios::binary);
  if (!file.is_open()) {
    *why = std::strerror(errno);
    return std::nullopt;
  }
  const std::string_view mark(interfaceMark);
  const std::string_view beginning = mark.substr(0, mark.size() - interfaceVersion.size());
  // The file has megabytes, so it is read in pieces. Each one is put behind the end of the piece before,
  // because the mark may begin there.
  constexpr size_t readAtOnce = size_t{64} << 10;
  std::string piece;
  do {
    piece.erase(0, piece.size() - std::min(piece.size(), mark.size() - 1));
    const size_t kept = piece.size();
    piece.resize(kept + readAtOnce);
    file.read(piece.data() + kept, readAtOnce);
    piece.resize(kept + static_cast<size_t>(file.gcount()));
    const size_t at = piece.find(beginning);
    if (at != std::string::npos && (piece.size() - at >= mark.size() || !file))
      return piece.substr(at + beginning.size(), interfaceVersion.size());
  } while (file);
  *why = "not a plugin: there is no interface version in it";
  return std::nullopt;
}

/// What is wrong with a version; nothing if it is right.
std::optional<std::string> refusalOfVersion(std::string_view version) {
  if (version == interfaceVersion) return std::nullopt;
  return fmt::format(
      "was built against interface version {}, this agent has {}: build it from this agent's headers with its compiler",
      version, interfaceVersion);
}

}  // namespace

void LoaderImpl::registerPlugin(std::string_view name, std::string_view kind, std::string_view shortName,
                                std::string_view options, std::string_view version, InitCaller* caller) {
  plugins_.push_back({std::string(name),
                      std::string(kind),
                      std::string(shortName),
                      std::string(options),
                      std::string(version),
                      caller,
                      nullptr,
                      {}});
}

void LoaderImpl::unregisterPlugin(const InitCaller* caller) {
  std::erase_if(plugins_, [caller](const Registration& plugin) { return plugin.initCaller == caller; });
}

std::optional<std::string> LoaderImpl::load(const std::string& path) {
  std::error_code error;
  const std::string full = std::filesystem::absolute(path, error).string();
  if (!std::filesystem::exists(full, error)) return fmt::format("{}: there is no such file", path);
  if (!std::filesystem::is_regular_file(full, error))
    return fmt::format("{}: not a plugin: not a file", path);

  std::string why;
  const auto version = versionIn(full, &why);
  if (!version) return fmt::format("{}: {}", path, why);
  if (const auto refusal = refusalOfVersion(*version)) return fmt::format("{}: {}", path, *refusal);

  const size_t before = plugins_.size();
  void* library = dlopen(full.c_str(), RTLD_NOW | RTLD_LOCAL);
  if (!library) return fmt::format("{}: not a plugin: {}", path, dlerror());
  if (plugins_.size() == before) {
    const bool again = std::any_of(plugins_.begin(), plugins_.end(), [library](const Registration& plugin) {
      return plugin.library == library;
    });
    dlclose(library);
    return again ? fmt::format("{}: the plugin is loaded already", path)
                 : fmt::format("{}: not a plugin: it registers none", path);
  }
  for (size_t i = before; i < plugins_.size(); ++i) {
    plugins_[i].library = library;
    plugins_[i].path = full;
  }
  std::optional<std::string> refusal = refusalOf(before);
  if (!refusal) return std::nullopt;
  dlclose(library);
  return fmt::format("{}: {}", path, *refusal);
}

std::optional<std::string> LoaderImpl::refusalOf(size_t first) const {
  for (auto added = plugins_.begin() + static_cast<long>(first); added != plugins_.end(); ++added) {
    if (const auto refusal = refusalOfVersion(added->interfaceVersion))
      return fmt::format("{} {}", added->name, *refusal);
    const auto known = std::find_if(plugins_.begin(), added,
                                    [&](const Registration& plugin) { return plugin.name == added->name; });
    if (known == added) continue;
    return fmt::format("{} is loaded already{}{}", added->name, known->path.empty() ? "" : ", from ",
                       known->path);
  }
  return std::nullopt;
}

std::optional<std::string> LoaderImpl::unload(std::string_view name) {
  auto at = std::find_if(plugins_.begin(), plugins_.end(),
                         [name](const Registration& plugin) { return plugin.name == name; });
  if (at == plugins_.end()) return fmt::format("no plugin {} is loaded", name);
  if (!at->library) return fmt::format("{} is part of the program and cannot be unloaded", name);
  void* library = at->library;
  for (const Registration& plugin : plugins_) {
    if (plugin.library == library) plugin.initCaller->letGo();
  }
  if (std::string live = liveObjectsOf(library); !live.empty()) {
    return fmt::format("{} is still in use and stays loaded: {}", at->path, live);
  }
  const std::string path = at->path;
  dlclose(library);
  if (void* still = dlopen(path.c_str(), RTLD_LAZY | RTLD_NOLOAD)) {
    dlclose(still);
    return fmt::format("{} could not be closed", path);
  }
  return std::nullopt;
}

}  // namespace Plugin::Impl
