#pragma once

#include "../../support/Frames.h"

namespace TestSupport {

// Files as gzip and zstd may write them, of blocks that are stored as they are. They are made here octet by
// octet as the formats say, and not by the libraries with which the program unpacks them.

/// One member (RFC 1952) of stored blocks (RFC 1951, 3.2.4).
Bytes gzipBytes(const Bytes& content);
/// One frame (RFC 8878, 3.1.1) of raw blocks.
Bytes zstdBytes(const Bytes& content);

}  // namespace TestSupport
