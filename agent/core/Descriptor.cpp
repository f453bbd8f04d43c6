#include <agent/core/Descriptor.h>
#include <agent/core/Output.h>
#include <fmt/format.h>
#include <sys/eventfd.h>
#include <sys/resource.h>

#include <cerrno>
#include <vector>

namespace Agent {

void raiseDescriptorLimit() {
  rlimit limit{};
  if (getrlimit(RLIMIT_NOFILE, &limit) != 0) return;
  limit.rlim_cur = limit.rlim_max;
  (void)setrlimit(RLIMIT_NOFILE, &limit);
}

std::optional<std::string> whyNoDescriptors(size_t count) {
  std::vector<Descriptor> had;
  for (had.reserve(count); had.size() < count;) {
    had.emplace_back(eventfd(0, EFD_CLOEXEC));
    if (had.back()) continue;
    const int error = errno;
    const size_t most = had.size() - 1;
    had.clear();  // the text of the error may need a descriptor itself
    errno = error;
    return failureOf(fmt::format("{} file descriptors are needed, and {} can be had", count, most));
  }
  return std::nullopt;
}

}  // namespace Agent
