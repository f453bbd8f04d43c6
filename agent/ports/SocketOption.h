#pragma once

#include <linux/if_packet.h>
#include <sys/socket.h>

namespace Agent {

// Options of sockets; false when one cannot be set (errno).

template <class T>
bool optionIs(int socket, int level, int name, const T& value) {
  return setsockopt(socket, level, name, &value, sizeof value) == 0;
}

template <class T>
bool packetOptionIs(int socket, int name, const T& value) {
  return optionIs(socket, SOL_PACKET, name, value);
}

}  // namespace Agent
