#pragma once

#include "../support/CaptureBytes.h"

#include <string>
#include <string_view>

namespace TestSupport {

/// A frame as cases write it: where and when it is received, and what it is.
struct FrameText {
  std::string port;
  Captured captured;
};

/// Reads one line:
///
///   PORT SECONDS tcp|udp|sctp A:PORT > B:PORT [words]     addresses of either kind; IPv6 ones as [A]:PORT
///   PORT SECONDS icmp|icmp6 A > B TYPE CODE [words]
///   PORT SECONDS ip A > B [words]                         whatever the words make of it
///   PORT SECONDS arp A > B [words]
///   PORT SECONDS eth TYPE [words]
///   PORT SECONDS bytes HEX
///
/// The words are in FrameText.cpp, a table; those of one header go in the order in which they are written.
/// Throws std::runtime_error with the word that is wrong.
FrameText readFrame(std::string_view line);

}  // namespace TestSupport
