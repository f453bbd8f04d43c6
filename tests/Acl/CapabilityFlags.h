#pragma once

#include <string>
#include <vector>

/// The twenty flags of the status that say what the dataplane is able to do, in the order of declaration.
inline std::vector<std::string> capabilityFlags() {
  return {"dpAclSupported",
          "dpIpEgressAclSupported",
          "dpIp6AclSupported",
          "dpIp6EgressAclSupported",
          "dpMacAclSupported",
          "dpMacEgressAclSupported",
          "dpAclTcSupported",
          "dpAclHopLimitSupported",
          "dpAclCountersSupported",
          "dpIpAclMirrorActionSupported",
          "dpIpv6AclMirrorActionSupported",
          "dpMacAclMirrorActionSupported",
          "dpAclDscpSupported",
          "dpAclDscpMaskSupported",
          "dpAclDscpMaskIpv6Supported",
          "dpAclSctpSupported",
          "dpAclSctpPortMatchSupported",
          "dpAclVlanSupported",
          "vlanSupported",
          "dscpFilterSupported"};
}
