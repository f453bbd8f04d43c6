#include <Hive/EntityManager.h>
#include <Zeb/TypeModule.h>

namespace Hive {

Kelp::Ptr<Zeb::Entity> EntityManager::getEntity(std::string_view path) const {
  auto at = mounts_.find(path);
  return at == mounts_.end() ? nullptr : at->second;
}

void EntityManager::mountIs(std::string_view path, Kelp::Ptr<Zeb::Entity> entity) {
  mounts_.insert_or_assign(std::string(path), std::move(entity));
}

void EntityManager::mountDel(std::string_view path) {
  if (auto at = mounts_.find(path); at != mounts_.end()) mounts_.erase(at);
}

std::optional<std::string> EntityManager::mountProfile(const MountProfile& profile) {
  std::vector<std::pair<std::string_view, Kelp::Ptr<Zeb::Entity>>> made;
  for (const auto& mount : profile.mounts) {
    auto known = getEntity(mount.path);
    for (const auto& [path, entity] : made) {
      if (path == mount.path) known = entity;
    }
    if (known) {
      if (known->typeData().name() != mount.type) {
        return fmt::format("{} is mounted as {}, not as {}", mount.path, known->typeData().name(),
                           mount.type);
      }
      continue;
    }
    const std::any name = Kelp::String(std::string_view(mount.path).substr(mount.path.rfind('/') + 1));
    auto entity = Kelp::ptrCast<Zeb::Entity>(Zeb::constructByName(mount.type, std::span(&name, 1)));
    if (!entity) return fmt::format("{}: no type {} that can be mounted", mount.path, mount.type);
    made.emplace_back(mount.path, std::move(entity));
  }
  for (auto& [path, entity] : made) mountIs(path, std::move(entity));
  return std::nullopt;
}

}  // namespace Hive
