#include <Classify/LargePages.h>
#include <agent/core/Memory.h>
#include <fmt/format.h>
#include <malloc.h>
#include <sys/mman.h>
#include <sys/resource.h>
#include <unistd.h>

#include <algorithm>
#include <fstream>
#include <limits>

namespace Agent {

namespace {

constexpr uint64_t unlimited = std::numeric_limits<uint64_t>::max();

uint64_t difference(uint64_t limit, uint64_t used) { return limit > used ? limit - used : 0; }

/// What the process may still take of a resource of which it has some pages.
uint64_t leftOf(decltype(RLIMIT_AS) resource, uint64_t pages) {
  rlimit limit{};
  if (getrlimit(resource, &limit) != 0 || limit.rlim_cur == RLIM_INFINITY) return unlimited;
  return difference(limit.rlim_cur, pages * static_cast<uint64_t>(sysconf(_SC_PAGESIZE)));
}

uint64_t leftOfProcess() {
  uint64_t size = 0, data = 0, skipped = 0;
  std::ifstream("/proc/self/statm") >> size >> skipped >> skipped >> skipped >> skipped >> data;
  return std::min(leftOf(RLIMIT_AS, size), leftOf(RLIMIT_DATA, data));
}

/// The number behind a word of a file; of the first one, when the word is empty.
uint64_t numberIn(const std::string& path, const std::string& word, uint64_t otherwise) {
  std::ifstream file(path);
  for (std::string name; !word.empty() && file >> name && name != word;)
    file.ignore(std::numeric_limits<std::streamsize>::max(), '\n');
  uint64_t number = 0;
  return file >> number ? number : otherwise;
}

/// Of the control group (version 2) with a folder. Pages of files give way, but for those of shared memory.
uint64_t leftOfGroup(const std::string& folder) {
  const uint64_t most = numberIn(folder + "/memory.max", "", unlimited);
  if (most == unlimited) return unlimited;
  const uint64_t used = numberIn(folder + "/memory.current", "", 0);
  const auto pages = [&](const char* kind) { return numberIn(folder + "/memory.stat", kind, 0); };
  return difference(most, difference(used, difference(pages("file"), pages("shmem"))));
}

uint64_t leftOfMachine() {
  const uint64_t kibi = numberIn("/proc/meminfo", "MemAvailable:", unlimited);
  return kibi == unlimited ? unlimited : kibi * 1024;
}

/// What the process has, and no use for.
uint64_t freed() {
#ifdef __GLIBC__
  return mallinfo2().fordblks;
#else
  return 0;
#endif
}

}  // namespace

uint64_t leftOfGroups(const std::string& groups, const std::string& root) {
  std::ifstream file(groups);
  uint64_t left = unlimited;
  for (std::string line; std::getline(file, line);) {
    if (!line.starts_with("0::/")) continue;
    // In a container the path is "/", and the folder there is that of a group that may have limits.
    std::string group = line == "0::/" ? "" : line.substr(3);
    for (bool isLast = false; !isLast;) {
      isLast = group.empty();
      left = std::min(left, leftOfGroup(root + group));
      if (!isLast) group.resize(group.rfind('/'));
    }
  }
  return left;
}

void keepFreedMemory() {
#ifdef __GLIBC__
  mallopt(M_TRIM_THRESHOLD, std::numeric_limits<int>::max());
  // Small blocks that are freed are joined at once, and not all of them when a large one is.
  mallopt(M_MXFAST, 0);
  // The most that it takes: blocks below are taken from memory that is there and go back to it.
  mallopt(M_MMAP_THRESHOLD, 32 * 1024 * 1024);
#endif
}

void useLargePages() {
#ifdef MADV_HUGEPAGE
  Classify::adviseLargePages = [](void* place, size_t bytes) {
    (void)madvise(place, bytes, MADV_HUGEPAGE);  // it is as well without
  };
#endif
}

std::optional<std::string> whyNoMemory(uint64_t octets) {
  uint64_t left = std::min({leftOfProcess(), leftOfMachine(), leftOfGroups()});
  if (octets <= left) return std::nullopt;
  left += freed();
  if (octets <= left) return std::nullopt;
  constexpr double gibi = 1 << 30;
  return fmt::format("{:.2f} GiB of memory, and {:.2f} GiB can be had", static_cast<double>(octets) / gibi,
                     static_cast<double>(left) / gibi);
}

}  // namespace Agent
