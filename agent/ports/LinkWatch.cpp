#include <agent/core/Output.h>
#include <agent/ports/LinkWatch.h>
#include <linux/rtnetlink.h>
#include <net/if.h>
#include <sys/socket.h>

#include <cerrno>
#include <cstring>

namespace Agent {

namespace {

/// The device that a message of the kernel is about.
Link linkOf(const nlmsghdr& message) {
  const auto* info = static_cast<const ifinfomsg*>(NLMSG_DATA(&message));
  Link link;
  link.index = info->ifi_index;
  link.up = (info->ifi_flags & (IFF_UP | IFF_RUNNING)) == (IFF_UP | IFF_RUNNING);
  link.isOn = info->ifi_flags & IFF_UP;
  size_t left = message.nlmsg_len - NLMSG_LENGTH(sizeof *info);
  for (const rtattr* at = IFLA_RTA(info); RTA_OK(at, left); at = RTA_NEXT(at, left)) {
    if (at->rta_type == IFLA_IFNAME) link.name = static_cast<const char*>(RTA_DATA(at));
    if (at->rta_type == IFLA_MTU) std::memcpy(&link.mtu, RTA_DATA(at), sizeof link.mtu);
  }
  return link;
}

}  // namespace

std::optional<std::string> LinkWatch::open() {
  socket_ = Descriptor(socket(AF_NETLINK, SOCK_RAW | SOCK_CLOEXEC, NETLINK_ROUTE));
  sockaddr_nl address{};
  address.nl_family = AF_NETLINK;
  address.nl_groups = RTMGRP_LINK;
  if (!socket_ || bind(socket_.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0 ||
      !readAll()) {
    return failureOf("devices cannot be followed");
  }
  return std::nullopt;
}

bool LinkWatch::readAll() {
  struct {
    nlmsghdr header;
    ifinfomsg info;
  } request{};
  request.header.nlmsg_len = NLMSG_LENGTH(sizeof request.info);
  request.header.nlmsg_type = RTM_GETLINK;
  request.header.nlmsg_flags = NLM_F_REQUEST | NLM_F_DUMP;
  request.info.ifi_family = AF_UNSPEC;
  if (send(socket_.get(), &request, request.header.nlmsg_len, 0) < 0) return false;
  for (bool done = false; !done;) {
    if (!readOne(0, done)) return false;
  }
  return true;
}

void LinkWatch::read() {
  for (bool done = false; readOne(MSG_DONTWAIT, done);) {
  }
  // Messages were lost because the socket was full. So all devices are read again; those missing now are
  // gone.
  if (errno == ENOBUFS) {
    const auto before = names_;
    names_.clear();
    readAll();
    for (const auto& [index, name] : before) {
      if (!names_.contains(index)) handler_(name, nullptr);
    }
  }
}

bool LinkWatch::readOne(int flags, bool& done) {
  alignas(nlmsghdr) char buffer[32768];
  const ssize_t got = recv(socket_.get(), buffer, sizeof buffer, flags);
  if (got < 0) return errno == EINTR;
  auto left = static_cast<unsigned>(got);
  for (const auto* message = reinterpret_cast<const nlmsghdr*>(buffer); NLMSG_OK(message, left);
       message = NLMSG_NEXT(message, left)) {
    if (message->nlmsg_type == RTM_NEWLINK) linkIs(linkOf(*message));
    if (message->nlmsg_type == RTM_DELLINK) linkDel(linkOf(*message).index);
    if (message->nlmsg_type == NLMSG_DONE || message->nlmsg_type == NLMSG_ERROR) done = true;
  }
  return true;
}

void LinkWatch::linkIs(const Link& link) {
  const auto known = names_.find(link.index);
  if (known != names_.end() && known->second != link.name) linkDel(link.index);
  names_[link.index] = link.name;
  handler_(link.name, &link);
}

void LinkWatch::linkDel(int index) {
  const auto known = names_.extract(index);
  if (!known.empty()) handler_(known.mapped(), nullptr);
}

}  // namespace Agent
