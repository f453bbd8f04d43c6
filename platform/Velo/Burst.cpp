#include <Velo/Burst.h>

namespace Velo {

namespace {

/// Frames are fetched while earlier ones are parsed.
constexpr uint32_t framesAhead = 6;

}  // namespace

void PacketBurst::parse() {
  ethernet_ = ip_ = ip6_ = malformed_ = 0;
  for (uint32_t i = 0; i < count_; ++i) {
    if (i + framesAhead < count_) __builtin_prefetch(packets_[i + framesAhead].pkt.frame().data());
    auto& [pkt, parsed] = packets_[i];
    parsed.reset(&pkt);
    parsed.maybeDoFullParse();
    const ParsedIpHdr* ip = parsed.ipHdr();
    const bool is4 = ip && ip->ipHdr();
    ethernet_ |= PacketSet{parsed.ethPacket()->ethHdr() != nullptr} << i;
    ip_ |= PacketSet{is4} << i;
    ip6_ |= PacketSet{ip && !is4} << i;
    malformed_ |= PacketSet{parsed.fault() != ParseFault::none} << i;
  }
}

void BurstForms::begin() {
  for (size_t i = 0; i < count_; ++i) forms_[i]->begin();
}

BurstVerdicts BurstForms::judge(const PacketBurst& burst, PacketSet asked, const BurstPlace& place) {
  BurstVerdicts all;
  for (size_t i = 0; i < count_ && asked != 0; ++i) {
    const BurstVerdicts said = forms_[i]->judge(burst, asked, place);
    all.dropped |= said.dropped;
    all.alone |= said.alone;
    asked &= ~(said.dropped | said.alone);
  }
  return all;
}

bool BurstForms::holds() const {
  for (size_t i = 0; i < count_; ++i) {
    if (!forms_[i]->holds()) return false;
  }
  return true;
}

void BurstForms::act(const PacketBurst& burst, PacketSet done) {
  for (size_t i = 0; i < count_; ++i) forms_[i]->act(burst, done);
}

}  // namespace Velo
