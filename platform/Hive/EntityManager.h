#pragma once

#include <Zeb/Entity.h>

#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace Hive {

/// What a plugin asks the state tree to hold for it: paths, the types of the entities there, and whether it
/// writes them.
struct MountProfile {
  enum class Mode { read, write };
  struct Mount {
    std::string path;
    std::string type;  ///< full name of a reflected type that is constructed from a name
    Mode mode = Mode::read;
  };
  std::vector<Mount> mounts;
};

/// The profiles that an agent has, by the name under which a plugin asks for its own.
using MountProfiles = std::map<std::string, MountProfile, std::less<>>;

/// The shared state tree as one process sees it: entities by path. An entity stays mounted until it is
/// unmounted; plugins come and go around it.
class EntityManager : public Kelp::Node {
 public:
  /// The entity mounted at a path, or null.
  Kelp::Ptr<Zeb::Entity> getEntity(std::string_view path) const;

  /// Mounts an entity, in place of the one that was at the path.
  void mountIs(std::string_view path, Kelp::Ptr<Zeb::Entity> entity);
  void mountDel(std::string_view path);

  /// Mounts what a profile asks for and what is not mounted yet. An entity has the last word of its path as
  /// its name. Returns what could not be mounted and why; then nothing was mounted.
  std::optional<std::string> mountProfile(const MountProfile& profile);

 private:
  std::map<std::string, Kelp::Ptr<Zeb::Entity>, std::less<>> mounts_;
};

}  // namespace Hive
