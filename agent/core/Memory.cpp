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

/// How much the process may still take of a resource of which it has so many pages.
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

/// The number behind a word that begins a line of a file. With an empty word, the number that the file begins
/// with.
uint64_t numberIn(const std::string& path, const std::string& word, uint64_t otherwise) {
  std::ifstream file(path);
  for (std::string name; !word.empty() && file >> name && name != word;)
    file.ignore(std::numeric_limits<std::streamsize>::max(), '\n');
  uint64_t number = 0;
  return file >> number ? number : otherwise;
}

/// How much the control group (version 2) with this folder leaves. Memory that caches files does not count as
/// used, because it gives way; shared memory does not.
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

/// Memory that the process has freed and the C library keeps.
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
    // In a container the path is "/"; the folder is that of the container's group then, which may have
    // limits.
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
  // Join small blocks at once when they are freed, instead of all of them when a large block is.
  mallopt(M_MXFAST, 0);
  // The highest value that is allowed. Smaller blocks come from the memory that is kept, and go back there.
  mallopt(M_MMAP_THRESHOLD, 32 * 1024 * 1024);
#endif
}

void useLargePages() {
#ifdef MADV_HUGEPAGE
  Classify::adviseLargePages = [](void* place, size_t bytes) {
    (void)madvise(place, bytes, MADV_HUGEPAGE);  // a failure does no harm
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
