#pragma once

#include <Acl/Model.h>

#include <array>

namespace Velo::VeloAcl {

/// What is bound to an interface, and whether that list exists.
struct BoundList {
  bool bound = false;
  bool typeKnown = false;  ///< whether there is any list of the type
  Kelp::String name;
  const Acl::AclConfig* list = nullptr;  ///< until the configuration changes
};

/// One remembered search: what was looked for, what was found, and how often each collection that was
/// searched had changed by then (see Zeb::MapVersion).
///
/// The pointers below are not owned. Each is alive as long as the collection that it was found in has not
/// changed, so holds() asks in the order of the searches: the outer collection first, and only when that is
/// unchanged what is reached through a pointer into it. Another order would read freed memory.
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
  // Null, or of the collections whose changes stand below.
  const Acl::IntfTypeConfig* ofType_ = nullptr;
  const Acl::AclIntf* ofDirection_ = nullptr;
  const Acl::AclTypeConfig* lists_ = nullptr;
  uint64_t typeChanges_ = 0, directionChanges_ = 0, listsChanges_ = 0;
  BoundList found_;
};

/// Finds the list of a type that is bound to an interface in a direction. That is five searches; their result
/// is remembered, in one of a few places, and holds as long as none of the searched collections has changed.
/// Part of the helper, which keeps configuration and bindings.
template <size_t places>
class BoundListsOf {
 public:
  /// Either may be null for a helper that is never asked.
  BoundListsOf(const Acl::IntfConfig* bindings, const Acl::Config* config)
      : bindings_(bindings), config_(config) {}

  /// Lasts until the next call.
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
