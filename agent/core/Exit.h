#pragma once

namespace Agent {

/// The exit status of the program.
enum Exit {
  exitDone = 0,
  exitUnread = 1,  ///< a file or device could not be read, or written, to its end
  exitUsage = 2,   ///< bad usage or configuration
};

/// For people.
inline constexpr const char* exitMeaning =
    "Exit status: 0 done, 1 a file could not be read or written to its end, 2 bad usage or configuration.";

}  // namespace Agent
