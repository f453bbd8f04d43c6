#pragma once

#include <Nimnet/IntfId.h>
#include <fmt/format.h>

#include <map>
#include <optional>
#include <set>
#include <string>
#include <vector>

namespace Velo {

/// Which interfaces are members of which port-channel. Interfaces are named by ids, or, where a configuration
/// is only checked, by texts.
template <class Id>
class PortChannelsOf {
 public:
  using Members = std::vector<Id>;

  const std::map<Id, Members>& all() const { return channels_; }
  bool has(const Id& portChannel) const { return channels_.contains(portChannel); }
  /// Defines a port-channel, or replaces its members. An interface can belong to one port-channel only.
  /// Returns what is wrong; then nothing has changed.
  std::optional<std::string> membersIs(const Id& portChannel, Members members) {
    std::set<Id> seen;
    for (const Id& member : members) {
      if (member == portChannel) return fmt::format("{} cannot be its own member", member);
      if (!seen.insert(member).second) return fmt::format("{} is named twice", member);
      const Id& other = portChannelOf(member);
      if (!other.empty() && other != portChannel)
        return fmt::format("{} is a member of {} already", member, other);
    }
    portChannelDel(portChannel);
    for (const Id& member : members) channelOf_[member] = portChannel;
    channels_[portChannel] = std::move(members);
    return std::nullopt;
  }
  void portChannelDel(const Id& portChannel) {
    const auto at = channels_.find(portChannel);
    if (at == channels_.end()) return;
    for (const Id& member : at->second) channelOf_.erase(member);
    channels_.erase(at);
  }

  /// The port-channel that an interface is a member of; the empty id when it is none.
  const Id& portChannelOf(const Id& member) const {
    static const Id none;
    const auto at = channelOf_.find(member);
    return at == channelOf_.end() ? none : at->second;
  }

 private:
  std::map<Id, Members> channels_;
  std::map<Id, Id> channelOf_;
};

/// The port-channels of the agent, and the choice of the member that a packet leaves by.
class PortChannels : public PortChannelsOf<Nimnet::IntfId> {
 public:
  /// The index of the member that packets of a flow leave by; `members` is how many there are, at least one.
  /// As long as their number stays it is the same for all packets of a flow. Flows spread evenly.
  static constexpr size_t chosen(uint32_t flowHash, size_t members) {
    return (uint64_t{flowHash} * members) >> 32;
  }
};

}  // namespace Velo
