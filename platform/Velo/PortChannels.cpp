#include <Velo/PortChannels.h>

#include <set>

namespace Velo {

std::optional<std::string> PortChannels::membersIs(const Nimnet::IntfId& portChannel, Members members) {
  std::set<Nimnet::IntfId> seen;
  for (const Nimnet::IntfId& member : members) {
    if (member == portChannel) return fmt::format("{} cannot be its own member", member);
    if (!seen.insert(member).second) return fmt::format("{} is named twice", member);
    const Nimnet::IntfId& other = portChannelOf(member);
    if (!other.empty() && other != portChannel)
      return fmt::format("{} is a member of {} already", member, other);
  }
  portChannelDel(portChannel);
  for (const Nimnet::IntfId& member : members) channelOf_[member] = portChannel;
  channels_[portChannel] = std::move(members);
  return std::nullopt;
}

void PortChannels::portChannelDel(const Nimnet::IntfId& portChannel) {
  auto at = channels_.find(portChannel);
  if (at == channels_.end()) return;
  for (const Nimnet::IntfId& member : at->second) channelOf_.erase(member);
  channels_.erase(at);
}

const Nimnet::IntfId& PortChannels::portChannelOf(const Nimnet::IntfId& member) const {
  static const Nimnet::IntfId none;
  auto at = channelOf_.find(member);
  return at == channelOf_.end() ? none : at->second;
}

}  // namespace Velo
