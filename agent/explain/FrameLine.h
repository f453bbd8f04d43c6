#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace Agent {

/// What a line that velo has told says of a packet, as the text of a frame (FrameText.h). Such lines are
///
///   15:04:05.123  eth1  drop  FROM-ALICE 10  tcp ...            of `velo tail`
///   ... list A rule 10 denied udp 192.0.2.1(1) -> 192.0.2.2(53) on eth1 in, 3 more packets     of the log
///
/// with anything in front of a line of the log. Any other text is given back as it is. Of a packet that was
/// judged where it left, a line of the log does not say where it came in. Of a MAC list's line on an IP
/// packet the packet is made up. `notes` gets a sentence about either, if it is not null.
std::string frameTextOf(std::string_view line, std::vector<std::string>* notes = nullptr);

}  // namespace Agent
