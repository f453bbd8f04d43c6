#include <agent/core/Terminal.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <cstdlib>
#include <string_view>

namespace Agent {

namespace {

std::string_view environment(const char* name) {
  const char* value = std::getenv(name);
  return value ? value : "";
}

}  // namespace

bool isScreen(int fd) {
  const std::string_view kind = environment("TERM");
  return isatty(fd) != 0 && !kind.empty() && kind != "dumb";
}

bool wantsColour(int fd) { return isScreen(fd) && environment("NO_COLOR").empty(); }

std::optional<ScreenSize> screenSize(int fd) {
  winsize size{};
  if (isatty(fd) == 0 || ioctl(fd, TIOCGWINSZ, &size) != 0 || size.ws_row == 0 || size.ws_col == 0)
    return std::nullopt;
  return ScreenSize{size.ws_row, size.ws_col};
}

}  // namespace Agent
