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

/// Merges the sources of lists into one configuration. Of the sources that have a list of one kind and name,
/// the command line's is in force, else the first by name of the input directory; a list never mixes sources,
/// and when the source in force lets go of it the next takes over. The target follows through notifications:
/// a changed rule is one write there, a list that comes from another source is one replacement of its
/// `currCfg`, and a list that goes is one `aclDel`; a rule that stays keeps its id. But a list that something
/// stands in for (see AclConfig) keeps its `currCfg` when another source takes it over, see takeOver().
/// Destruction leaves the target as it is.
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

  /// Starts following the sources, and makes the target what they say at once; or stops, leaving it as it is.
  void hasNotificationActiveIs(bool on);

  /// Goes on taking over a list that something stands in for: writes at most so many of the rules in which
  /// the new source differs. True when there is none left; whoever set the stand-in calls it until then.
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
  /// Takes out of the target what no source has: what went while the sources were not followed.
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
