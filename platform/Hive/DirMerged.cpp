#include <Hive/DirMerged.h>
#include <Kelp/Ptr.h>
#include <MemSlab/Slab.h>
#include <Rix/CollectionFollower.h>

namespace Hive {

class DirMergeSm::DirFollower {
 public:
  DirFollower(const Kelp::Ptr<DirMerged>& merged, const Kelp::Ptr<const Zeb::Dir>& dir, uint32_t origin)
      : follower_(
            dir, Zeb::Dir::entryAttribute(), [dir = dir.get()]() -> auto& { return dir->entry(); },
            [merged, origin](const Kelp::String& name, const Zeb::Owned<Zeb::Entity>& entity) {
              merged->entryIs(MergeRank{origin, name}, entity.ptr());
            },
            [merged, origin](const Kelp::String& name) {
              merged->entryDel(MergeRank{origin, name});
            }) {}

 private:
  Rix::CollectionFollower<Zeb::Dir::EntryMap> follower_;
};

DirMergeSm::DirMergeSm(Kelp::Ptr<DirMerged> merged) : merged_(std::move(merged)) {}
DirMergeSm::~DirMergeSm() = default;

void DirMergeSm::addInputDir(const Kelp::Ptr<const Zeb::Dir>& dir) {
  if (!dir) return;
  const uint32_t origin = ++lastOrigin_;
  dirs_.push_back(std::make_unique<DirFollower>(merged_, dir, origin));
}

}  // namespace Hive
