#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "../../support/Frames.h"

namespace TestSupport {

/// An enhanced packet block of a pcapng file, with the name of its interface.
struct CommentedBlock {
  std::string interface;
  uint64_t nanoseconds = 0;  ///< since the epoch
  Bytes frame;
  uint32_t wire = 0;
  std::string comment;
  uint32_t flags = 0;
  bool operator==(const CommentedBlock&) const = default;
};

struct CommentedFile {
  std::string application;
  std::vector<std::string> interfaces;
  std::vector<CommentedBlock> frames;
};

/// What a little-endian pcapng file of Ethernet with nanosecond stamps says, read octet by octet. Throws
/// std::runtime_error for any other, and for whatever the format does not allow.
CommentedFile readPcapng(const std::string& path);

}  // namespace TestSupport
