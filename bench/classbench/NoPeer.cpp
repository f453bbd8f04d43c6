#include "classbench/Peer.h"

// For a build without librte_acl.

namespace Bench {

struct Peer::Context {};

bool Peer::available(std::string* why) {
  *why = "this program was built without librte_acl (libdpdk-dev)";
  return false;
}
std::unique_ptr<Peer> Peer::make(const std::vector<TupleRule>&, std::optional<Lift>, std::string* why) {
  available(why);
  return nullptr;
}
Peer::~Peer() = default;
int32_t Peer::lookUp(size_t) const { return noRule; }
uint64_t Peer::lookUps(Portion) const { return 0; }
uint64_t Peer::batches(Portion) const { return 0; }

}  // namespace Bench
