#include <agent/core/Output.h>
#include <fmt/format.h>

#include <cerrno>
#include <cstdio>
#include <cstring>

namespace Agent {

bool print(std::string_view text) {
  if (std::fwrite(text.data(), 1, text.size(), stdout) == text.size() && std::fflush(stdout) == 0)
    return true;
  complain(failureOf("standard output could not be written"));
  return false;
}

void complain(std::string_view text) { fmt::print(stderr, "velo: {}\n", text); }

std::string failureOf(std::string_view what) { return fmt::format("{}: {}", what, std::strerror(errno)); }

}  // namespace Agent
