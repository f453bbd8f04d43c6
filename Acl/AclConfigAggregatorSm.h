#pragma once

#include <Acl/Model.h>
#include <Acl/Offers.h>
#include <Hive/DirMerged.h>
#include <Rix/NestedFollower.h>

#include <map>
#include <memory>
#include <utility>
#include <vector>

namespace Acl {

/// Merges the sources of lists into one configuration, the target. If several sources have a list of the same
/// type and name, that of the command line is in force, otherwise that of the first source by name in the
/// input directory. Lists of several sources are never mixed; when the source in force deletes its list, the
/// next source takes over.
///
/// The target follows by notifications. A changed rule is one write there, a list that comes from another
/// source is one replacement of its `currCfg`, and a deleted list is one `aclDel`. A rule that stays keeps
/// its id. The exception is a list that something stands in for (see AclConfig): it keeps its `currCfg` when
/// another source takes over, and takeOver() changes its rules.
///
/// The destructor leaves the target as it is.
class AclConfigAggregatorSm : public Kelp::Node {
 public:
  using ListKey = std::pair<AclType, Kelp::String>;

  /// Sources may be null, the target not.
  AclConfigAggregatorSm(Kelp::Ptr<const Zeb::Dir> inputDir, Kelp::Ptr<const Input::Config> cliInput,
                        Kelp::Ptr<Config> config);
  ~AclConfigAggregatorSm() override;

  static Kelp::Ptr<AclConfigAggregatorSm> AclConfigAggregatorSmIs(
      const Kelp::Ptr<const Zeb::Dir>& inputDir, const Kelp::Ptr<const Input::Config>& cliInput,
      const Kelp::Ptr<Config>& config);

  /// Starts to follow the sources, and brings the target up to date at once; or stops, and leaves it as it
  /// is.
  void hasNotificationActiveIs(bool on);

  /// Continues to take over a list that something stands in for: writes at most `most` of the rules in which
  /// the new source differs. True when none is left. Whoever has set the stand-in calls this until then.
  bool takeOver(const ListKey& key, size_t most);

  /// The names of the sources that have a list, the one in force first; empty for an unknown list.
  std::vector<Kelp::String> sources(AclType type, const Kelp::String& name) const {
    return offers_.sources({type, name});
  }

 private:
  class ListMirror;
  class SourceFollower;
  using Source = Rix::NestedFollower<Hive::DirMerged::entryMap, SourceFollower>;

  void handleOffer(const ListKey& key);
  /// Deletes everything from the target that no source has: it was deleted while the sources were not
  /// followed.
  void dropUnoffered();

  const Kelp::Ptr<const Zeb::Dir> inputDir_;
  const Kelp::Ptr<const Input::Config> cliInput_;
  const Kelp::Ptr<Config> config_;
  Offers<ListKey, Kelp::Ptr<const AclConfig>> offers_;
  std::map<ListKey, std::unique_ptr<ListMirror>> mirrors_;
  Kelp::Ptr<Hive::DirMerged> merged_;
  Kelp::Ptr<Hive::DirMergeSm> dirMergeSm_;
  std::unique_ptr<Source> follower_;
};

}  // namespace Acl
