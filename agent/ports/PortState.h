#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace Agent {

/// The state of a live port and its counts of frames between port and device. (struct Port counts what the
/// lists made of them.) Octets include tags that were put back in, and no frame check sequence. A super-frame
/// that its sender left to be cut is one frame; segments are what a wire carries for the frames.
struct PortState {
  std::string name;
  std::string device;
  std::string_view kind;  ///< "packet", "tap" and so on, as on the command line
  std::string how;        ///< how frames get to and from the device; empty when the kind says it all
  bool present = false;   ///< the device is there and the port is open on it
  bool up = false;        ///< and its link is up
  uint32_t mtu = 0;       ///< octets behind the Ethernet header; 0 while not present
  std::string wrong;      ///< why the port could not be opened; empty when nothing went wrong

  uint64_t rxFrames = 0;
  uint64_t rxBytes = 0;
  uint64_t rxSegments = 0;
  uint64_t kernelDrops = 0;  ///< frames that came while there was no room for them
  uint64_t rxTooLarge = 0;   ///< received frames that could not be read to their end, and were dropped
  uint64_t rxErrors = 0;     ///< frames that came damaged

  uint64_t txFrames = 0;
  uint64_t txBytes = 0;
  uint64_t txSegments = 0;
  uint64_t tooLarge = 0;    ///< frames that were not sent because they are larger than the device takes
  uint64_t sendFailed = 0;  ///< frames that were not sent for another reason

  uint64_t nowhere = 0;  ///< received frames that passed, but had no port to leave by
};

}  // namespace Agent
