#pragma once

#include <Zeb/Dir.h>

#include <compare>
#include <vector>

namespace Hive {

/// The place of an entity in a merged view: entities added by hand come first, then those of the input
/// directories in the order in which these were added; within one directory the name decides.
struct MergeRank {
  uint32_t origin = 0;  ///< 0 for entities added by hand, then 1 for the first directory, ...
  Kelp::String name;
  auto operator<=>(const MergeRank&) const = default;
  bool operator==(const MergeRank&) const = default;
};

/// A merged view over entities of several origins, in order of precedence.
class DirMerged : public Zeb::Entity {
  ZEB_ENTITY(DirMerged, Zeb::Entity)

 public:
  explicit DirMerged(Kelp::String name) : Entity(std::move(name)) {}

  /// Adds an entity by hand, under its own name. Null adds nothing.
  void addPtr(const Kelp::Ptr<const Zeb::Entity>& entity) {
    if (entity) entryIs(MergeRank{0, entity->name()}, entity);
  }

  ZEB_COLLECTION(entry, Zeb::OrderedMap<MergeRank, Kelp::Ptr<const Zeb::Entity>>)
};

/// Keeps the entities of directories in a merged view and follows the directories' changes. On destruction it
/// leaves the view as it is.
class DirMergeSm : public Kelp::Node {
 public:
  explicit DirMergeSm(Kelp::Ptr<DirMerged> merged);
  ~DirMergeSm() override;

  static Kelp::Ptr<DirMergeSm> DirMergeSmIs(const Kelp::Ptr<DirMerged>& merged) {
    return MemSlab::make<DirMergeSm>(merged);
  }
  /// Adds every entity of a directory, now and from now on. Null adds nothing.
  void addInputDir(const Kelp::Ptr<const Zeb::Dir>& dir);

 private:
  class DirFollower;
  Kelp::Ptr<DirMerged> merged_;
  std::vector<std::unique_ptr<DirFollower>> dirs_;
  uint32_t lastOrigin_ = 0;
};

}  // namespace Hive
