#pragma once

#include <Acl/Types.h>
#include <agent/proof/Fields.h>

#include <string>

namespace Proof {

/// A packet as `velo explain` takes it (agent/explain/FrameText.h): as a text, or as the octets of a frame
/// where there is no text for it.
std::string exampleText(Acl::AclType type, const Packet& packet);
/// An IP packet in a frame with the addresses of another packet, of one before MAC lists.
std::string exampleText(Acl::AclType type, const Packet& packet, const Packet& frame);

}  // namespace Proof
