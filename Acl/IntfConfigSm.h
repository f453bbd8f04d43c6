#pragma once

#include <Acl/Model.h>
#include <Acl/Offers.h>
#include <Hive/DirMerged.h>
#include <Rix/NestedFollower.h>

#include <memory>
#include <tuple>
#include <vector>

namespace AclAgent {

/// Computes the merged interface bindings from a merged view of their sources. If several sources bind a list
/// of the same type to an interface in the same direction, the first of the view is in force; when it gives
/// that up, the next one takes over. An empty name binds nothing. The destructor leaves the target as it is.
class IntfConfigSm : public Kelp::Node {
 public:
  using BindingKey = std::tuple<Acl::AclType, Acl::AclDirection, Nimnet::IntfId>;

  IntfConfigSm(Kelp::Ptr<const Hive::DirMerged> sources, Kelp::Ptr<Acl::IntfConfig> target);
  ~IntfConfigSm() override;

  /// The names of the sources that have a binding, the one in force first; empty when there is none.
  std::vector<Kelp::String> sources(Acl::AclType type, Acl::AclDirection direction,
                                    const Nimnet::IntfId& intf) const {
    return offers_.sources({type, direction, intf});
  }

 private:
  class SourceFollower;
  void handleOffer(const BindingKey& key);

  const Kelp::Ptr<Acl::IntfConfig> target_;
  Acl::Offers<BindingKey, Kelp::String> offers_;
  std::unique_ptr<Rix::NestedFollower<Hive::DirMerged::entryMap, SourceFollower>> follower_;
};

Kelp::Ptr<IntfConfigSm> intfConfigSmFactory(const Kelp::Ptr<const Hive::DirMerged>& sources,
                                            const Kelp::Ptr<Acl::IntfConfig>& target);

}  // namespace AclAgent
