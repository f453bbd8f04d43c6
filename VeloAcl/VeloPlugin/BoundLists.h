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

/// Finds the list of a type that is bound to an interface in a direction. That is five searches; their result
/// is remembered together with the versions of the collections that were searched, and holds as long as none
/// of them has changed. Part of the helper, which keeps configuration and bindings.
class BoundLists {
 public:
  /// Either may be null for a helper that is never asked.
  BoundLists(const Acl::IntfConfig* bindings, const Acl::Config* config)
      : bindings_(bindings), config_(config) {}

  /// Lasts until the next call.
  const BoundList& find(const Nimnet::IntfId& intf, Acl::AclDirection dir, Acl::AclType type) {
    Place& place =
        places_[(intf.hash() ^ static_cast<uint32_t>(type) * 2 ^ static_cast<uint32_t>(dir)) % places];
    if (!place.holds(*this, intf, dir, type)) place.search(*this, intf, dir, type);
    return place.found;
  }

 private:
  static constexpr size_t places = 64;

  struct Place {
    Nimnet::IntfId intf;
    Acl::AclDirection dir{};
    Acl::AclType type{};
    bool searched = false;
    uint32_t bindingsVersion = 0, configVersion = 0;
    // Null, or of the collections whose versions stand below.
    const Acl::IntfTypeConfig* ofType = nullptr;
    const Acl::AclIntf* ofDirection = nullptr;
    const Acl::AclTypeConfig* lists = nullptr;
    uint32_t typeVersion = 0, directionVersion = 0, listsVersion = 0;
    BoundList found;

    bool holds(const BoundLists& all, const Nimnet::IntfId& wantedIntf, Acl::AclDirection wantedDir,
               Acl::AclType wantedType) const {
      return searched && type == wantedType && dir == wantedDir &&
             bindingsVersion == all.bindings_->config().version() &&
             (!ofType || typeVersion == ofType->intf().version()) &&
             (!ofDirection || directionVersion == ofDirection->intf().version()) &&
             configVersion == all.config_->config().version() &&
             (!lists || listsVersion == lists->acl().version()) && intf == wantedIntf;
    }
    void search(const BoundLists& all, const Nimnet::IntfId& wantedIntf, Acl::AclDirection wantedDir,
                Acl::AclType wantedType);
  };

  const Acl::IntfConfig* const bindings_;
  const Acl::Config* const config_;
  std::array<Place, places> places_;
};

}  // namespace Velo::VeloAcl
