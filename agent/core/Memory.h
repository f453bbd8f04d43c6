#pragma once

#include <cstdint>
#include <optional>
#include <string>

namespace Agent {

/// Has the process keep what it frees, for its next large configuration, and put it in order at once. Both
/// take milliseconds when there is much of it, and the C library would do them in the middle of some call
/// that frees a little: packets would wait for it. To be called before there are threads.
void keepFreedMemory();

/// Has what large lists are compiled into put into large pages, if the system has any to give (Linux:
/// madvise(2)). To be called before there are threads.
void useLargePages();

/// What the control groups leave that the process is in, as told in `groups`; their folders are below `root`.
uint64_t leftOfGroups(const std::string& groups = "/proc/self/cgroup",
                      const std::string& root = "/sys/fs/cgroup");

/// What is told of work that needs more memory than there is.
inline constexpr const char* outOfMemory = "memory ran out";

/// Why so many octets of memory cannot be had, if so: "2.0 GiB of memory, and 0.5 GiB can be had". What there
/// is ends at the limits of the process, of its control groups and of the machine, whichever comes first.
/// Slow when it is short; nothing is taken. Any thread.
std::optional<std::string> whyNoMemory(uint64_t octets);

}  // namespace Agent
