#pragma once

#include <Nimnet/IntfId.h>
#include <Nimnet/Pkt.h>

#include <map>
#include <optional>
#include <string>
#include <vector>

namespace Velo {

/// The port-channels of the agent: which ports are members of which, and which member a packet leaves by.
class PortChannels {
 public:
  using Members = std::vector<Nimnet::IntfId>;

  const std::map<Nimnet::IntfId, Members>& all() const { return channels_; }
  bool has(const Nimnet::IntfId& portChannel) const { return channels_.contains(portChannel); }
  /// Defines a port-channel anew. An interface belongs to at most one; what is wrong is returned, and then
  /// nothing has changed.
  std::optional<std::string> membersIs(const Nimnet::IntfId& portChannel, Members members);
  void portChannelDel(const Nimnet::IntfId& portChannel);

  /// The port-channel that an interface is a member of; the empty id when it is none.
  const Nimnet::IntfId& portChannelOf(const Nimnet::IntfId& member) const;
  /// Which of `members` members, more than none, packets of this flow leave by: the same for all packets of a
  /// flow while their number stays. Flows spread evenly.
  static constexpr size_t chosen(uint32_t flowHash, size_t members) {
    return (uint64_t{flowHash} * members) >> 32;
  }

 private:
  std::map<Nimnet::IntfId, Members> channels_;
  std::map<Nimnet::IntfId, Nimnet::IntfId> channelOf_;
};

}  // namespace Velo
