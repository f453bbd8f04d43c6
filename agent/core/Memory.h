#pragma once

#include <cstdint>
#include <optional>
#include <string>

namespace Agent {

/// Tells the C library to keep freed memory for the next large configuration, and to join freed blocks at
/// once. Otherwise it would give back or join much memory in the middle of a call that frees a little; that
/// takes milliseconds, and packets would wait. To be called before there are threads.
void keepFreedMemory();

/// Puts the compiled form of large lists into large pages, if the system has any (Linux: madvise(2)). To be
/// called before there are threads.
void useLargePages();

/// How much memory the control groups of the process leave it. `groups` is the file that names the groups;
/// their folders are below `root`.
uint64_t leftOfGroups(const std::string& groups = "/proc/self/cgroup",
                      const std::string& root = "/sys/fs/cgroup");

/// What people are told of work that was refused because memory ran out.
inline constexpr const char* outOfMemory = "memory ran out";

/// Why so many octets of memory cannot be had, as "2.0 GiB of memory, and 0.5 GiB can be had"; nothing if
/// they can. The smallest of the limits of the process, of its control groups and of the machine counts.
/// Takes nothing; slow when memory is short. May be called on any thread.
std::optional<std::string> whyNoMemory(uint64_t octets);

}  // namespace Agent
