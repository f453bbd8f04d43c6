#pragma once

#include <Acl/Model.h>

#include <array>

namespace Velo::VeloAcl {

/// The list that is bound to an interface, and whether it exists.
struct BoundList {
  bool bound = false;
  bool typeKnown = false;  ///< there is a list of the type
  Kelp::String name;
  const Acl::AclConfig* list = nullptr;  ///< valid until the configuration changes
};

/// One search that is remembered: what was searched for, what was found, and the change count of each
/// collection that was searched (see Zeb::MapVersion).
///
/// The pointers below are not owned. Each one is valid as long as the collection in which it was found has
/// not changed. So holds() must compare in the order of the search: the outer collection first, and only if
/// that has not changed, the collection behind a pointer into it. Another order would read freed memory.
class BoundListSearch {
 public:
  bool holds(const Acl::IntfConfig& bindings, const Acl::Config& config, const Nimnet::IntfId& intf,
             Acl::AclDirection dir, Acl::AclType type) const {
    return searched_ && type_ == type && dir_ == dir && bindingsChanges_ == bindings.config().changes() &&
           (!ofType_ || typeChanges_ == ofType_->intf().changes()) &&
           (!ofDirection_ || directionChanges_ == ofDirection_->intf().changes()) &&
           configChanges_ == config.config().changes() &&
           (!lists_ || listsChanges_ == lists_->acl().changes()) && intf_ == intf;
  }
  void search(const Acl::IntfConfig& bindings, const Acl::Config& config, const Nimnet::IntfId& intf,
              Acl::AclDirection dir, Acl::AclType type);
  const BoundList& found() const { return found_; }

 private:
  Nimnet::IntfId intf_;
  Acl::AclDirection dir_{};
  Acl::AclType type_{};
  bool searched_ = false;
  uint64_t bindingsChanges_ = 0, configChanges_ = 0;
  // The collections that were searched, null if there was none, and their change counts.
  const Acl::IntfTypeConfig* ofType_ = nullptr;
  const Acl::AclIntf* ofDirection_ = nullptr;
  const Acl::AclTypeConfig* lists_ = nullptr;
  uint64_t typeChanges_ = 0, directionChanges_ = 0, listsChanges_ = 0;
  BoundList found_;
};

/// Finds the list of a type that is bound to an interface in a direction. That takes five searches. Their
/// result is remembered, in one of a few places, and used as long as none of the searched collections has
/// changed. Part of the helper, which keeps configuration and bindings alive.
template <size_t places>
class BoundListsOf {
 public:
  /// Both may be null, but then find() must not be called.
  BoundListsOf(const Acl::IntfConfig* bindings, const Acl::Config* config)
      : bindings_(bindings), config_(config) {}

  /// The result is valid until the next call.
  const BoundList& find(const Nimnet::IntfId& intf, Acl::AclDirection dir, Acl::AclType type) {
    BoundListSearch& place =
        places_[(intf.hash() ^ static_cast<uint32_t>(type) * 2 ^ static_cast<uint32_t>(dir)) % places];
    if (!place.holds(*bindings_, *config_, intf, dir, type)) {
      place.search(*bindings_, *config_, intf, dir, type);
    }
    return place.found();
  }

 private:
  const Acl::IntfConfig* const bindings_;
  const Acl::Config* const config_;
  std::array<BoundListSearch, places> places_;
};

using BoundLists = BoundListsOf<64>;

}  // namespace Velo::VeloAcl
