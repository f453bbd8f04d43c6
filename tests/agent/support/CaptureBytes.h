#pragma once

#include "../../support/Frames.h"

#include <compare>
#include <cstdint>
#include <string>
#include <vector>

namespace TestSupport {

/// A frame with what a capture records of it. `wire`: its octets on the wire.
struct Captured {
  uint64_t seconds = 0;
  uint32_t nanoseconds = 0;
  Bytes frame;
  uint32_t wire = 0;
  bool operator==(const Captured&) const = default;
};

/// How a pcap file is laid out. The files are written and read here byte by byte, so that what the program
/// reads and writes is compared with the format itself.
struct PcapLayout {
  bool bigEndian = false;
  bool nano = true;
  uint32_t linkType = 1;
};

Bytes pcapBytes(const std::vector<Captured>& frames, PcapLayout layout = {});
/// A pcapng file with one Ethernet interface, whose time stamps are of nanoseconds or of whole seconds.
Bytes pcapngBytes(const std::vector<Captured>& frames, bool nano = true);
/// The frames of a little-endian nanosecond Ethernet pcap file; throws std::runtime_error for any other.
std::vector<Captured> readPcap(const std::string& path);

void writeFile(const std::string& path, const Bytes& bytes);
void writeFile(const std::string& path, std::string_view text);
std::string readFile(const std::string& path);

}  // namespace TestSupport
