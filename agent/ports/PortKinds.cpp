#include <agent/ports/PacketPort.h>
#include <agent/ports/PortKinds.h>
#include <agent/ports/TapPort.h>
#include <linux/capability.h>

#include <algorithm>
#include <iterator>
#include <utility>

namespace Agent {

namespace {

template <class Kind>
std::unique_ptr<LivePort> make(Port& port, std::string device, const LiveFrame& inHand) {
  return std::make_unique<Kind>(port, std::move(device), inHand);
}

/// The last row has the empty prefix: a text without a prefix names an interface.
constexpr PortKind kinds[] = {
    {"tap:", make<TapPort>, CAP_NET_ADMIN},
    {"", make<PacketPort>, CAP_NET_RAW},
};

}  // namespace

const PortKind& portKindOf(std::string_view text, std::string_view* device) {
  const auto* kind = std::find_if(std::begin(kinds), std::end(kinds),
                                  [text](const PortKind& each) { return text.starts_with(each.prefix); });
  *device = text.substr(kind->prefix.size());
  return *kind;
}

}  // namespace Agent
