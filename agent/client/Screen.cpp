#include <agent/client/Screen.h>
#include <poll.h>
#include <termios.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <ctime>

namespace Agent {

namespace {

// The other screen without a cursor, and back.
constexpr std::string_view beginScreen = "\x1b[?1049h\x1b[?25l";
constexpr std::string_view endScreen = "\x1b[0m\x1b[?25h\x1b[?1049l";
constexpr int ending[] = {SIGINT, SIGTERM, SIGHUP, SIGQUIT};

// For signal handlers: how standard input was before, if it is a terminal.
termios modeBefore;
bool modeIsChanged = false;

bool writeAll(std::string_view text) {
  while (!text.empty()) {
    const ssize_t written = write(STDOUT_FILENO, text.data(), text.size());
    if (written < 0 && errno == EINTR) continue;
    if (written <= 0) return false;
    text.remove_prefix(static_cast<size_t>(written));
  }
  return true;
}

/// Only what a signal handler may call (POSIX.1-2017, 2.4.3).
void restore() {
  if (modeIsChanged) tcsetattr(STDIN_FILENO, TCSANOW, &modeBefore);
  modeIsChanged = false;
  writeAll(endScreen);
}

void handleEnd(int signal) {
  restore();
  raise(signal);  // its usual effect was put back before this was called
}

void handleSize(int) {}

}  // namespace

Screen::Screen() {
  modeIsChanged = isatty(STDIN_FILENO) != 0 && tcgetattr(STDIN_FILENO, &modeBefore) == 0;
  if (modeIsChanged) {
    termios keys = modeBefore;
    keys.c_lflag &= ~static_cast<tcflag_t>(ICANON | ECHO);
    keys.c_cc[VMIN] = 0;
    keys.c_cc[VTIME] = 0;
    // A process that is stopped would leave its screen behind.
    keys.c_cc[VSUSP] = _POSIX_VDISABLE;
    tcsetattr(STDIN_FILENO, TCSANOW, &keys);
  }
  keys_ = modeIsChanged;
  struct sigaction action {};
  action.sa_handler = handleSize;
  sigaction(SIGWINCH, &action, nullptr);
  // Blocked outside of wait(): so a signal that comes just before it ends the wait at once.
  sigset_t size;
  sigemptyset(&size);
  sigaddset(&size, SIGWINCH);
  pthread_sigmask(SIG_BLOCK, &size, &whileWaiting_);
  sigdelset(&whileWaiting_, SIGWINCH);
  action.sa_handler = handleEnd;
  action.sa_flags = static_cast<int>(SA_RESETHAND);
  for (const int signal : ending) sigaction(signal, &action, nullptr);
  writeAll(beginScreen);
}

Screen::~Screen() {
  for (const int signal : ending) std::signal(signal, SIG_DFL);
  pthread_sigmask(SIG_SETMASK, &whileWaiting_, nullptr);
  restore();
}

ScreenSize Screen::size() { return screenSize(STDOUT_FILENO).value_or(ScreenSize()); }

bool Screen::draw(const std::vector<std::string>& rows) {
  std::string text = "\x1b[H";
  for (size_t i = 0; i < rows.size(); ++i) {
    text += rows[i];
    text += "\x1b[0m\x1b[K";
    if (i + 1 < rows.size()) text += "\r\n";
  }
  return writeAll(text + "\x1b[J");
}

bool Screen::wait(double seconds, std::string& input) {
  pollfd keys{keys_ ? STDIN_FILENO : -1, POLLIN, 0};
  const auto whole = static_cast<time_t>(seconds);
  constexpr double nanoseconds = 1e9;
  const timespec most{whole, static_cast<long>((seconds - static_cast<double>(whole)) * nanoseconds)};
  if (ppoll(&keys, 1, &most, &whileWaiting_) <= 0) return true;
  char piece[256];
  const ssize_t got = read(STDIN_FILENO, piece, sizeof piece);
  if (got > 0) input.append(piece, static_cast<size_t>(got));
  return got > 0 || (got < 0 && (errno == EINTR || errno == EAGAIN));
}

}  // namespace Agent
